// A host in plain C, as somebody built it against version 0.4: loads both plugins and drives every
// slot of both tables. Usage: host DICTIONARY_PLUGIN SETTINGS_PLUGIN
#include "vorn_0_4.h"

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int g_failed = 0;
static bool g_isDriven[2][53];
static const V04IDictionary* g_d;
static const V04ISettings* g_s;

#define CHECK(condition)                                                                           \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            printf("%s:%d: not so: %s\n", __FILE__, __LINE__, #condition);                         \
            ++g_failed;                                                                            \
        }                                                                                          \
    } while (0)

// The slots, each noted as driven.
#define D(slot) (g_isDriven[0][offsetof(V04IDictionary, slot) / 8] = true, g_d->slot)
#define S(slot) (g_isDriven[1][offsetof(V04ISettings, slot) / 8] = true, g_s->slot)

// ---- what a host offers

static int g_sources = 0;
static int g_messages = 0;

static void
logMessage(const char* source, int32_t level, const char* file, int line, const char* format, ...) {
    (void)file, (void)line, (void)format;
    CHECK(strcmp(source, "vorn.settings.plugin") == 0 && level == 1);
    ++g_messages;
}
static void registerSource(const char* source, V04SetLogLevelFn setLevelThreshold) {
    (void)source;
    ++g_sources;
    setLevelThreshold(1);
}
static void unregisterSource(const char* source) {
    (void)source;
    --g_sources;
}
static V04Logging g_logging;

static void* acquire(const char* client, V04InterfaceDesc desc, const char* plugin) {
    (void)client, (void)plugin;
    if (strcmp(desc.name, "vorn::dictionary::IDictionary") == 0) {
        CHECK(desc.version.major == 0 && desc.version.minor == 4);
        return (void*)g_d;
    }
    return strcmp(desc.name, "vorn::logging::Logging") == 0 ? &g_logging : NULL;
}
static V04Framework g_framework;

typedef struct Plugin {
    void* library;
    V04OnPluginStartupFn startup;
    V04OnPluginShutdownFn shutdown;
    const void* table;
} Plugin;

// A pointer to an object is no pointer to a function in C; dlsym's are both.
static void find(void* library, const char* name, void* function) {
    void* address = dlsym(library, name);
    CHECK(address);
    memcpy(function, &address, sizeof(address));
}

static Plugin load(const char* file, const char* interfaceName, size_t size, size_t depCount) {
    V04OnPluginRegisterFn onRegister;
    V04GetFrameworkVersionFn getFrameworkVersion;
    V04GetPluginDepsFn getDeps;
    V04PluginRegistryEntry entry;
    V04InterfaceDesc* deps = NULL;
    size_t count = 99;
    Plugin plugin;
    plugin.library = dlopen(file, RTLD_NOW | RTLD_LOCAL);
    if (!plugin.library) {
        printf("%s\n", dlerror());
        exit(1);
    }
    find(plugin.library, "vornOnPluginRegister", &onRegister);
    find(plugin.library, "vornGetFrameworkVersion", &getFrameworkVersion);
    find(plugin.library, "vornGetPluginDeps", &getDeps);
    find(plugin.library, "vornOnPluginStartup", &plugin.startup);
    find(plugin.library, "vornOnPluginShutdown", &plugin.shutdown);
    CHECK(getFrameworkVersion().major == 0 && getFrameworkVersion().minor <= 3);
    getDeps(&deps, &count);
    CHECK(count == depCount);
    onRegister(&g_framework, &entry);
    CHECK(entry.interfaceCount == 1 && entry.interfaces[0].size >= size);
    CHECK(strcmp(entry.interfaces[0].desc.name, interfaceName) == 0);
    CHECK(entry.interfaces[0].desc.version.major == 0 &&
          entry.interfaces[0].desc.version.minor >= 4);
    plugin.table = entry.interfaces[0].ptr;
    plugin.startup();
    return plugin;
}

// ---- the dictionary table

static bool isText(const char* text, const char* expected) {
    return text && strcmp(text, expected) == 0;
}
static bool isBuffer(const char* buffer, const char* expected) {
    const bool isEqual = isText(buffer, expected);
    D(destroyStringBuffer)(buffer);
    return isEqual;
}

