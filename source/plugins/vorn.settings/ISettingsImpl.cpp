// The settings plugin: the operations behind the settings table, in the table's own groups, the
// table, and the entry points that the host calls.
//
// The store keeps no values: every node is an item of the dictionary service below one root.
// An operation applies the path rule, looks its node up, reads or writes it through the service,
// and sends the events of what it changed. It reports failures to the log and answers with a
// neutral value. Nothing is thrown but std::bad_alloc and the failure to lock the string pools.
#include "ArrayIndex.h"
#include "ChangeDispatch.h"
#include "MergeReport.h"
#include "PooledString.h"
#include "State.h"
#include "Subscriptions.h"

#include <vorn/PluginUtils.h>
#include <vorn/dictionary/DictionaryUtils.h>
#include <vorn/settings/ISettings.h>

#include <cstring>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

VORN_PLUGIN_GLOBALS("vorn.settings.plugin")

namespace vorn::settings {

namespace {

using dictionary::IDictionary;
using dictionary::Item;
using dictionary::ItemType;
using dictionary::OnUpdateItemFn;
using dictionary::UpdateAction;

//---- constants

constexpr PluginImplDesc kPluginImpl = {"vorn.settings.plugin", "Settings storage", "Vorn",
                                        PluginHotReload::eDisabled, "dev"};

// The file that every message of the store names, the same in every build.
constexpr const char* kSourcePath = "source/plugins/vorn.settings/ISettingsImpl.cpp";

constexpr const char* kRootName = "<ISettings root>";

// Results when there is nothing to return.
constexpr int64_t kIntDefaultValue = 0;
constexpr double kFloatDefaultValue = 0.0;
constexpr bool kBoolDefaultValue = false;
constexpr const char* kStringBufferDefaultValue = nullptr;
constexpr ItemType kInvalidItemType = ItemType::eCount;

//---- path rule and reports

bool isStarted(const char* funcName) {
    if (!g_modifiedSettingsRoot) [[unlikely]] {
        VORN_LOG_FROM(kSourcePath, logging::kLevelError, "%s: the settings store is not started",
                      funcName);
        return false;
    }
    return true;
}

// The path below the root, or null, with an error logged, when the operation must not go on.
const char* getSanitizedPath(const char* path, const char* funcName) {
    if (!path) [[unlikely]] {
        VORN_LOG_FROM(kSourcePath, logging::kLevelError, "%s: nullptr is not a valid path",
                      funcName);
        return nullptr;
    }
    if (!isStarted(funcName)) [[unlikely]] {
        return nullptr;
    }
    if (*path == '/') {
        ++path;
        asm("" : "+r"(path)); // keeps the branch: the service can begin before the byte is there
    }
    return path;
}

Item* findItem(const char* sanitizedPath) {
    return g_idictionary->getItemMutable(g_modifiedSettingsRoot, sanitizedPath);
}

// format takes function and path; childFormat also the child's path, used when there is one.
[[gnu::cold]] void reportTypeMismatch(const char* format,
                                      const char* childFormat,
                                      const char* funcName,
                                      const char* pathToReport,
                                      const char* childPathToReport) {
    if (childPathToReport) {
        VORN_LOG_FROM(kSourcePath, logging::kLevelVerbose, childFormat, funcName, pathToReport,
                      childPathToReport);
    } else {
        VORN_LOG_FROM(kSourcePath, logging::kLevelVerbose, format, funcName, pathToReport);
    }
}

//---- readers of one item, which may be null

int64_t
getAsInt64Internal(const Item* item, const char* pathToReport, const char* childPathToReport) {
    if (item && g_idictionary->isAccessibleAs(ItemType::eInt, item)) {
        return g_idictionary->getAsInt64(item);
    }
    reportTypeMismatch("%s: node type mismatch: integer read from %s",
                       "%s: node type mismatch: integer read from %s/%s", __func__, pathToReport,
                       childPathToReport);
    return kIntDefaultValue;
}

double
getAsFloat64Internal(const Item* item, const char* pathToReport, const char* childPathToReport) {
    if (item && g_idictionary->isAccessibleAs(ItemType::eFloat, item)) {
        return g_idictionary->getAsFloat64(item);
    }
    reportTypeMismatch("%s: node type mismatch: float read from %s",
                       "%s: node type mismatch: float read from %s/%s", __func__, pathToReport,
                       childPathToReport);
    return kFloatDefaultValue;
}

bool getAsBoolInternal(const Item* item, const char* pathToReport, const char* childPathToReport) {
    if (item && g_idictionary->isAccessibleAs(ItemType::eBool, item)) {
        return g_idictionary->getAsBool(item);
    }
    reportTypeMismatch("%s: node type mismatch: boolean read from %s",
                       "%s: node type mismatch: boolean read from %s/%s", __func__, pathToReport,
                       childPathToReport);
    return kBoolDefaultValue;
}

const char*
getStringRawInternal(const Item* item, const char* pathToReport, const char* childPathToReport) {
    if (item && g_idictionary->getItemType(item) == ItemType::eString) {
        return g_idictionary->getStringBuffer(item);
    }
    reportTypeMismatch("%s: node type mismatch: string read from %s",
                       "%s: node type mismatch: string read from %s/%s", __func__, pathToReport,
                       childPathToReport);
    return kStringBufferDefaultValue;
}

//---- what the four scalar types differ in

struct Int64Scalar {
    using Value = int64_t;
    static constexpr Value kDefaultValue = kIntDefaultValue;
    static constexpr ItemType kItemType = ItemType::eInt;
    static constexpr auto kReadInternal = &getAsInt64Internal;
    static constexpr auto kSet = &IDictionary::setInt64;
};

struct Float64Scalar {
    using Value = double;
    static constexpr Value kDefaultValue = kFloatDefaultValue;
    static constexpr ItemType kItemType = ItemType::eFloat;
    static constexpr auto kReadInternal = &getAsFloat64Internal;
    static constexpr auto kSet = &IDictionary::setFloat64;
};

struct BoolScalar {
    using Value = bool;
    static constexpr Value kDefaultValue = kBoolDefaultValue;
    static constexpr ItemType kItemType = ItemType::eBool;
    static constexpr auto kReadInternal = &getAsBoolInternal;
    static constexpr auto kSet = &IDictionary::setBool;
};

struct StringScalar {
    using Value = const char*;
    static constexpr Value kDefaultValue = kStringBufferDefaultValue;
    static constexpr ItemType kItemType = ItemType::eString;
    static constexpr auto kReadInternal = &getStringRawInternal;
    static constexpr auto kSet = &IDictionary::setString;
};

//---- types and scalar reads

ItemType getItemTypeImpl(const char* path) {
    const char* sanitizedPath = getSanitizedPath(path, __func__);
    return sanitizedPath ? g_idictionary->getItemType(findItem(sanitizedPath)) : kInvalidItemType;
}

bool isAccessibleAsImpl(ItemType itemType, const char* path) {
    const char* sanitizedPath = getSanitizedPath(path, __func__);
    return sanitizedPath && g_idictionary->isAccessibleAs(itemType, findItem(sanitizedPath));
}

template <class Scalar>
typename Scalar::Value getScalar(const char* path, const char* funcName) {
    const char* sanitizedPath = getSanitizedPath(path, funcName);
    if (!sanitizedPath) {
        return Scalar::kDefaultValue;
    }
    return Scalar::kReadInternal(findItem(sanitizedPath), path, nullptr);
}

int64_t getAsInt64Impl(const char* path) {
    return getScalar<Int64Scalar>(path, __func__);
}

double getAsFloat64Impl(const char* path) {
    return getScalar<Float64Scalar>(path, __func__);
}

bool getAsBoolImpl(const char* path) {
    return getScalar<BoolScalar>(path, __func__);
}

const char* getStringRawImpl(const char* path) {
    return getScalar<StringScalar>(path, __func__);
}

//---- scalar writes

// Destroys an item that was just created, unless it is kept: what was to be stored in it may not
// find memory.
class NewItem {
public:
    NewItem(Item* parent, const char* path, ItemType itemType)
        : m_item(g_idictionary->createItem(parent, path, itemType)) {}
    ~NewItem() {
        if (m_item) {
            g_idictionary->destroyItem(m_item);
        }
    }
    NewItem(const NewItem&) = delete;
    NewItem& operator=(const NewItem&) = delete;

