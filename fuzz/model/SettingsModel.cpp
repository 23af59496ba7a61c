// The slots, each as its comment in the contract says.
#include "SettingsModel.h"

#include "DictionaryModel.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <set>
#include <utility>

namespace vorn::settings {

struct SubscriptionId {
    uint64_t serial = 0; // 0: not in use
    std::string path;
    OnNodeChangeEventFn onNode = nullptr; // of one kind
    OnTreeChangeEventFn onTree = nullptr; // or the other
    void* userData = nullptr;
};

struct Transaction {
    dictionary::Item* tree = nullptr;
};

} // namespace vorn::settings

namespace vorn::fuzz {

using settings::ChangeEventType;
using settings::OnNodeChangeEventFn;
using settings::OnTreeChangeEventFn;

namespace {

constexpr auto kChanged = ChangeEventType::eChanged, kDestroyed = ChangeEventType::eDestroyed;

// Records that are handed out again, the last one given back first.
template <class Record>
class Records {
public:
    Record* take() {
        if (m_free.empty()) {
            return &m_records.emplace_back();
        }
        Record* record = m_free.back();
        m_free.pop_back();
        return record;
    }
    void giveBack(Record* record) {
        m_free.push_back(record);
    }

private:
    std::deque<Record> m_records;
    std::vector<Record*> m_free;
};

Item* newRoot() {
    return kDictionaryModel.createItem(nullptr, "<ISettings root>", ItemType::eDictionary);
}

// From start-up to shut-down.
struct Started {
    Item* root = newRoot();
    Records<SubscriptionId> subscriptionRecords;
    Records<Transaction> transactionRecords;
    std::vector<SubscriptionId*> subscriptions; // newest first
    uint64_t subscriptionCount = 0;             // ever made
};

// As long as the library is loaded.
struct Loaded {
    bool isInitialized = false;
    int32_t logLevel = -1;
    std::vector<std::string> log;
    std::multiset<const char*> buffers;
    std::unique_ptr<Started> started;