static V04UpdateAction acceptInts(
    const V04Item* dst, V04ItemType dstType, const V04Item* src, V04ItemType srcType, void* count) {
    (void)src;
    CHECK((dst == NULL) == (dstType == kV04Count));
    ++*(int*)count;
    return srcType == kV04Int ? kV04Overwrite : kV04Keep;
}

static const int64_t kInt64s[] = {1, INT64_MIN};
static const int32_t kInt32s[] = {1, INT32_MIN};
static const double kFloat64s[] = {0.5, -1e300};
static const float kFloat32s[] = {0.5F, 1.5F};
static const bool kBools[] = {true, false};
static const char* const kTexts[] = {"zero", "one"};
static int64_t g_int64s[2];
static int32_t g_int32s[2];
static double g_float64s[2];
static float g_float32s[2];
static bool g_bools[2];
static const char* g_texts[2];

static void driveDictionary(void) {
    V04Item* root = D(createItem)(NULL, "root", kV04Dictionary);
    V04Item* a = D(createItem)(root, "way/a", kV04Int);
    CHECK(root && a && a == D(getItem)(root, "way/a") && a == D(getItemMutable)(root, "way/a"));
    V04Item* way = D(getItemParentMutable)(a);
    CHECK(way == D(getItemParent)(a) && D(getItemChildCount)(way) == 1);
    CHECK(D(getItemChildByIndex)(way, 0) == a && D(getItemChildByIndexMutable)(way, 0) == a);
    CHECK(isText(D(getItemName)(a), "a"));
    CHECK(isBuffer(D(createStringBufferFromItemName)(way), "way"));
    D(setInt64)(a, INT64_MIN);
    CHECK(D(getItemType)(a) == kV04Int && D(getAsInt64)(a) == INT64_MIN);
    D(setFloat64)(a, 0.5);
    CHECK(D(getItemType)(a) == kV04Float && D(getAsFloat64)(a) == 0.5);
    D(setBool)(a, true);
    CHECK(D(getItemType)(a) == kV04Bool && D(getAsBool)(a));
    D(setString)(a, "2.5");
    CHECK(D(isAccessibleAs)(kV04Float, a) && isText(D(getStringBuffer)(a), "2.5"));
    CHECK(isBuffer(D(createStringBufferFromItemValue)(a), "2.5"));

    D(setInt64Array)(a, kInt64s, 2);
    D(getAsInt64Array)(a, g_int64s, 2);
    CHECK(memcmp(kInt64s, g_int64s, sizeof(kInt64s)) == 0);
    CHECK(D(isAccessibleAsArray)(a) && D(isAccessibleAsArrayOf)(kV04Int, a));
    CHECK(D(getArrayLength)(a) == 2 && D(getPreferredArrayType)(a) == kV04Int);
    D(setIntArray)(a, kInt32s, 2);
    D(getAsIntArray)(a, g_int32s, 2);
    CHECK(memcmp(kInt32s, g_int32s, sizeof(kInt32s)) == 0);
    D(setFloat64Array)(a, kFloat64s, 2);
    D(getAsFloat64Array)(a, g_float64s, 2);
    CHECK(memcmp(kFloat64s, g_float64s, sizeof(kFloat64s)) == 0);
    D(setFloatArray)(a, kFloat32s, 2);
    D(getAsFloatArray)(a, g_float32s, 2);
    CHECK(memcmp(kFloat32s, g_float32s, sizeof(kFloat32s)) == 0);
    D(setBoolArray)(a, kBools, 2);
    D(getAsBoolArray)(a, g_bools, 2);
    CHECK(g_bools[0] && !g_bools[1]);
    D(setStringArray)(a, kTexts, 2);
    D(getStringBufferArray)(a, g_texts, 2);
    CHECK(isText(g_texts[0], "zero") && isText(g_texts[1], "one"));
    D(setInt64At)(a, 2, 7);
    CHECK(D(getAsInt64At)(a, 2) == 7);
    D(setFloat64At)(a, 2, 0.5);
    CHECK(D(getAsFloat64At)(a, 2) == 0.5);
    D(setBoolAt)(a, 2, true);
    CHECK(D(getAsBoolAt)(a, 2));
    D(setStringAt)(a, 2, "two");
    CHECK(isText(D(getStringBufferAt)(a, 2), "two"));
    CHECK(isBuffer(D(createStringBufferFromItemValueAt)(a, 2), "two"));
    const V04Item* elements[3];
    D(getItemArray)(a, elements, 3);
    CHECK(elements[2] == D(getItemAt)(a, 2) && elements[1] == D(getItemAtMutable)(a, 1));

    int asked = 0;
    V04Item* copy = D(createItem)(NULL, "copy", kV04Dictionary);
    D(setInt64At)(a, 1, 5);
    D(update)(copy, NULL, root, "way/a", acceptInts, &asked);
    CHECK(asked == 3 && D(getAsInt64At)(copy, 1) == 5 && !D(getItemAt)(copy, 0));
    D(destroyItem)(copy);
    D(destroyItem)(a);
    CHECK(D(getItemChildCount)(way) == 0);
    D(destroyItem)(root);
}

