// Any sequence of calls of the settings table, with subscribers that call it again, against the
// model of it: results, events in their order, messages, and the whole tree.
#include "Plugins.h"
#include "Sides.h"
#include "model/SettingsModel.h"

#include <map>
#include <set>
#include <tuple>
#include <utility>

namespace vorn::fuzz {
namespace {

using settings::ChangeEventType;

constexpr size_t kMaxDepth = 4; // of calls in callbacks
constexpr size_t kMaxSubscriptions = 64;
constexpr size_t kSlots = 3; // for each kind of thing that the caller owns

// The life of one side's store.
struct Life {
    const ISettings& settings;
    const IDictionary& idict;
    void (*start)();
    void (*stop)();
    void (*setLogLevel)(int32_t level);
    std::vector<std::string> (*takeLog)();
};

class SettingsSide : public Side {
public:
    SettingsSide(const Life& life, std::string_view input, const Side* model, Decisions& decisions)
        : Side(life.idict, input, model, decisions), m_life(life), m_settings(life.settings) {}

    void start() {
        m_life.start();
        m_isStarted = true;
        m_life.setLogLevel(m_draw.isOneIn(16) ? static_cast<int32_t>(m_draw.pick(5)) - 2 : -2);
        finishStep();
    }
    void step() {
        _operate();
        _showLog();
        finishStep();
    }
    // Gives everything back and ends the store; the number of transactions that were left open.
    size_t finish();

    // -- kinds of calls

    // Any slot that takes and gives values; the first text that it takes is a path.
    template <class R, class... Args, class Rule = std::nullptr_t>
    void call(const char* name, R (*slot)(Args...), Rule rule = nullptr) {
        bool isPathTaken = false;
        const std::tuple<Args...> args{_argument<Args>(isPathTaken)...};
        if constexpr (!std::is_same_v<Rule, std::nullptr_t>) {
            if (!isAllowed([&] { return std::apply(rule, args); })) {
                return;
            }
        }
        std::apply([&](auto... values) { showCall(name, _named(values)...); }, args);
        if constexpr (std::is_void_v<R>) {
            std::apply(slot, args);
        } else {
            _showResult(_named(std::apply(slot, args)));
        }
    }

    template <class T>
    void callForArray(const char* name, void (*slot)(const char*, T*, size_t)) {
        readArray(name, _path(), slot);
    }

    template <class T>
    void callWithArray(const char* name, void (*slot)(const char*, const T*, size_t)) {
        std::remove_const_t<T> elements[kMaxLength];
        const char* path = _path();
        const size_t length = m_draw.pick(kMaxLength);
        for (size_t index = 0; index < length; ++index) {
            elements[index] = m_draw.value<T>();
        }
        if (isAllowed([&] { return allows::arrayWrite(path, length); })) {
            showCall(name, path, length);
            showArray(elements, length);
            slot(path, length > 0 ? elements : nullptr, length);
        }
    }

    // Elements under names of all kinds, in any order; do they make an array?
    void writeElements() {
        constexpr const char* kNames[] = {"0", "1", "2", "01", "00", "0x1", "+1", "08", "3", "3a"};
        const char* path = _path();
        for (size_t count = m_draw.pick(6); path && count > 0; --count) {
            const char* element = m_draw.keep(path + ("/" + std::string(m_draw.pickFrom(kNames))));
            const auto value = m_draw.value<int64_t>();
            if (isAllowed([&] { return allows::scalarWrite(element); })) {
                showCall("setInt64", element, value);
                m_settings.setInt64(element, value);
            }
        }
        showCall("getArrayLength", path);
        _showResult(m_settings.getArrayLength(path));
    }

    // -- what the caller owns