    // Null when it could not be created.
    Item* get() const {
        return m_item;
    }
    Item* keep() {
        return std::exchange(m_item, nullptr);
    }

private:
    Item* m_item;
};

// Stores the value at path below root, creating the item when there is none, and returns the
// item; null when it could not be created.
template <class Scalar>
Item* storeScalar(Item* root, const char* path, typename Scalar::Value value) {
    if (Item* item = g_idictionary->getItemMutable(root, path)) {
        if (root == g_modifiedSettingsRoot) {
            MergeReport::forgetBelow(item);
        }
        (g_idictionary->*Scalar::kSet)(item, value);
        return item;
    }
    NewItem item(root, path, Scalar::kItemType);
    if (item.get()) {
        (g_idictionary->*Scalar::kSet)(item.get(), value);
    }
    return item.keep();
}

template <class Scalar>
void setScalar(const char* path, typename Scalar::Value value, const char* funcName) {
    const char* sanitizedPath = getSanitizedPath(path, funcName);
    if (!sanitizedPath) {
        return;
    }
    if (const Item* item = storeScalar<Scalar>(g_modifiedSettingsRoot, sanitizedPath, value)) {
        triggerAllChangeCallbacks(item, ChangeEventType::eChanged);
    }
}

void setInt64Impl(const char* path, int64_t value) {
    setScalar<Int64Scalar>(path, value, __func__);
}

void setFloat64Impl(const char* path, double value) {
    setScalar<Float64Scalar>(path, value, __func__);
}

void setBoolImpl(const char* path, bool value) {
    setScalar<BoolScalar>(path, value, __func__);
}

void setStringImpl(const char* path, const char* value) {
    setScalar<StringScalar>(path, value, __func__);
}

//---- elements by index

MflString makeElementPath(const char* arrayPath, size_t index) {
    const IndexText elementName(index);
    const size_t arrayPathLength = std::strlen(arrayPath);
    MflString elementPath;
    elementPath.reserve(arrayPathLength + 1 + elementName.size());
    elementPath.append(arrayPath, arrayPathLength).append(1, '/').append(elementName.c_str());
    return elementPath;
}

template <class Scalar>
typename Scalar::Value getElement(const char* path, size_t index, const char* funcName) {
    const char* sanitizedPath = getSanitizedPath(path, funcName);
    Item* arrayItem = sanitizedPath ? findItem(sanitizedPath) : nullptr;
    if (!arrayItem) {
        return Scalar::kDefaultValue;
    }
    const IndexText elementName(index);
    const Item* childItem = g_idictionary->getItemMutable(arrayItem, elementName.c_str());
    return Scalar::kReadInternal(childItem, path, elementName.c_str());
}

// An element is written as the scalar at its own path.
template <class Scalar>
void setElement(const char* path,
                size_t index,
                typename Scalar::Value value,
                const char* funcName) {
    if (const char* pathWithoutSlash = getSanitizedPath(path, funcName)) {
        const MflString newPath = makeElementPath(pathWithoutSlash, index);
        setScalar<Scalar>(newPath.c_str(), value, funcName);
    }
}

int64_t getAsInt64AtImpl(const char* path, size_t index) {
    return getElement<Int64Scalar>(path, index, __func__);
}

double getAsFloat64AtImpl(const char* path, size_t index) {
    return getElement<Float64Scalar>(path, index, __func__);
}

bool getAsBoolAtImpl(const char* path, size_t index) {
    return getElement<BoolScalar>(path, index, __func__);
}

const char* getStringRawAtImpl(const char* path, size_t index) {
    return getElement<StringScalar>(path, index, __func__);
}

void setInt64AtImpl(const char* path, size_t index, int64_t value) {
    setElement<Int64Scalar>(path, index, value, __func__);
}

void setFloat64AtImpl(const char* path, size_t index, double value) {
    setElement<Float64Scalar>(path, index, value, __func__);
}

void setBoolAtImpl(const char* path, size_t index, bool value) {
    setElement<BoolScalar>(path, index, value, __func__);
}

void setStringAtImpl(const char* path, size_t index, const char* value) {
    setElement<StringScalar>(path, index, value, __func__);
}

//---- array queries

enum class ArrayAnalysisMode : uint32_t {
    eSizeOnly = 0,          // the names of the children form indices without a gap
    eAccessibilityOnly = 1, // and every child is accessible as a type
};

// childItem is null where another thread has made the array shorter meanwhile: no index.
size_t getChildValidIndex(const Item* childItem, bool* isElIdxValid) {
    *isElIdxValid = false;
    if (!childItem) [[unlikely]] {
        return 0;
    }
    return getValidIndex(g_idictionary->getItemName(childItem), isElIdxValid);
}

// The length of the array at path; 0 when the node is missing or fails the test.
size_t analyzeSharedArray(const char* path, ArrayAnalysisMode mode, ItemType itemTypeCast) {
    const char* sanitizedPath = getSanitizedPath(path, __func__);
    const Item* item = sanitizedPath ? findItem(sanitizedPath) : nullptr;
    if (!item || g_idictionary->getItemType(item) != ItemType::eDictionary) {
        return 0;
    }
    IndexCoverage arrayIndices;
    const size_t childCount = g_idictionary->getItemChildCount(item);
    for (size_t chIdx = 0; chIdx < childCount; ++chIdx) {
        const Item* child = g_idictionary->getItemChildByIndex(item, chIdx);
        bool isElIdxValid = false;
        const size_t elIdx = getChildValidIndex(child, &isElIdxValid);
        if (!isElIdxValid) {
            return 0;
        }
        if (mode == ArrayAnalysisMode::eAccessibilityOnly &&
            !g_idictionary->isAccessibleAs(itemTypeCast, child)) {
            return 0;
        }
        arrayIndices.add(elIdx);
    }
    return arrayIndices.getLength();
}

bool isAccessibleAsArrayImpl(const char* path) {
    return analyzeSharedArray(path, ArrayAnalysisMode::eSizeOnly, kInvalidItemType) != 0;
}

bool isAccessibleAsArrayOfImpl(ItemType itemType, const char* path) {
    return analyzeSharedArray(path, ArrayAnalysisMode::eAccessibilityOnly, itemType) != 0;
}

size_t getArrayLengthImpl(const char* path) {
    return analyzeSharedArray(path, ArrayAnalysisMode::eSizeOnly, kInvalidItemType);
}

ItemType getPreferredArrayTypeImpl(const char* path) {
    const char* sanitizedPath = getSanitizedPath(path, __func__);
    const Item* item = sanitizedPath ? findItem(sanitizedPath) : nullptr;
    return item ? g_idictionary->getPreferredArrayType(item) : kInvalidItemType;
}

//---- whole-array reads

// The element's value as T: 32-bit integers keep the low 32 bits, floats are rounded.
template <class T>
T getElementFromItem(const Item* item, const char* pathToReport, const char* childPathToReport) {
    if constexpr (std::is_same_v<T, bool>) {
        return getAsBoolInternal(item, pathToReport, childPathToReport);
    } else if constexpr (std::is_integral_v<T>) {
        return static_cast<T>(getAsInt64Internal(item, pathToReport, childPathToReport));
    } else if constexpr (std::is_floating_point_v<T>) {
        return static_cast<T>(getAsFloat64Internal(item, pathToReport, childPathToReport));
    } else {
        return getStringRawInternal(item, pathToReport, childPathToReport);
    }
}

// Copies the elements that fit, each into the place of its index. item may be null.
template <class T>
void getSharedArray(Item* item, T* arrayOut, size_t arrayBufferLength, const char* pathToReport) {
    if (g_idictionary->getItemType(item) != ItemType::eDictionary) {
        return;
    }
    bool reportedBufferOverflow = false;
    const size_t childCount = g_idictionary->getItemChildCount(item);
    for (size_t chIdx = 0; chIdx < childCount; ++chIdx) {
        const Item* child = g_idictionary->getItemChildByIndex(item, chIdx);
        if (!child) [[unlikely]] {
            break; // another thread has made the array shorter
        }
        const char* name = g_idictionary->getItemName(child);
        bool isElIdxValid = false;
        const size_t elIdx = getValidIndex(name, &isElIdxValid);
        if (!isElIdxValid) {
            continue;
        }
        if (elIdx < arrayBufferLength) {
            arrayOut[elIdx] = getElementFromItem<T>(child, pathToReport, name);
        } else if (!reportedBufferOverflow) {
            reportedBufferOverflow = true;
            VORN_LOG_FROM(kSourcePath, logging::kLevelWarn,
                          "%s: supplied array buffer doesn't fit the requested array", __func__);
        }
    }
}

// missingFormat takes function and path.
template <class T>
void getArray(const char* path,
              T* arrayOut,
              size_t arrayBufferLength,
              const char* funcName,
              const char* missingFormat) {
    const char* sanitizedPath = getSanitizedPath(path, funcName);
    if (!sanitizedPath) {
        return;
    }
    Item* item = findItem(sanitizedPath);
    if (!item) {
        VORN_LOG_FROM(kSourcePath, logging::kLevelVerbose, missingFormat, funcName, path);
    }
    getSharedArray(item, arrayOut, arrayBufferLength, path);
}

void getAsInt64ArrayImpl(const char* path, int64_t* arrayOut, size_t arrayBufferLength) {
    getArray(path, arrayOut, arrayBufferLength, __func__, "%s: integer array read from %s");
}

void getAsInt32ArrayImpl(const char* path, int32_t* arrayOut, size_t arrayBufferLength) {
    getArray(path, arrayOut, arrayBufferLength, __func__, "%s: integer array read from %s");
}

void getAsFloat64ArrayImpl(const char* path, double* arrayOut, size_t arrayBufferLength) {
    getArray(path, arrayOut, arrayBufferLength, __func__, "%s: float array read from %s");
}

void getAsFloat32ArrayImpl(const char* path, float* arrayOut, size_t arrayBufferLength) {
    getArray(path, arrayOut, arrayBufferLength, __func__, "%s: float array read from %s");
}

void getAsBoolArrayImpl(const char* path, bool* arrayOut, size_t arrayBufferLength) {
    getArray(path, arrayOut, arrayBufferLength, __func__, "%s: boolean array read from %s");
}

void getStringRawArrayImpl(const char* path, const char** arrayOut, size_t arrayBufferLength) {
    getArray(path, arrayOut, arrayBufferLength, __func__, "%s: string array read from %s");
}

//---- whole-array writes

// eChanged for the array, then for each element that it has by then.
void triggerArrayChangeCallbacks(const Item* arrayItem) {
    triggerAllChangeCallbacks(arrayItem, ChangeEventType::eChanged);
    if (!isAnyoneSubscribed()) {
        return;
    }
    const size_t childCount = g_idictionary->getItemChildCount(arrayItem);
    for (size_t chIdx = 0; chIdx < childCount; ++chIdx) {
        // A callback may have removed elements.
        if (const Item* child = g_idictionary->getItemChildByIndex(arrayItem, chIdx)) {
            triggerAllChangeCallbacks(child, ChangeEventType::eChanged);
        }
    }
}

template <class T>
using ArraySetter = void (*IDictionary::*)(Item* item, const T* array, size_t arrayLength);

template <class T>
void setArray(const char* path,
              const T* array,
              size_t arrayLength,
              ArraySetter<T> setter,
              const char* funcName) {
    const char* sanitizedPath = getSanitizedPath(path, funcName);
    if (!sanitizedPath) {
        return;
    }
    Item* item = findItem(sanitizedPath);
    if (item) {
        const std::vector<MergeReport::Aside> aside = MergeReport::setAsideBelow(item);
        (g_idictionary->*setter)(item, array, arrayLength);
        MergeReport::putBack(aside);
    } else {
        NewItem newItem(g_modifiedSettingsRoot, sanitizedPath, ItemType::eDictionary);
        if (!newItem.get()) {
            return;
        }
        (g_idictionary->*setter)(newItem.get(), array, arrayLength);
        item = newItem.keep();
    }
    triggerArrayChangeCallbacks(item);
}

void setInt64ArrayImpl(const char* path, const int64_t* array, size_t arrayLength) {
    setArray(path, array, arrayLength, &IDictionary::setInt64Array, __func__);
}

void setInt32ArrayImpl(const char* path, const int32_t* array, size_t arrayLength) {
    setArray(path, array, arrayLength, &IDictionary::setIntArray, __func__);
}

void setFloat64ArrayImpl(const char* path, const double* array, size_t arrayLength) {
    setArray(path, array, arrayLength, &IDictionary::setFloat64Array, __func__);
}

void setFloat32ArrayImpl(const char* path, const float* array, size_t arrayLength) {
    setArray(path, array, arrayLength, &IDictionary::setFloatArray, __func__);
}

void setBoolArrayImpl(const char* path, const bool* array, size_t arrayLength) {
    setArray(path, array, arrayLength, &IDictionary::setBoolArray, __func__);
}

void setStringArrayImpl(const char* path, const char* const* array, size_t arrayLength) {
    setArray(path, array, arrayLength, &IDictionary::setStringArray, __func__);
}

//---- string buffers

// Notes a buffer as handed out. When that fails, the service gets it back.
void registerCreatedBuffer(const char* buffer) {
    try {
        const std::lock_guard lock(g_createdBuffersMutex);
        g_createdBuffers.insert(buffer);
    } catch (...) {
        g_idictionary->destroyStringBuffer(buffer);
        throw;
    }
}

// Whether the buffer was handed out; from now on it is unknown.
bool unregisterCreatedBuffer(const char* buffer) {
    const std::lock_guard lock(g_createdBuffersMutex);
    return g_createdBuffers.erase(buffer) != 0;
}

const char* createBufferAsStringImpl(const char* path) {
    const char* sanitizedPath = getSanitizedPath(path, __func__);
    const Item* item = sanitizedPath ? findItem(sanitizedPath) : nullptr;
    if (!item) {
        return kStringBufferDefaultValue;
    }
    const char* buffer = g_idictionary->createStringBufferFromItemValue(item);
    registerCreatedBuffer(buffer);
    return buffer;
}

const char* createBufferAsStringAtImpl(const char* path, size_t index) {
    const char* sanitizedPath = getSanitizedPath(path, __func__);
    if (!sanitizedPath || !findItem(sanitizedPath)) {
        return kStringBufferDefaultValue;
    }
    return createBufferAsStringImpl(makeElementPath(path, index).c_str());
}

// Unknown before it is released, since the service may hand the address out again at once.
void destroyStringBufferImpl(const char* buffer) {
    if (unregisterCreatedBuffer(buffer)) {
        g_idictionary->destroyStringBuffer(buffer);
    }
}

//---- subscriptions

// Makes a record of the kind that the callback's type says and adds it to those of that kind.
template <class OnChangeEventFn>
SubscriptionId* subscribe(ChangeEventsSubscriptions& subscriptions,
                          const char* path,
                          OnChangeEventFn onChangeEventFn,
                          void* userData,
                          const char* funcName) {
    if (!getSanitizedPath(path, funcName) || !onChangeEventFn) {
        return nullptr;
    }
    void* memory = g_subscriptionIdAlloc.allocate();
    if (!memory) {
        return nullptr;
    }
    auto* subscriptionId = new (memory) SubscriptionId(onChangeEventFn, userData);
    try {
        subscriptions.add(path, subscriptionId);
    } catch (...) {
        g_subscriptionIdAlloc.deallocate(memory);
        throw;
    }
    return subscriptionId;
}

SubscriptionId* subscribeToNodeChangeEventsImpl(const char* path,
                                                OnNodeChangeEventFn onChangeEventFn,
                                                void* userData) {
    return subscribe(g_changeEventsSubscriptions, path, onChangeEventFn, userData, __func__);
}

SubscriptionId* subscribeToTreeChangeEventsImpl(const char* path,
                                                OnTreeChangeEventFn onChangeEventFn,
                                                void* userData) {
    return subscribe(g_treeChangeEventsSubscriptions, path, onChangeEventFn, userData, __func__);
}

// The handle may be stale, so it is looked up before anything looks at the record.
void unsubscribeToChangeEventsImpl(SubscriptionId* subscriptionId) {
    if (g_changeEventsSubscriptions.remove(subscriptionId) ||
        g_treeChangeEventsSubscriptions.remove(subscriptionId)) {
        g_subscriptionIdAlloc.deallocate(subscriptionId);
    }
}

//---- merges

// Stands between the dictionary service and the caller's callback; userData is the report.
UpdateAction onUpdateItemWrapper(const Item* dstItem,
                                 ItemType dstItemType,
                                 const Item* srcItem,
                                 ItemType srcItemType,
                                 void* userData) {
    return static_cast<MergeReport*>(userData)->askAndRecord(dstItem, dstItemType, srcItem,
                                                             srcItemType);
}

void updateImpl(const char* path,
                const Item* srcDictionary,
                const char* srcDictionaryPath,
                OnUpdateItemFn onUpdateItemFn,
                void* userData) {
    const char* pathWithoutSlash = getSanitizedPath(path, __func__);
    if (!pathWithoutSlash) {
        return;
    }
    const Item* srcRoot = g_idictionary->getItem(srcDictionary, srcDictionaryPath);
    MergeReport report(path, srcRoot, onUpdateItemFn, userData);
    g_idictionary->update(g_modifiedSettingsRoot, pathWithoutSlash, srcDictionary,
                          srcDictionaryPath, onUpdateItemWrapper, &report);
    report.send();
}

//---- transactions

Transaction* allocTransaction() {
    void* memory = g_transactionAlloc.allocate();
    return memory ? new (memory) Transaction{nullptr} : nullptr;
}

void freeTransaction(Transaction* transaction) {
    g_transactionAlloc.deallocate(transaction);
}

Transaction* createTransactionImpl() {
    Transaction* transaction = isStarted(__func__) ? allocTransaction() : nullptr;
    if (!transaction) {
        return nullptr;
    }
    transaction->dictionary =
        g_idictionary->createItem(nullptr, "<ISettings transaction>", ItemType::eDictionary);
    if (!transaction->dictionary) {
        freeTransaction(transaction);
        return nullptr;
    }
    return transaction;
}

void destroyTransactionImpl(Transaction* transaction) {
    if (transaction && isStarted(__func__)) {
        g_idictionary->destroyItem(transaction->dictionary);
        freeTransaction(transaction);
    }
}

void commitTransactionImpl(Transaction* transaction) {
    if (transaction && isStarted(__func__)) {
        updateImpl("/", transaction->dictionary, nullptr, dictionary::kUpdateItemOverwriteOriginal,
                   nullptr);
    }
}

// Writes below the transaction's own root; nobody is told.
template <class Scalar>
void setScalarAsync(Transaction* transaction,
                    const char* path,
                    typename Scalar::Value value,
                    const char* funcName) {
    const char* sanitizedPath = getSanitizedPath(path, funcName);
    if (sanitizedPath && transaction) {
        storeScalar<Scalar>(transaction->dictionary, sanitizedPath, value);
    }
}

void setInt64AsyncImpl(Transaction* transaction, const char* path, int64_t value) {
    setScalarAsync<Int64Scalar>(transaction, path, value, __func__);
}

void setFloat64AsyncImpl(Transaction* transaction, const char* path, double value) {
    setScalarAsync<Float64Scalar>(transaction, path, value, __func__);
}

void setBoolAsyncImpl(Transaction* transaction, const char* path, bool value) {
    setScalarAsync<BoolScalar>(transaction, path, value, __func__);
}

void setStringAsyncImpl(Transaction* transaction, const char* path, const char* value) {
    setScalarAsync<StringScalar>(transaction, path, value, __func__);
}

//---- subtrees

int onDestroyedItem(const Item* srcItem, int, void*) {
    triggerAllChangeCallbacks(srcItem, ChangeEventType::eDestroyed);
    return 0;
}

// eDestroyed for the item, unless it is to be skipped, and everything below it, parents first.
void triggerDestroyCallbacks(const Item* item, dictionary::WalkerMode walkerMode) {
    if (isAnyoneSubscribed()) {
        dictionary::walkDictionary(g_idictionary, walkerMode, item, 0, onDestroyedItem, nullptr);
    }
}

void destroyReportedItem(Item* item) {
    MergeReport::forgetSubtree(item);
    g_idictionary->destroyItem(item);
}

// The root itself stays and gets no event.
void destroyChildrenOfRoot() {
    triggerDestroyCallbacks(g_modifiedSettingsRoot, dictionary::WalkerMode::eSkipRoot);
    for (size_t count = g_idictionary->getItemChildCount(g_modifiedSettingsRoot); count > 0;
         --count) {
        const Item* child = g_idictionary->getItemChildByIndex(g_modifiedSettingsRoot, count - 1);
        destroyReportedItem(const_cast<Item*>(child));
    }
}

void destroyItemImpl(const char* path) {
    const char* pathWithoutSlash = getSanitizedPath(path, __func__);
    Item* item = pathWithoutSlash ? findItem(pathWithoutSlash) : nullptr;
    if (!item) {
        return;
    }
    if (item == g_modifiedSettingsRoot) {
        if (g_idictionary->getItemType(item) == ItemType::eDictionary) {
            destroyChildrenOfRoot();
        }
    } else {
        triggerDestroyCallbacks(item, dictionary::WalkerMode::eIncludeRoot);
        destroyReportedItem(item);
    }
}

Item* createDictionaryItem(Item* parent, const char* path) {
    return g_idictionary->createItem(parent, path, ItemType::eDictionary);
}

Item* replaceItem(Item* item, const char* pathWithoutSlash) {
    destroyReportedItem(item);
    return createDictionaryItem(g_modifiedSettingsRoot, pathWithoutSlash);
}

// A write to "/" may have left a value there. The store is never without a root, so a new one that
// cannot be had leaves the old one in place.
Item* replaceRoot() {
    Item* root = createDictionaryItem(nullptr, kRootName);
    if (root) {
        destroyReportedItem(g_modifiedSettingsRoot);
        g_modifiedSettingsRoot = root;
    }
    return root;
}

void setDictionaryImpl(const char* path) {
    const char* pathWithoutSlash = getSanitizedPath(path, __func__);
    if (!pathWithoutSlash) {
        return;
    }
    Item* item = findItem(pathWithoutSlash);
    if (item && g_idictionary->getItemType(item) != ItemType::eDictionary) {
        triggerAllChangeCallbacks(item, ChangeEventType::eDestroyed);
        item = item == g_modifiedSettingsRoot ? replaceRoot() : replaceItem(item, pathWithoutSlash);
    } else if (!item) {
        item = createDictionaryItem(g_modifiedSettingsRoot, pathWithoutSlash);
    }
    if (item) {
        triggerAllChangeCallbacks(item, ChangeEventType::eChanged);
    }
}

const Item* getSettingsDictionaryImpl(const char* path) {
    const char* pathWithoutSlash = getSanitizedPath(path, __func__);
    return pathWithoutSlash ? g_idictionary->getItem(g_modifiedSettingsRoot, pathWithoutSlash)
                            : nullptr;
}

Item* createDictionaryFromSettingsImpl(const char* path) {
    const char* pathWithoutSlash = getSanitizedPath(path, __func__);
    if (!pathWithoutSlash) {
        return nullptr;
    }
    NewItem fullSettingsCopy(nullptr, "<full settings>", ItemType::eDictionary);
    if (fullSettingsCopy.get()) {
        g_idictionary->update(fullSettingsCopy.get(), nullptr, g_modifiedSettingsRoot,
                              pathWithoutSlash, dictionary::kUpdateItemOverwriteOriginal, nullptr);
    }
    return fullSettingsCopy.keep();
}

// Accepts everything, on behalf of merges that are still to report.
UpdateAction onInitializedItem(
    const Item* dstItem, ItemType dstItemType, const Item*, ItemType srcItemType, void*) {
    MergeReport::forgetOverwritten(dstItem, dstItemType, srcItemType);
    return UpdateAction::eOverwrite;
}

void initializeFromDictionaryImpl(const Item* dictionary) {
    if (g_isInitialized) {
        VORN_LOG_FROM(kSourcePath, logging::kLevelError, "%s: already initialized", __func__);
        return;
    }
    if (!dictionary || !isStarted(__func__)) {
        return;
    }
    const OnUpdateItemFn onUpdateItemFn =
        MergeReport::isAnyPending() ? &onInitializedItem : dictionary::kUpdateItemOverwriteOriginal;
    g_idictionary->update(g_modifiedSettingsRoot, nullptr, dictionary, nullptr, onUpdateItemFn,
                          nullptr);
    g_isInitialized = true;
}

//---- table

constexpr ISettings kSettingsTable = {
    .getItemType = getItemTypeImpl,
    .isAccessibleAs = isAccessibleAsImpl,
    .setDictionary = setDictionaryImpl,
    .getAsInt64 = getAsInt64Impl,
    .setInt64 = setInt64Impl,
    .getAsFloat64 = getAsFloat64Impl,
    .setFloat64 = setFloat64Impl,
    .getAsBool = getAsBoolImpl,
    .setBool = setBoolImpl,
    .createStringBufferFromItemValue = createBufferAsStringImpl,
    .getStringBuffer = getStringRawImpl,
    .setString = setStringImpl,
    .isAccessibleAsArray = isAccessibleAsArrayImpl,
    .isAccessibleAsArrayOf = isAccessibleAsArrayOfImpl,
    .getArrayLength = getArrayLengthImpl,
    .getPreferredArrayType = getPreferredArrayTypeImpl,
    .getAsInt64At = getAsInt64AtImpl,
    .setInt64At = setInt64AtImpl,
    .getAsInt64Array = getAsInt64ArrayImpl,
    .setInt64Array = setInt64ArrayImpl,
    .getAsIntArray = getAsInt32ArrayImpl,
    .setIntArray = setInt32ArrayImpl,
    .getAsFloat64At = getAsFloat64AtImpl,
    .setFloat64At = setFloat64AtImpl,
    .getAsFloat64Array = getAsFloat64ArrayImpl,
    .setFloat64Array = setFloat64ArrayImpl,
    .getAsFloatArray = getAsFloat32ArrayImpl,
    .setFloatArray = setFloat32ArrayImpl,
    .getAsBoolAt = getAsBoolAtImpl,
    .setBoolAt = setBoolAtImpl,
    .getAsBoolArray = getAsBoolArrayImpl,
    .setBoolArray = setBoolArrayImpl,
    .createStringBufferFromItemValueAt = createBufferAsStringAtImpl,
    .getStringBufferAt = getStringRawAtImpl,
    .setStringAt = setStringAtImpl,
    .getStringBufferArray = getStringRawArrayImpl,
    .setStringArray = setStringArrayImpl,
    .createTransaction = createTransactionImpl,
    .destroyTransaction = destroyTransactionImpl,
    .commitTransaction = commitTransactionImpl,
    .setInt64Async = setInt64AsyncImpl,
    .setFloat64Async = setFloat64AsyncImpl,
    .setBoolAsync = setBoolAsyncImpl,
    .setStringAsync = setStringAsyncImpl,
    .subscribeToNodeChangeEvents = subscribeToNodeChangeEventsImpl,
    .subscribeToTreeChangeEvents = subscribeToTreeChangeEventsImpl,
    .unsubscribeToChangeEvents = unsubscribeToChangeEventsImpl,
    .update = updateImpl,
    .getSettingsDictionary = getSettingsDictionaryImpl,
    .createDictionaryFromSettings = createDictionaryFromSettingsImpl,
    .destroyItem = destroyItemImpl,
    .destroyStringBuffer = destroyStringBufferImpl,
    .initializeFromDictionary = initializeFromDictionaryImpl,
};

void fillInterface(ISettings& iface) {
    iface = kSettingsTable;
}

//---- start-up and shut-down

// False, with an error logged, when the service cannot be had; a table held before stays.
bool acquireDictionary(const char* funcName) {
    const InterfaceDesc desc = IDictionary::getInterfaceDesc();
    void* table = g_vornFramework->acquireInterfaceWithClient(g_vornClientName, desc, nullptr);
    if (!table) {
        VORN_LOG_FROM(kSourcePath, logging::kLevelError, "%s: cannot acquire %s %u.%u", funcName,
                      desc.name, desc.version.major, desc.version.minor);
        return false;
    }
    g_idictionary = static_cast<IDictionary*>(table);
    return true;
}

void configurePools() {
    using AllocDesc = extras::MultiFreeListAllocator::AllocDesc;
    constexpr size_t kElementsPerBlock = 100;
    AllocDesc allocDescs[] = {{32, 100}, {64, 50}, {128, 20}, {512, 10}};
    g_transactionAlloc.initialize(sizeof(Transaction), 0, kElementsPerBlock);
    g_multiFreeListStringsAlloc.startup(allocDescs, std::size(allocDescs));
    g_subscriptionIdAlloc.initialize(sizeof(SubscriptionId), 0, kElementsPerBlock);
}

// A store that is started already keeps its root, its pools and its subscriptions.
void startUp(const char* funcName) {
    if (!acquireDictionary(funcName) || g_modifiedSettingsRoot) {
        return;
    }
    g_modifiedSettingsRoot = createDictionaryItem(nullptr, kRootName);
    if (!g_modifiedSettingsRoot) {
        VORN_LOG_FROM(kSourcePath, logging::kLevelError, "%s: cannot create the settings root",
                      funcName);
        return;
    }
    configurePools();
}

// The subscriptions go first, before their records do; the root goes last.
void shutDown() {
    g_changeEventsSubscriptions.clear();
    g_treeChangeEventsSubscriptions.clear();
    g_subscriptionIdAlloc.reset();
    g_multiFreeListStringsAlloc.shutdown();
    g_transactionAlloc.reset();
    {
        const std::lock_guard<std::mutex> lock(g_spareUpdatedItemsMutex);
        std::vector<UpdatedItem>().swap(g_spareUpdatedItems);
    }
    if (g_modifiedSettingsRoot) {
        g_idictionary->destroyItem(g_modifiedSettingsRoot);
        g_modifiedSettingsRoot = nullptr;
    }
}

} // namespace

} // namespace vorn::settings

//---- entry points

VORN_EXPORT void vornOnPluginRegister(vorn::Framework* framework,
                                      vorn::PluginRegistryEntry* entry) {
    vorn::onPluginRegister<vorn::settings::ISettings>(framework, entry, vorn::settings::kPluginImpl,
                                                      &vorn::settings::fillInterface);
}

VORN_EXPORT vorn::Version vornGetFrameworkVersion() {
    return vorn::kFrameworkVersion;
}

VORN_EXPORT void vornGetPluginDeps(vorn::InterfaceDesc** deps, size_t* count) {
    vorn::getPluginDepsTyped<vorn::dictionary::IDictionary>(deps, count);
}

VORN_EXPORT void vornOnPluginStartup() {
    vorn::settings::startUp(__func__);
}

VORN_EXPORT void vornOnPluginShutdown() {
    vorn::settings::shutDown();
}