// ---- the settings table

static int g_nodeEvents = 0;
static int g_treeEvents = 0;

static void onNode(const V04Item* changed, V04ChangeEventType type, void* userData) {
    CHECK(changed && type == kV04Changed && userData == &g_nodeEvents);
    ++g_nodeEvents;
}
static void
onTree(const V04Item* subtree, const V04Item* changed, V04ChangeEventType type, void* userData) {
    CHECK(subtree && changed && subtree != changed && userData == &g_treeEvents);
    g_treeEvents += type == kV04Destroyed ? 100 : 1;
}
static bool isOwnBuffer(const char* buffer, const char* expected) {
    const bool isEqual = isText(buffer, expected);
    S(destroyStringBuffer)(buffer);
    return isEqual;
}

static void driveArrays(void) {
    S(setInt64Array)("/a/list", kInt64s, 2);
    S(getAsInt64Array)("/a/list", g_int64s, 2);
    CHECK(memcmp(kInt64s, g_int64s, sizeof(kInt64s)) == 0);
    CHECK(S(isAccessibleAsArray)("/a/list") && S(isAccessibleAsArrayOf)(kV04Int, "/a/list"));
    CHECK(S(getArrayLength)("/a/list") == 2 && S(getPreferredArrayType)("/a/list") == kV04Int);
    S(setIntArray)("/a/list", kInt32s, 2);
    S(getAsIntArray)("/a/list", g_int32s, 2);
    CHECK(memcmp(kInt32s, g_int32s, sizeof(kInt32s)) == 0);
    S(setFloat64Array)("/a/list", kFloat64s, 2);
    S(getAsFloat64Array)("/a/list", g_float64s, 2);
    CHECK(memcmp(kFloat64s, g_float64s, sizeof(kFloat64s)) == 0);
    S(setFloatArray)("/a/list", kFloat32s, 2);
    S(getAsFloatArray)("/a/list", g_float32s, 2);
    CHECK(memcmp(kFloat32s, g_float32s, sizeof(kFloat32s)) == 0);
    S(setBoolArray)("/a/list", kBools, 2);
    S(getAsBoolArray)("/a/list", g_bools, 2);
    CHECK(g_bools[0] && !g_bools[1]);
    S(setStringArray)("/a/list", kTexts, 2);
    S(getStringBufferArray)("/a/list", g_texts, 2);
    CHECK(isText(g_texts[0], "zero") && isText(g_texts[1], "one"));
    S(setInt64At)("/a/list", 2, 7);
    CHECK(S(getAsInt64At)("/a/list", 2) == 7);
    S(setFloat64At)("/a/list", 2, 0.5);
    CHECK(S(getAsFloat64At)("/a/list", 2) == 0.5);
    S(setBoolAt)("/a/list", 2, true);
    CHECK(S(getAsBoolAt)("/a/list", 2));
    S(setStringAt)("/a/list", 2, "two");
    CHECK(isText(S(getStringBufferAt)("/a/list", 2), "two"));
    CHECK(isOwnBuffer(S(createStringBufferFromItemValueAt)("/a/list", 2), "two"));
}