    // A text handed out replaces one that is given back, twice.
    template <class... Args>
    void callForBuffer(const char* name, const char* (*slot)(const char*, Args...)) {
        const char*& buffer = m_buffers[m_draw.pick(kSlots)];
        _giveBack(buffer);
        const std::tuple<const char*, Args...> args{_path(), m_draw.value<Args>()...};
        std::apply([&](auto... values) { showCall(name, values...); }, args);
        buffer = std::apply(slot, args);
        _showResult(buffer);
    }
    void destroyForeignBuffer() {
        const char* path = _path();
        showCall("destroyStringBuffer of getStringBuffer", path);
        const char* text = m_settings.getStringBuffer(path);
        m_settings.destroyStringBuffer(text);
        _showResult(text); // still there
    }
    void makeSource() {
        Item*& source = m_sources[m_draw.pick(kSlots)];
        showCall("make a source");
        m_idict.destroyItem(source);
        source = m_idict.createItem(nullptr, "<source>", ItemType::eDictionary);
        for (size_t count = m_draw.pick(6); count > 0; --count) {
            const char* path = m_draw.dictionaryPath();
            const auto type = m_draw.value<ItemType>();
            Item* item = m_idict.createItem(source, path, type);
            if (type == ItemType::eInt) {
                m_idict.setInt64(item, m_draw.value<int64_t>());
            } else if (type == ItemType::eString) {
                m_idict.setString(item, m_draw.value<const char*>());
            }
            m_transcript.line("  ", describe(item), " ", type);
        }
    }
    void createDictionaryFromSettings() {
        Item*& source = m_sources[m_draw.pick(kSlots)];
        const char* path = m_draw.isOneIn(3) ? "/" : _path();
        showCall("createDictionaryFromSettings", path);
        m_idict.destroyItem(source);
        source = m_settings.createDictionaryFromSettings(path);
        _showTree(source);
    }
    void createTransaction() {
        Transaction*& transaction = m_transactions[m_draw.pick(kSlots)];
        showCall("destroyTransaction, createTransaction", _number(transaction));
        m_settings.destroyTransaction(transaction);
        transaction = m_settings.createTransaction();
        _showResult(_number(transaction));
    }
    void commitTransaction() {
        Transaction* transaction = m_transactions[m_draw.pick(kSlots)];
        if (isAllowed([&] { return allows::commit(transaction, kMaxTreeSize); })) {
            showCall("commitTransaction", _number(transaction));
            m_settings.commitTransaction(transaction);
        }
    }

    // -- merges

    void update() {
        const char* path = m_draw.isOneIn(3) ? "/" : _path();
        const Item* src = _source();
        const char* srcPath = m_draw.pick(2) == 0 ? nullptr : m_draw.dictionaryPath();
        const bool isAsking = m_draw.pick(4) != 0;
        if (!isAllowed([&] { return allows::merge(path, src, srcPath, kMaxTreeSize); })) {
            return;
        }
        const auto onItem = [](const Item* dstItem, ItemType dstType, const Item* srcItem,
                               ItemType srcType, void* side) {
            return static_cast<SettingsSide*>(side)->_asked(dstItem, dstType, srcItem, srcType);
        };
        showCall("update", path, src, srcPath, isAsking);
        m_settings.update(path, src, srcPath, isAsking ? +onItem : nullptr, this);
    }
    void initializeFromDictionary() {
        const Item* source = _source();
        if (isAllowed([&] { return allows::merge("/", source, nullptr, kMaxTreeSize); })) {
            showCall("initializeFromDictionary", source);
            m_settings.initializeFromDictionary(source);
        }
    }

    // -- subscriptions