    std::vector<const Node*> told;  // the nodes whose callbacks are running
    std::vector<const Node*> dying; // the subtrees that are being told as destroyed
} g;

// ---------------------------------------------------------------------------------------------
// Paths and messages

void report(int32_t level, const std::string& text) {
    if (g.logLevel <= level) {
        g.log.push_back(std::to_string(level) + " " + text);
    }
}

// The path below the root, or nothing when the operation must not go on.
std::optional<std::string> below(const char* path, const char* function) {
    if (!path || !g.started) {
        report(1, function + std::string(path ? ": the settings store is not started"
                                              : ": nullptr is not a valid path"));
        return std::nullopt;
    }
    return path[0] == '/' ? path + 1 : path;
}

Node* root() {
    return toNode(g.started->root);
}

struct Found {
    bool isRefused;
    Node* node; // null when there is none
};
Found find(const char* path, const char* function) {
    const auto rest = below(path, function);
    return {!rest, rest ? root()->find(*rest) : nullptr};
}

// The name of a function of the store, as messages have it.
template <size_t kSize>
struct Name {
    char text[kSize];
    constexpr Name(const char (&name)[kSize]) { // NOLINT: a literal stands for it
        std::copy_n(name, kSize, text);
    }
};

// ---------------------------------------------------------------------------------------------
// Events

// Calls the subscriptions of the path that exist now, newest first, but not those that end before
// it is their turn.
template <class Callback, class... Items>
void call(Callback SubscriptionId::*callback,
          const std::string& path,
          ChangeEventType event,
          Items... items) {
    std::vector<std::pair<SubscriptionId*, uint64_t>> snapshot;
    for (SubscriptionId* id : g.started->subscriptions) {
        if (id->*callback && id->path == path) {
            snapshot.emplace_back(id, id->serial);
        }
    }
    for (const auto& [id, serial] : snapshot) {
        if (id->serial == serial) {
            (id->*callback)(toItem(items)..., event, id->userData);
        }
    }
}

void dispatch(const std::string& path, const Node* node, ChangeEventType event) {
    g.told.push_back(node);
    call(&SubscriptionId::onNode, path, event, node);
    const bool hasTrees =
        std::any_of(g.started->subscriptions.begin(), g.started->subscriptions.end(),
                    [](const SubscriptionId* id) { return id->onTree; });
    std::string around = path;
    const Node* enclosing = node;
    for (size_t slash = around.rfind('/'); hasTrees && slash != around.npos;
         slash = around.rfind('/')) {
        around.resize(slash);
        enclosing = enclosing ? enclosing->parent : nullptr;
        if (slash > 1) {
            call(&SubscriptionId::onTree, around, event, enclosing, node);
        }
    }
    g.told.pop_back();
}

void dispatch(const Node* node, ChangeEventType event) {
    dispatch(node ? node->fullPath() : "", node, event);
}

// Of all nodes from here on, parents first.
void dispatchDestroyed(const Node* node) {
    dispatch(node, kDestroyed);
    const std::vector<std::shared_ptr<Node>> children = node->children;
    for (const auto& child : children) {
        dispatchDestroyed(child.get());
    }
}

// ---------------------------------------------------------------------------------------------
// Reads

struct Reader {
    const char* name;
    const char* noun;
    ItemType type;
};
constexpr Reader kIntReader = {"getAsInt64Internal", "integer", ItemType::eInt};
constexpr Reader kFloatReader = {"getAsFloat64Internal", "float", ItemType::eFloat};
constexpr Reader kBoolReader = {"getAsBoolInternal", "boolean", ItemType::eBool};
constexpr Reader kTextReader = {"getStringRawInternal", "string", ItemType::eString};

const char* lentText(const Value& value) {
    return std::get<std::string>(value).c_str();
}

// The value in the hands of convert, or a message and nothing.
template <auto convert>
auto read(const Reader& reader, const Node* node, const std::string& reportedPath) {
    const bool isText = reader.type == ItemType::eString; // strings are not converted
    if (!node ||
        !(isText ? node->type() == reader.type : isAccessibleAs(reader.type, node->value))) {
        report(-2, std::string(reader.name) + ": node type mismatch: " + reader.noun +
                       " read from " + reportedPath);
        return decltype(convert(Value()))();
    }
    return convert(node->value);
}

template <auto slot, Name function>
ItemType onNode(const char* path) {
    return (kDictionaryModel.*slot)(toItem(find(path, function.text).node));
}

template <auto convert, const Reader& reader, Name function>
auto get(const char* path) {
    const Found found = find(path, function.text);
    return found.isRefused ? decltype(convert(Value()))() : read<convert>(reader, found.node, path);
}

template <auto convert, const Reader& reader, Name function>
auto getAt(const char* path, size_t index) {
    const Node* array = find(path, function.text).node;
    return array
               ? read<convert>(reader, array->element(index), path + ("/" + std::to_string(index)))
               : decltype(convert(Value()))();
}

// The index that a child's name denotes, in any notation of C.
std::optional<size_t> indexOf(const std::string& name) {
    char* end = nullptr;
    const auto index = static_cast<int32_t>(std::strtol(name.c_str(), &end, 0));
    return *end == '\0' && index >= 0 ? std::optional<size_t>(index) : std::nullopt;
}

template <auto convert, const Reader& reader, class T, Name function>
void getArray(const char* path, T* arrayOut, size_t length) {
    const auto [isRefused, array] = find(path, function.text);
    if (!array) {
        if (!isRefused) {
            report(-2,
                   function.text + (": " + std::string(reader.noun)) + " array read from " + path);
        }
        return;
    }
    bool isTooLong = false;
    for (const auto& child : array->children) {
        const std::optional<size_t> index = indexOf(child->name);
        if (index && *index < length) {
            const auto reported = path + ("/" + child->name);
            arrayOut[*index] = static_cast<T>(read<convert>(reader, child.get(), reported));
        } else if (index && !std::exchange(isTooLong, true)) {
            report(0, "getSharedArray: supplied array buffer doesn't fit the requested array");
        }
    }
}

size_t analyze(const char* path, std::optional<ItemType> type) {
    const Node* array = find(path, "analyzeSharedArray").node;
    std::set<size_t> indices;
    for (size_t i = 0; array && i < array->children.size(); ++i) {
        const Node& child = *array->children[i];
        const std::optional<size_t> index = indexOf(child.name);
        if (!index || (type && !isAccessibleAs(*type, child.value))) {
            return 0;
        }
        indices.insert(*index);
    }
    return !indices.empty() && *indices.rbegin() + 1 == indices.size() ? indices.size() : 0;
}

const char* handOut(const char* path, const char* function) {
    const Node* node = find(path, function).node;
    if (!node) {
        return nullptr;
    }
    return *g.buffers.insert(kDictionaryModel.createStringBufferFromItemValue(toItem(node)));
}

// ---------------------------------------------------------------------------------------------
// Writes

template <class T>
Value stored(T value) {
    if constexpr (std::is_same_v<T, const char*>) {
        return std::string(value ? value : "");
    } else {
        return value;
    }
}

// The node that is there, or is made; null where none can be.
Node* makeNode(Node& base, const std::string& path, ItemType type) {
    Node* node = base.find(path);
    return node ? node : base.create(path, type);
}

Node* store(Node& base, const std::string& path, const Value& value) {
    Node* node = makeNode(base, path, static_cast<ItemType>(value.index()));
    if (node) {
        node->set(value);
    }
    return node;
}

template <class T, Name function>
void write(const char* path, T value) {
    const auto rest = below(path, function.text);
    if (const Node* node = rest ? store(*root(), *rest, stored(value)) : nullptr) {
        dispatch(node, kChanged);
    }
}

template <class T, Name function>
void writeAt(const char* path, size_t index, T value) {
    if (const auto rest = below(path, function.text)) {
        write<T, function>((*rest + "/" + std::to_string(index)).c_str(), value);
    }
}

template <class T, Name function>
void writeAsync(Transaction* transaction, const char* path, T value) {
    const auto rest = below(path, function.text);
    if (rest && transaction) {
        store(*toNode(transaction->tree), *rest, stored(value));
    }
}

template <auto slot, class T, Name function>
void writeArray(const char* path, const T* array, size_t length) {
    const auto rest = below(path, function.text);
    Node* node = rest ? makeNode(*root(), *rest, ItemType::eDictionary) : nullptr;
    if (!node) {
        return;
    }
    (kDictionaryModel.*slot)(toItem(node), array, length);
    dispatch(node, kChanged);
    const size_t count = node->children.size();
    for (size_t index = 0; index < count; ++index) {
        if (index < node->children.size()) { // callbacks may remove elements
            dispatch(node->children[index].get(), kChanged);
        }
    }
}

void mergeInto(const char* path,
               const Item* src,
               const char* srcPath,
               dictionary::OnUpdateItemFn onUpdateItemFn,
               void* userData) {
    const auto rest = below(path, "updateImpl");
    Node* source = rest && src ? toNode(src)->find(srcPath ? srcPath : "") : nullptr;
    if (!source) {
        return;
    }
    struct Accepted {
        std::string createdPath; // empty: there was a node
        std::weak_ptr<Node> node;
    };
    std::vector<Accepted> accepted;
    std::string prefix = rest->empty() ? "" : "/" + *rest;
    while (prefix.ends_with('/')) {
        prefix.pop_back();
    }
    merge(*root(), *rest, *source, [&](Node* dst, const Node& item) {
        const ItemType dstType = dst ? dst->type() : ItemType::eCount;
        if (onUpdateItemFn && onUpdateItemFn(toItem(dst), dstType, toItem(&item), item.type(),
                                             userData) != UpdateAction::eOverwrite) {
            return false;
        }
        if (dst) {
            accepted.push_back({"", dst->weak_from_this()});
            return true;
        }
        const std::string relative = item.parent ? item.fullPath() : "";
        const std::string created = prefix + relative;
        accepted.push_back({created.empty() ? "/" : created, {}});
        return true;
    });
    for (const Accepted& entry : accepted) {
        if (!entry.createdPath.empty()) {
            dispatch(entry.createdPath, root()->find(entry.createdPath.substr(1)), kChanged);
        } else if (const std::shared_ptr<Node> node = entry.node.lock()) {
            dispatch(node.get(), kChanged);
        }
    }
}

void setDictionary(const char* path) {
    const auto rest = below(path, "setDictionaryImpl");
    if (!rest) {
        return;
    }
    Node* node = root()->find(*rest);
    if (node && !node->isDictionary()) {
        g.dying.push_back(node);
        dispatch(node, kDestroyed);
        g.dying.pop_back();
        if (node == root()) {
            kDictionaryModel.destroyItem(g.started->root);
            g.started->root = newRoot();
        } else {
            node->detach();
        }
    }
    if (Node* made = root()->create(*rest, ItemType::eDictionary)) {
        dispatch(made, kChanged);
    }
}

void destroyItem(const char* path) {
    Node* node = find(path, "destroyItemImpl").node;
    if (!node) {
        return;
    }
    const bool isRoot = node == root(); // of which only the children go
    const auto children = node->children;
    g.dying.push_back(node);
    if (isRoot) {
        for (const auto& child : children) {
            dispatchDestroyed(child.get());
        }
    } else {
        dispatchDestroyed(node);
    }
    g.dying.pop_back();
    isRoot ? node->children.clear() : node->detach();
}

void initialize(const Item* dictionary) {
    if (g.isInitialized) {
        report(1, "initializeFromDictionaryImpl: already initialized");
    } else if (dictionary && below("", "initializeFromDictionaryImpl")) {
        merge(*root(), "", *toNode(dictionary), [](const Node*, const Node&) { return true; });
        g.isInitialized = true;
    }
}

// ---------------------------------------------------------------------------------------------
// Subscriptions

template <auto member, Name function, class Callback>
SubscriptionId* subscribe(const char* path, Callback callback, void* userData) {
    if (!below(path, function.text) || !callback) {
        return nullptr;
    }
    SubscriptionId* id = g.started->subscriptionRecords.take();
    *id = {++g.started->subscriptionCount, path, nullptr, nullptr, userData};
    id->*member = callback;
    auto& all = g.started->subscriptions;
    return *all.insert(all.begin(), id);
}

void unsubscribe(SubscriptionId* id) {
    if (g.started && std::erase(g.started->subscriptions, id) > 0) {
        id->serial = 0;
        g.started->subscriptionRecords.giveBack(id);
    }
}

} // namespace

// ---------------------------------------------------------------------------------------------
// The table. Messages name the functions of the store.

const ISettings kSettingsModel = {
    .getItemType = onNode<&IDictionary::getItemType, "getItemTypeImpl">,
    .isAccessibleAs =
        [](ItemType type, const char* path) {
            const Node* node = find(path, "isAccessibleAsImpl").node;
            return node && isAccessibleAs(type, node->value);
        },
    .setDictionary = setDictionary,
    .getAsInt64 = get<toInt64, kIntReader, "getAsInt64Impl">,
    .setInt64 = write<int64_t, "setInt64Impl">,
    .getAsFloat64 = get<toFloat64, kFloatReader, "getAsFloat64Impl">,
    .setFloat64 = write<double, "setFloat64Impl">,
    .getAsBool = get<toBool, kBoolReader, "getAsBoolImpl">,
    .setBool = write<bool, "setBoolImpl">,
    .createStringBufferFromItemValue =
        [](const char* path) { return handOut(path, "createBufferAsStringImpl"); },
    .getStringBuffer = get<lentText, kTextReader, "getStringRawImpl">,
    .setString = write<const char*, "setStringImpl">,
    .isAccessibleAsArray = [](const char* path) { return analyze(path, {}) > 0; },
    .isAccessibleAsArrayOf = [](ItemType type,
                                const char* path) { return analyze(path, type) > 0; },
    .getArrayLength = [](const char* path) { return analyze(path, {}); },
    .getPreferredArrayType =
        onNode<&IDictionary::getPreferredArrayType, "getPreferredArrayTypeImpl">,
    .getAsInt64At = getAt<toInt64, kIntReader, "getAsInt64AtImpl">,
    .setInt64At = writeAt<int64_t, "setInt64AtImpl">,
    .getAsInt64Array = getArray<toInt64, kIntReader, int64_t, "getAsInt64ArrayImpl">,
    .setInt64Array = writeArray<&IDictionary::setInt64Array, int64_t, "setInt64ArrayImpl">,
    .getAsIntArray = getArray<toInt64, kIntReader, int32_t, "getAsInt32ArrayImpl">,
    .setIntArray = writeArray<&IDictionary::setIntArray, int32_t, "setInt32ArrayImpl">,
    .getAsFloat64At = getAt<toFloat64, kFloatReader, "getAsFloat64AtImpl">,
    .setFloat64At = writeAt<double, "setFloat64AtImpl">,
    .getAsFloat64Array = getArray<toFloat64, kFloatReader, double, "getAsFloat64ArrayImpl">,
    .setFloat64Array = writeArray<&IDictionary::setFloat64Array, double, "setFloat64ArrayImpl">,
    .getAsFloatArray = getArray<toFloat64, kFloatReader, float, "getAsFloat32ArrayImpl">,
    .setFloatArray = writeArray<&IDictionary::setFloatArray, float, "setFloat32ArrayImpl">,
    .getAsBoolAt = getAt<toBool, kBoolReader, "getAsBoolAtImpl">,
    .setBoolAt = writeAt<bool, "setBoolAtImpl">,
    .getAsBoolArray = getArray<toBool, kBoolReader, bool, "getAsBoolArrayImpl">,
    .setBoolArray = writeArray<&IDictionary::setBoolArray, bool, "setBoolArrayImpl">,
    .createStringBufferFromItemValueAt = [](const char* path, size_t index) -> const char* {
        return find(path, "createBufferAsStringAtImpl").node
                   ? handOut((path + ("/" + std::to_string(index))).c_str(), "")
                   : nullptr;
    },
    .getStringBufferAt = getAt<lentText, kTextReader, "getStringRawAtImpl">,
    .setStringAt = writeAt<const char*, "setStringAtImpl">,
    .getStringBufferArray = getArray<lentText, kTextReader, const char*, "getStringRawArrayImpl">,
    .setStringArray = writeArray<&IDictionary::setStringArray, const char*, "setStringArrayImpl">,
    .createTransaction = []() -> Transaction* {
        if (!below("", "createTransactionImpl")) {
            return nullptr;
        }
        Transaction* transaction = g.started->transactionRecords.take();
        transaction->tree =
            kDictionaryModel.createItem(nullptr, "<ISettings transaction>", ItemType::eDictionary);
        return transaction;
    },
    .destroyTransaction =
        [](Transaction* transaction) {
            if (transaction) {
                kDictionaryModel.destroyItem(transaction->tree);
                g.started->transactionRecords.giveBack(transaction);
            }
        },
    .commitTransaction =
        [](Transaction* transaction) {
            if (transaction) {
                mergeInto("/", transaction->tree, nullptr, nullptr, nullptr);
            }
        },
    .setInt64Async = writeAsync<int64_t, "setInt64AsyncImpl">,
    .setFloat64Async = writeAsync<double, "setFloat64AsyncImpl">,
    .setBoolAsync = writeAsync<bool, "setBoolAsyncImpl">,
    .setStringAsync = writeAsync<const char*, "setStringAsyncImpl">,
    .subscribeToNodeChangeEvents =
        subscribe<&SubscriptionId::onNode, "subscribeToNodeChangeEventsImpl">,
    .subscribeToTreeChangeEvents =
        subscribe<&SubscriptionId::onTree, "subscribeToTreeChangeEventsImpl">,
    .unsubscribeToChangeEvents = unsubscribe,
    .update = mergeInto,
    .getSettingsDictionary = [](const char* path) -> const Item* {
        return toItem(find(path, "getSettingsDictionaryImpl").node);
    },
    .createDictionaryFromSettings = [](const char* path) -> Item* {
        const auto rest = below(path, "createDictionaryFromSettingsImpl");
        if (!rest) {
            return nullptr;
        }
        Item* copy = kDictionaryModel.createItem(nullptr, "<full settings>", ItemType::eDictionary);
        kDictionaryModel.update(copy, nullptr, g.started->root, rest->c_str(), nullptr, nullptr);
        return copy;
    },
    .destroyItem = destroyItem,
    .destroyStringBuffer =
        [](const char* buffer) {
            if (const auto found = g.buffers.find(buffer); found != g.buffers.end()) {
                kDictionaryModel.destroyStringBuffer(buffer);
                g.buffers.erase(found);
            }
        },
    .initializeFromDictionary = initialize,
};

// ---------------------------------------------------------------------------------------------
// Life

void loadSettingsModel() {
    g = {};
}

void startSettingsModel() {
    if (!g.started) {
        g.started = std::make_unique<Started>();
    }
}

void stopSettingsModel() {
    if (g.started) {
        kDictionaryModel.destroyItem(g.started->root);
        g.started.reset();
    }
}

Node* settingsModelRoot() {
    return g.started ? root() : nullptr;
}

void setModelLogLevel(int32_t level) {
    g.logLevel = level;
}

std::vector<std::string> takeModelLog() {
    return std::exchange(g.log, {});
}

// ---------------------------------------------------------------------------------------------
// What callbacks may do

namespace {

bool isToldBelow(const Node& node) {
    return std::any_of(g.told.begin(), g.told.end(),
                       [&](const Node* told) { return told && node.isAround(*told); });
}

bool isTold(const Node& node) {
    return std::find(g.told.begin(), g.told.end(), &node) != g.told.end();
}

bool isDying(const Node& node) {
    return std::any_of(g.dying.begin(), g.dying.end(),
                       [&](const Node* dying) { return dying == &node || dying->isAround(node); });
}

// The node, or the nearest around it that there is.
Node& nearest(const std::string& path) {
    std::string part = path;
    while (!root()->find(part)) {
        part.resize(part.find('/') == part.npos ? 0 : part.rfind('/'));
    }
    return *root()->find(part);
}

bool mayLoseChildren(const Node& node) {
    return node.children.empty() || (!isToldBelow(node) && !isDying(node));
}

bool mayMerge(const Node& dst, const Node& src) {
    if (!src.isDictionary()) {
        return mayLoseChildren(dst);
    }
    return std::all_of(src.children.begin(), src.children.end(), [&dst](const auto& item) {
        const Node* place = dst.child(item->name);
        return place ? mayMerge(*place, *item) : !isDying(dst);
    });
}

// The rule for the node of a path; where there is none, one would be made.
template <class Rule>
bool forNode(const char* path, Rule rule) {
    if (!path || !g.started || g.told.empty()) {
        return true;
    }
    const std::string rest = path[0] == '/' ? path + 1 : path;
    Node& node = nearest(rest);
    return root()->find(rest) ? rule(node) : !isDying(node);
}

} // namespace

namespace allows {

bool scalarWrite(const char* path) {
    return forNode(path, mayLoseChildren);
}

bool elementWrite(const char* path, size_t index) {
    const std::string rest = path ? (path[0] == '/' ? path + 1 : path) : "";
    return !path || scalarWrite((rest + "/" + std::to_string(index)).c_str());
}

bool arrayWrite(const char* path, size_t length) {
    return forNode(path, [length](const Node& array) {
        const auto isKept = [&](const Node* told) {
            return !told || !array.isAround(*told) ||
                   (told->parent == &array &&
                    std::to_string(std::atoi(told->name.c_str())) == told->name &&
                    static_cast<size_t>(std::atoi(told->name.c_str())) < length);
        };
        return !isDying(array) && std::all_of(g.told.begin(), g.told.end(), isKept);
    });
}

bool setDictionary(const char* path) {
    return forNode(path, [](const Node& node) {
        return node.isDictionary() || (!isTold(node) && !isDying(node));
    });
}

bool destroyItem(const char* path) {
    return forNode(path, [](const Node& node) {
        return !isToldBelow(node) && !isDying(node) && (!isTold(node) || !node.parent);
    });
}

bool merge(const char* path, const Item* src, const char* srcPath, size_t limit) {
    const Node* source = src ? toNode(src)->find(srcPath ? srcPath : "") : nullptr;
    if (!source || !path || !g.started) {
        return true;
    }
    return root()->count() + source->count() < limit &&
           forNode(path, [source](const Node& node) { return mayMerge(node, *source); });
}

bool commit(const Transaction* transaction, size_t limit) {
    return !transaction || merge("/", transaction->tree, nullptr, limit);
}

} // namespace allows

} // namespace vorn::fuzz