static void driveSettings(void) {
    S(setDictionary)("/a");
    CHECK(S(getItemType)("/a") == kV04Dictionary && S(getItemType)("/b") == kV04Count);
    V04SubscriptionId* node = S(subscribeToNodeChangeEvents)("/a/b", onNode, &g_nodeEvents);
    V04SubscriptionId* tree = S(subscribeToTreeChangeEvents)("/a", onTree, &g_treeEvents);
    S(setInt64)("/a/b", INT64_MAX);
    CHECK(S(getAsInt64)("/a/b") == INT64_MAX);
    S(setFloat64)("/a/b", 0.5);
    CHECK(S(getAsFloat64)("/a/b") == 0.5 && g_nodeEvents == 2 && g_treeEvents == 2);
    S(unsubscribeToChangeEvents)(node);
    S(setBool)("/a/b", true);
    CHECK(S(getAsBool)("/a/b") && S(isAccessibleAs)(kV04Bool, "/a/b"));
    S(setString)("/a/b", "text");
    CHECK(isText(S(getStringBuffer)("/a/b"), "text") && g_nodeEvents == 2 && g_treeEvents == 4);
    CHECK(isOwnBuffer(S(createStringBufferFromItemValue)("/a/b"), "text"));
    S(destroyItem)("/a/b");
    CHECK(S(getItemType)("/a/b") == kV04Count && g_treeEvents == 104);
    S(unsubscribeToChangeEvents)(tree);

    driveArrays();

    V04Transaction* transaction = S(createTransaction)();
    S(setInt64Async)(transaction, "/t/int", 1);
    S(setFloat64Async)(transaction, "/t/float", 0.5);
    S(setBoolAsync)(transaction, "/t/bool", true);
    S(setStringAsync)(transaction, "/t/text", "text");
    CHECK(S(getItemType)("/t") == kV04Count);
    S(commitTransaction)(transaction);
    CHECK(S(getAsInt64)("/t/int") == 1 && S(getAsFloat64)("/t/float") == 0.5);
    CHECK(S(getAsBool)("/t/bool") && isText(S(getStringBuffer)("/t/text"), "text"));
    S(destroyTransaction)(transaction);

    int asked = 0;
    V04Item* copy = S(createDictionaryFromSettings)("/t");
    const V04Item* live = S(getSettingsDictionary)("/t");
    CHECK(copy && live && copy != live && D(getItemChildCount)(copy) == 4);
    S(update)("/u", copy, NULL, acceptInts, &asked);
    CHECK(asked == 1 && S(getItemType)("/u") == kV04Count);
    S(update)("/t", copy, NULL, acceptInts, &asked);
    CHECK(asked == 5);
    D(setInt64)(D(createItem)(copy, "first", kV04Int), 1);
    S(initializeFromDictionary)(copy);
    CHECK(S(getAsInt64)("/first") == 1);
    S(initializeFromDictionary)(copy);
    CHECK(g_messages == 1); // it works once
    D(destroyItem)(copy);
    CHECK(S(getAsInt64)(NULL) == 0 && g_messages == 2);
}

static void checkAllDriven(int table, int count) {
    for (int slot = 0; slot < count; ++slot) {
        if (!g_isDriven[table][slot]) {
            printf("slot %d of table %d was not driven\n", slot, table);
            ++g_failed;
        }
    }
}

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    g_framework.acquireInterfaceWithClient = acquire;
    g_framework.tryAcquireInterfaceWithClient = acquire;
    g_logging.log = logMessage;
    g_logging.registerSource = registerSource;
    g_logging.unregisterSource = unregisterSource;

    Plugin dictionary = load(argv[1], "vorn::dictionary::IDictionary", sizeof(V04IDictionary), 0);
    g_d = dictionary.table;
    Plugin settings = load(argv[2], "vorn::settings::ISettings", sizeof(V04ISettings), 1);
    g_s = settings.table;
    CHECK(g_sources == 2);
    driveDictionary();
    driveSettings();
    checkAllDriven(0, 52);
    checkAllDriven(1, 53);
    settings.shutdown();
    dictionary.shutdown();
    dlclose(settings.library);
    dlclose(dictionary.library);
    CHECK(g_sources == 0);
    printf("105 slots driven, %d checks failed\n", g_failed);
    return g_failed != 0;
}