    void subscribe() {
        const bool isTree = m_draw.pick(2) == 1;
        const char* path = _path();
        const bool isWithout = m_draw.isOneIn(32);
        constexpr size_t kCounts[] = {1, 1, 1, 1, 2, 3, 5, 17};
        for (size_t count = m_draw.pickFrom(kCounts); count > 0; --count) {
            _subscribe(isTree, path, isWithout);
        }
    }
    // Once to every node that is there.
    void subscribeToAll() {
        if (m_isStarted) {
            _subscribeBelow(m_settings.getSettingsDictionary(""), "");
        }
    }
    // Also handles that were ended before: their records may have other users by now.
    void unsubscribe() {
        constexpr size_t kCounts[] = {1, 1, 2, 8};
        for (size_t count = m_draw.pickFrom(kCounts); count > 0; --count) {
            SubscriptionId* id = m_subscriptions.empty()
                                     ? nullptr
                                     : m_subscriptions[m_draw.pick(m_subscriptions.size())];
            showCall("unsubscribeToChangeEvents", _number(id));
            m_settings.unsubscribeToChangeEvents(id);
            if (m_subscriptions.size() == kMaxSubscriptions) {
                std::erase(m_subscriptions, id);
            }
        }
    }

    // -- life

    // A start without a stop before it keeps what there is.
    void startAgain() {
        if (m_depth == 0) {
            showCall("start");
            m_life.start();
            m_isStarted = true;
        }
    }
    void stop() {
        if (m_depth > 0) {
            return;
        }
        showCall("stop");
        m_life.stop();
        if (std::exchange(m_isStarted, false)) {
            m_leftOpen += kSlots - std::count(m_transactions, m_transactions + kSlots, nullptr);
            std::fill(m_transactions, m_transactions + kSlots, nullptr);
            m_subscriptions.clear();
            m_numbers.clear();
        }
        if (m_draw.pick(4) != 0) {
            startAgain();
        }
    }
    void showAll() {
        if (m_isStarted) {
            showCall("getSettingsDictionary", "");
            _showTree(m_settings.getSettingsDictionary(""));
        }
    }

private:
    struct Subscriber {
        SettingsSide* side;
        size_t number;

        void
        hear(const char* kind, const Item* subtree, const Item* changed, ChangeEventType event) {
            side->_heard(*this, kind, subtree, changed, event);
        }
    };

    void _operate();

    template <class T>
    T _argument(bool& isPathTaken) {
        if constexpr (std::is_same_v<T, Transaction*>) {
            return m_transactions[m_draw.pick(kSlots)];
        } else if constexpr (std::is_same_v<T, const char*>) {
            return std::exchange(isPathTaken, true) ? m_draw.value<T>() : _path();
        } else {
            return m_draw.value<T>();
        }
    }

    void _subscribe(bool isTree, const char* path, bool isWithoutCallback) {
        if (m_subscriptions.size() == kMaxSubscriptions) {
            return;
        }
        const auto onNode = [](const Item* changed, ChangeEventType event, void* userData) {
            static_cast<Subscriber*>(userData)->hear("node", nullptr, changed, event);
        };
        const auto onTree = [](const Item* subtree, const Item* changed, ChangeEventType event,
                               void* userData) {
            static_cast<Subscriber*>(userData)->hear("tree", subtree, changed, event);
        };
        showCall(isTree ? "subscribeToTreeChangeEvents" : "subscribeToNodeChangeEvents", path,
                 isWithoutCallback, m_subscribers.size());
        void* userData = &m_subscribers.emplace_back(Subscriber{this, m_subscribers.size()});
        m_subscriptions.push_back(isTree
                                      ? m_settings.subscribeToTreeChangeEvents(
                                            path, isWithoutCallback ? nullptr : +onTree, userData)
                                      : m_settings.subscribeToNodeChangeEvents(
                                            path, isWithoutCallback ? nullptr : +onNode, userData));
        _showResult(_number(m_subscriptions.back()));
    }
    void _subscribeBelow(const Item* item, const std::string& path) {
        for (size_t index = 0; index < m_idict.getItemChildCount(item); ++index) {
            const Item* child = m_idict.getItemChildByIndex(item, index);
            const std::string childPath = path + "/" + m_idict.getItemName(child);
            _subscribe(false, childPath.c_str(), false);
            _subscribeBelow(child, childPath);
        }
    }

    // Any path, or that of a node that is there; in callbacks mostly the latter.
    const char* _path() {
        const size_t choice = m_draw.pick(8);
        if (choice < (m_depth == 0 ? 5 : 2)) {
            return m_draw.settingsPath();
        }
        std::string path;
        const Item* item = m_isStarted ? m_settings.getSettingsDictionary("") : nullptr;
        for (size_t depth = 1 + choice % 3; depth > 0; --depth) {
            const size_t count = m_idict.getItemChildCount(item);
            if (count == 0) {
                break;
            }
            item = m_idict.getItemChildByIndex(item, m_draw.pick(count));
            path += std::string("/") + m_idict.getItemName(item);
        }
        return m_draw.keep(path);
    }

    // A tree of the caller's, or a live one.
    const Item* _source() {
        const size_t choice = m_draw.pick(8);
        return choice < 6 ? m_sources[choice % kSlots] : m_settings.getSettingsDictionary(_path());
    }

    // Records by the order in which they were first seen.
    std::string _number(const void* record) {
        return record
                   ? "#" + std::to_string(m_numbers.emplace(record, m_numbers.size()).first->second)
                   : "null";
    }
    std::string _named(Transaction* transaction) {
        return _number(transaction);
    }
    std::string _named(SubscriptionId* id) {
        return _number(id);
    }
    template <class T>
    T _named(T value) {
        return value;
    }
    template <class T>
    void _showResult(const T& result) {
        _showLog();
        m_transcript.line("  = ", shown(result));
    }
    void _showLog() {
        for (const std::string& message : m_life.takeLog()) {
            m_transcript.line("  log ", message);
        }
    }
    void _showTree(const Item* item) {
        _showLog();
        const char* text = m_idict.createStringBufferFromItemValue(item);
        m_transcript.line("  ", describe(item), " ", m_idict.getItemType(item), " ", text);
        m_idict.destroyStringBuffer(text);
        for (size_t index = 0; index < m_idict.getItemChildCount(item); ++index) {
            _showTree(m_idict.getItemChildByIndex(item, index));
        }
    }
    void _giveBack(const char*& buffer) {
        m_transcript.line("  given back ", buffer);
        m_settings.destroyStringBuffer(buffer);
        m_settings.destroyStringBuffer(buffer);
        buffer = nullptr;
    }

    void _heard(const Subscriber& subscriber,
                const char* kind,
                const Item* subtree,
                const Item* changed,
                ChangeEventType event) {
        _showLog();
        m_transcript.line("  event for ", subscriber.number, " ", kind, " ", describe(subtree),
                          event == ChangeEventType::eChanged ? " changed " : " destroyed ",
                          describe(changed), " ", m_idict.getItemType(changed));
        constexpr size_t kCounts[] = {0, 0, 0, 0, 0, 1, 1, 2};
        for (size_t count = m_depth < kMaxDepth ? m_draw.pickFrom(kCounts) : 0; count > 0;
             --count) {
            ++m_depth;
            _operate();
            --m_depth;
        }
        _showLog();
        m_transcript.line("  heard by ", subscriber.number);
    }

    UpdateAction _asked(const Item* dst, ItemType dstType, const Item* src, ItemType srcType) {
        if (m_draw.isOneIn(12)) {
            constexpr void (SettingsSide::*kActions[])() = {&SettingsSide::subscribe,
                                                            &SettingsSide::subscribeToAll,
                                                            &SettingsSide::unsubscribe};
            ++m_depth;
            (this->*m_draw.pickFrom(kActions))();
            --m_depth;
        }
        return answer(dst, dstType, src, srcType);
    }

    const Life& m_life;
    const ISettings& m_settings;
    bool m_isStarted = false;
    size_t m_depth = 0;
    size_t m_leftOpen = 0;
    std::deque<Subscriber> m_subscribers;
    std::vector<SubscriptionId*> m_subscriptions; // ended ones too
    Transaction* m_transactions[kSlots] = {};
    Item* m_sources[kSlots] = {};
    const char* m_buffers[kSlots] = {};
    std::map<const void*, size_t> m_numbers;
};

using Operation = void (*)(SettingsSide& side, const ISettings& settings);

#define KIND(kind, slot, ...)                                                                      \
    [](SettingsSide& side, const ISettings& settings) {                                            \
        side.kind(#slot, settings.slot __VA_OPT__(, ) __VA_ARGS__);                                \
    }
#define CALL(slot) KIND(call, slot)
#define SPECIAL(slot) [](SettingsSide& side, const ISettings&) { side.slot(); }
#define WRITE(slot)                                                                                \
    KIND(call, slot, [](const char* path, auto) { return allows::scalarWrite(path); })
#define WRITE_AT(slot)                                                                             \
    KIND(call, slot,                                                                               \
         [](const char* path, size_t index, auto) { return allows::elementWrite(path, index); })

// All slots between them; some changes stand more than once, so that there is somebody to hear.
constexpr Operation kChanges[] = {
    SPECIAL(subscribe),
    SPECIAL(subscribe),
    SPECIAL(subscribe),
    SPECIAL(subscribe),
    SPECIAL(subscribeToAll),
    SPECIAL(subscribeToAll),
    SPECIAL(unsubscribe),
    SPECIAL(unsubscribe),
    WRITE(setInt64),
    WRITE(setInt64),
    WRITE(setFloat64),
    WRITE(setBool),
    WRITE(setString),
    WRITE(setString),
    SPECIAL(writeElements),
    WRITE_AT(setInt64At),
    WRITE_AT(setFloat64At),
    WRITE_AT(setBoolAt),
    WRITE_AT(setStringAt),
    KIND(callWithArray, setInt64Array),
    KIND(callWithArray, setIntArray),
    KIND(callWithArray, setFloat64Array),
    KIND(callWithArray, setFloatArray),
    KIND(callWithArray, setBoolArray),
    KIND(callWithArray, setStringArray),
    KIND(call, setDictionary, allows::setDictionary),
    KIND(call, setDictionary, allows::setDictionary),
    KIND(call, destroyItem, allows::destroyItem),
    KIND(call, destroyItem, allows::destroyItem),
    SPECIAL(makeSource),
    SPECIAL(makeSource),
    SPECIAL(createDictionaryFromSettings),
    SPECIAL(update),
    SPECIAL(update),
    SPECIAL(update),
    SPECIAL(initializeFromDictionary),
    SPECIAL(createTransaction),
    SPECIAL(commitTransaction),
    SPECIAL(commitTransaction),
    CALL(setInt64Async),
    CALL(setFloat64Async),
    CALL(setBoolAsync),
    CALL(setStringAsync),
    SPECIAL(stop),
    SPECIAL(startAgain),
};
constexpr Operation kReads[] = {
    SPECIAL(showAll),
    CALL(getItemType),
    CALL(isAccessibleAs),
    CALL(getAsInt64),
    CALL(getAsFloat64),
    CALL(getAsBool),
    CALL(getStringBuffer),
    KIND(callForBuffer, createStringBufferFromItemValue),
    KIND(callForBuffer, createStringBufferFromItemValueAt),
    SPECIAL(destroyForeignBuffer),
    CALL(isAccessibleAsArray),
    CALL(isAccessibleAsArrayOf),
    CALL(getArrayLength),
    CALL(getPreferredArrayType),
    CALL(getAsInt64At),
    CALL(getAsFloat64At),
    CALL(getAsBoolAt),
    CALL(getStringBufferAt),
    KIND(callForArray, getAsInt64Array),
    KIND(callForArray, getAsIntArray),
    KIND(callForArray, getAsFloat64Array),
    KIND(callForArray, getAsFloatArray),
    KIND(callForArray, getAsBoolArray),
    KIND(callForArray, getStringBufferArray),
    CALL(getSettingsDictionary),
};

void SettingsSide::_operate() {
    (m_draw.pick(3) > 0 ? m_draw.pickFrom(kChanges) : m_draw.pickFrom(kReads))(*this, m_settings);
}

size_t SettingsSide::finish() {
    for (const char*& buffer : m_buffers) {
        _giveBack(buffer);
    }
    stop();
    m_life.stop();
    for (Item* source : m_sources) {
        m_idict.destroyItem(source);
    }
    finishStep();
    return m_leftOpen;
}

// ---------------------------------------------------------------------------------------------
// The tested side

foreign::Plugin g_dictionaryPlugin, g_settingsPlugin;

// The dictionary service, which is watched for trees that nobody destroys.
IDictionary g_watched;
const IDictionary* g_idict;
std::set<const Item*> g_liveRoots;

void watch() {
    g_idict = &loadTable<IDictionary>(g_dictionaryPlugin, "dictionary");
    g_watched = *g_idict;
    g_watched.createItem = [](Item* parent, const char* path, ItemType type) {
        Item* item = g_idict->createItem(parent, path, type);
        if (item && !parent) {
            g_liveRoots.insert(item);
        }
        return item;
    };
    g_watched.destroyItem = [](Item* item) {
        g_liveRoots.erase(item);
        g_idict->destroyItem(item);
    };
    foreign::g_host.dictionary = reinterpret_cast<const foreign::IDictionary*>(&g_watched);
}

const Life kModelLife = {kSettingsModel,    kDictionaryModel, startSettingsModel,
                         stopSettingsModel, setModelLogLevel, takeModelLog};

Life loadTested() {
    if (!g_idict) {
        watch();
    }
    loadSettingsModel();
    return {loadTable<ISettings>(g_settingsPlugin, "settings"),
            g_watched,
            [] { g_settingsPlugin.startup(); },
            [] { g_settingsPlugin.shutdown(); },
            [](int32_t level) { foreign::g_host.sources.at(foreign::kSettingsName)(level); },
            [] { return std::exchange(foreign::g_host.log, {}); }};
}

void run(const Life& tested, std::string_view input) {
    g_dictionaryPlugin.startup();
    Decisions decisions;
    SettingsSide model(kModelLife, input, nullptr, decisions);
    SettingsSide real(tested, input, &model, decisions);
    model.start();
    real.start();
    for (size_t count = 1; model.isAnyLeft(); ++count) {
        model.step();
        real.step();
        Node* root = settingsModelRoot();
        if (root && (count % 4 == 0 || !model.isAnyLeft())) {
            real.compareTrees(*root, tested.settings.getSettingsDictionary("/"));
        }
    }
    const size_t leftOpen = model.finish();
    if (real.finish(); g_liveRoots.size() != leftOpen) {
        diverge("the store left " + std::to_string(g_liveRoots.size()) + " trees behind, not " +
                std::to_string(leftOpen));
    }
    g_liveRoots.clear();
    g_dictionaryPlugin.shutdown();
    clearDictionaryModel();
    foreign::g_host.calls.clear();
}

} // namespace
} // namespace vorn::fuzz

#ifdef VORN_FUZZ_ENGINE
// The engine counts coverage in the loaded library, so that stays. Its one initialisation is over
// before the first input: all inputs are to begin alike.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace vorn::fuzz;
    static const Life tested = [] {
        const Life loaded = loadTested();
        g_dictionaryPlugin.startup();
        for (const Life* life : {&kModelLife, &loaded}) {
            life->start();
            Item* empty = life->idict.createItem(nullptr, "<empty>", ItemType::eDictionary);
            life->settings.initializeFromDictionary(empty);
            life->idict.destroyItem(empty);
            life->stop();
        }
        g_dictionaryPlugin.shutdown();
        return loaded;
    }();
    run(tested, {reinterpret_cast<const char*>(data), size});
    return 0;
}
#else
// Every input begins with the library loaded afresh.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace vorn::fuzz;
    const Life tested = loadTested();
    run(tested, {reinterpret_cast<const char*>(data), size});
    g_settingsPlugin.unload();
    return 0;
}
#endif
