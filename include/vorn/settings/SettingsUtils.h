// The settings table for C++ callers: typed reads and writes, guards that give back what they
// hold, subscriptions that take any callable, and merges that report their changes as one batch.
//
//     vorn::settings::Settings settings(host.acquire<vorn::settings::ISettings>());
//     settings.set("/app/view/width", 1280);
//     const int width = settings.get("/app/view/width", 800);
//     const auto watch = settings.onChange<int>(
//         "/app/view/width", [](std::optional<int> before, std::optional<int> now) { ... });
//
// Holds for everything here:
//
//  - A Settings object is two pointers and no state; copies are the same settings. The tables must
//    stay good as long as it and everything made through it: guards go before the host goes.
//  - Paths and texts are const char*, std::string or std::string_view. The first two go straight
//    through; a view is copied, because the table wants a zero at the end. Text ends at its first
//    zero. A null path is refused by the table as everywhere, and the result is empty.
//  - Numbers that do not fit saturate: an unsigned 64-bit value above the signed range is stored
//    as its end, 300 reads as 255 in a uint8_t, -1 as 0.
//  - Callables are copied or moved to the heap and live as long as their subscription. They run
//    on the writing thread, on several at once when several write. One may end its own
//    subscription, or any other, while it runs. What a callable throws goes through the store to
//    whoever made the write, and the subscribers still waiting are not called.
//
// The thread tags are those of ISettings.h. What is made here is freed here: a guard must not
// outlive the library whose code made it.
#pragma once

#include "../dictionary/IDictionary.h"
#include "ISettings.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace vorn::settings {

// A text argument, zero-terminated for the length of the call. Only a view is copied, to the heap
// when it is long; for the others nothing of this is left after inlining.
class TextArg {
public:
    // Of a text that ends with a zero, as it is.
    TextArg(const char* text) : m_text(text) {}
    TextArg(const std::string& text) : m_text(text.c_str()) {}
    // Of a view, copied.
    TextArg(std::string_view text)
        : m_heap(text.size() < sizeof(m_inline) ? nullptr : new char[text.size() + 1]) {
        char* copy = m_heap ? m_heap : m_inline;
        copy[text.copy(copy, text.size())] = '\0';
        m_text = copy;
    }
    ~TextArg() {
        delete[] m_heap;
    }
    TextArg(const TextArg&) = delete;
    TextArg& operator=(const TextArg&) = delete;

    // The text, or the null pointer it was made of.
    const char* c_str() const {
        return m_text;
    }

private:
    const char* m_text;
    char* m_heap = nullptr;
    char m_inline[48];
};

// One event of a batch. The path is that of the changed node; when the node is gone before its
// event is told, that of the subscription.
struct Change {
    std::string path;     // begins with "/"
    ChangeEventType type; // written or about to go
};
using ChangeBatch = std::vector<Change>; // in the order of the events

// A table together with something it handed out and wants back through the slot kRelease.
// Move-only; the base of the guards below.
template <class Table, class Pointer, void (*Table::*kRelease)(Pointer)>
class TableGuard {
public:
    // Nothing to give back; something of that table; what another guard had.
    TableGuard() = default;
    TableGuard(const Table* table, Pointer pointer) : m_table(table), m_pointer(pointer) {}
    TableGuard(TableGuard&& other) noexcept
        : m_table(other.m_table), m_pointer(std::exchange(other.m_pointer, nullptr)) {}
    TableGuard& operator=(TableGuard&& other) noexcept {
        if (this != &other) {
            reset();
            m_table = other.m_table;
            m_pointer = std::exchange(other.m_pointer, nullptr);
        }
        return *this;
    }
    ~TableGuard() {
        reset();
    }

    // Whether there is something to give back.
    explicit operator bool() const {
        return m_pointer != nullptr;
    }
    // What there is, or null.
    Pointer get() const {
        return m_pointer;
    }

    // Gives it back now.
    void reset() {
        if (m_pointer) {
            (m_table->*kRelease)(std::exchange(m_pointer, nullptr));
        }
    }

    // The caller gives it back.
    [[nodiscard]] Pointer release() {
        return std::exchange(m_pointer, nullptr);
    }

protected:
    const Table* m_table = nullptr; // that made it
    Pointer m_pointer = nullptr;    // to give back, or null
};

// A text that the store made; given back at the end of the scope.
class [[nodiscard]] StringBuffer
    : public TableGuard<ISettings, const char*, &ISettings::destroyStringBuffer> {
public:
    // Made as every guard.
    using TableGuard::TableGuard;

    // The text, empty when there is none. Good as long as the guard.
    std::string_view view() const {
        return m_pointer ? std::string_view(m_pointer) : std::string_view();
    }
};

// A free-standing dictionary of the caller's; destroyed at the end of the scope.
using DictionaryGuard =
    TableGuard<dictionary::IDictionary, dictionary::Item*, &dictionary::IDictionary::destroyItem>;

class BatchScope;

namespace detail {

struct Tables {
    const ISettings* settings;
    const dictionary::IDictionary* dictionary;
};

// -- kinds of values

template <class T>
constexpr bool kIsCharacter = std::is_same_v<T, char> || std::is_same_v<T, wchar_t> ||
                              std::is_same_v<T, char16_t> || std::is_same_v<T, char32_t>
#ifdef __cpp_char8_t
                              || std::is_same_v<T, char8_t>
#endif
    ;

template <class T>
constexpr bool kIsInteger =
    std::is_integral_v<T> && !std::is_same_v<T, bool> && !kIsCharacter<T> && sizeof(T) <= 8;

template <class T>
struct IsVector : std::false_type {};
template <class T>
struct IsVector<std::vector<T>> : std::true_type {};

// The item type that a value of type T is read as.
template <class T>
constexpr dictionary::ItemType itemTypeOf() {
    if constexpr (std::is_same_v<T, bool>) {
        return dictionary::ItemType::eBool;
    } else if constexpr (kIsInteger<T>) {
        return dictionary::ItemType::eInt;
    } else if constexpr (std::is_floating_point_v<T>) {
        return dictionary::ItemType::eFloat;
    } else {
        static_assert(std::is_same_v<T, std::string>,
                      "readable are bool, integers, floats, std::string and vectors of these");
        return dictionary::ItemType::eString;
    }
}

// -- conversion to and from what the table takes

template <class T>
int64_t toInt64(T value) {
    if constexpr (std::is_unsigned_v<T> && sizeof(T) == 8) {
        constexpr T kMax = static_cast<T>(std::numeric_limits<int64_t>::max());
        return static_cast<int64_t>(value > kMax ? kMax : value);
    } else {
        return value;
    }
}

template <class T>
T fromInt64(int64_t value) {
    if constexpr (std::is_unsigned_v<T> && sizeof(T) == 8) {
        return value < 0 ? 0 : static_cast<T>(value);
    } else {
        // NOLINTNEXTLINE(bugprone-signed-char-misuse): a number, never a character
        constexpr int64_t kMin = std::numeric_limits<T>::min();
        constexpr int64_t kMax = std::numeric_limits<T>::max();
        return static_cast<T>(value < kMin ? kMin : (value > kMax ? kMax : value));
    }
}

// Finite values out of range become the largest finite value of their sign.
template <class T>
double toDouble(T value) {
    if constexpr (sizeof(T) > sizeof(double)) {
        constexpr T kMax = std::numeric_limits<double>::max();
        constexpr T kInfinity = std::numeric_limits<T>::infinity();
        if (value > kMax && value < kInfinity) {
            return std::numeric_limits<double>::max();
        }
        if (value < -kMax && value > -kInfinity) {
            return std::numeric_limits<double>::lowest();
        }
    }
    return static_cast<double>(value);
}

template <class T>
T fromDouble(double value) {
    if constexpr (std::is_same_v<T, float>) {
        return saturateToFloat(value);
    } else {
        return value;
    }
}

// The value as one of the four types that the table stores.
template <class T>
auto toStored(const T& value) {
    if constexpr (std::is_same_v<T, bool>) {
        return value;
    } else if constexpr (kIsInteger<T>) {
        return toInt64(value);
    } else if constexpr (std::is_floating_point_v<T>) {
        return toDouble(value);
    } else {
        static_assert(std::is_convertible_v<const T&, TextArg>,
                      "storable are bool, integers, floats, texts and, outside transactions, "
                      "vectors of these");
        return TextArg(value);
    }
}

inline void write(const ISettings* settings, const char* path, bool value) {
    settings->setBool(path, value);
}
inline void write(const ISettings* settings, const char* path, int64_t value) {
    settings->setInt64(path, value);
}
inline void write(const ISettings* settings, const char* path, double value) {
    settings->setFloat64(path, value);
}
inline void write(const ISettings* settings, const char* path, const TextArg& value) {
    settings->setString(path, value.c_str());
}

inline void write(const ISettings* settings, Transaction* to, const char* path, bool value) {
    settings->setBoolAsync(to, path, value);
}
inline void write(const ISettings* settings, Transaction* to, const char* path, int64_t value) {
    settings->setInt64Async(to, path, value);
}
inline void write(const ISettings* settings, Transaction* to, const char* path, double value) {
    settings->setFloat64Async(to, path, value);
}
inline void
write(const ISettings* settings, Transaction* to, const char* path, const TextArg& value) {
    settings->setStringAsync(to, path, value.c_str());
}

template <class T>
void writeArray(const ISettings* settings, const char* path, const std::vector<T>& values) {
    const size_t count = values.size();
    if constexpr (std::is_same_v<T, bool>) {
        const auto copy = std::make_unique<bool[]>(count);
        std::copy(values.begin(), values.end(), copy.get());
        settings->setBoolArray(path, copy.get(), count);
    } else if constexpr (std::is_same_v<T, int64_t>) {
        settings->setInt64Array(path, values.data(), count);
    } else if constexpr (std::is_same_v<T, int32_t>) {
        settings->setIntArray(path, values.data(), count);
    } else if constexpr (std::is_same_v<T, double>) {
        settings->setFloat64Array(path, values.data(), count);
    } else if constexpr (std::is_same_v<T, float>) {
        settings->setFloatArray(path, values.data(), count);
    } else if constexpr (std::is_same_v<T, const char*>) {
        settings->setStringArray(path, values.data(), count);
    } else if constexpr (std::is_same_v<T, std::string>) {
        std::vector<const char*> texts;
        texts.reserve(count);
        for (const std::string& value : values) {
            texts.push_back(value.c_str());
        }
        settings->setStringArray(path, texts.data(), count);
    } else if constexpr (std::is_same_v<T, std::string_view>) {
        writeArray(settings, path, std::vector<std::string>(values.begin(), values.end()));
    } else {
        std::vector<decltype(toStored(values[0]))> stored;
        stored.reserve(count);
        for (const T& value : values) {
            stored.push_back(toStored(value));
        }
        writeArray(settings, path, stored);
    }
}

// -- reads

template <class T>
std::optional<T> readValue(const ISettings* settings, const char* path) {
    constexpr dictionary::ItemType kType = itemTypeOf<T>();
    if constexpr (kType == dictionary::ItemType::eString) {
        const StringBuffer text(settings, settings->createStringBufferFromItemValue(path));
        return text ? std::optional<T>(text.view()) : std::nullopt;
    } else {
        T value;
        if constexpr (kType == dictionary::ItemType::eBool) {
            value = settings->getAsBool(path);
        } else if constexpr (kType == dictionary::ItemType::eInt) {
            value = fromInt64<T>(settings->getAsInt64(path));
        } else {
            value = fromDouble<T>(settings->getAsFloat64(path));
        }
        // Any other value than the neutral one was there; only that one leaves the question.
        const bool isThere = value != T() || (path && settings->isAccessibleAs(kType, path));
        return isThere ? std::optional<T>(value) : std::nullopt;
    }
}

// Whether the node is a dictionary without children, which is what an empty array is stored as.
inline bool isEmptyArray(const Tables& tables, const char* path) {
    if (!path || !tables.dictionary) {
        return false;
    }
    const dictionary::Item* item = tables.settings->getSettingsDictionary(path);
    return tables.dictionary->getItemType(item) == dictionary::ItemType::eDictionary &&
           tables.dictionary->getItemChildCount(item) == 0;
}

template <class T>
std::optional<std::vector<T>> readArray(const Tables& tables, const char* path) {
    const ISettings* settings = tables.settings;
    if (!settings->isAccessibleAsArrayOf(itemTypeOf<T>(), path)) {
        return isEmptyArray(tables, path) ? std::optional<std::vector<T>>(std::in_place)
                                          : std::nullopt;
    }
    const size_t count = settings->getArrayLength(path);
    std::vector<T> values(count);
    if constexpr (std::is_same_v<T, bool>) {
        const auto read = std::make_unique<bool[]>(count);
        settings->getAsBoolArray(path, read.get(), count);
        std::copy_n(read.get(), count, values.begin());
    } else if constexpr (std::is_same_v<T, int64_t>) {
        settings->getAsInt64Array(path, values.data(), count);
    } else if constexpr (std::is_same_v<T, double>) {
        settings->getAsFloat64Array(path, values.data(), count);
    } else if constexpr (std::is_same_v<T, std::string>) {
        for (size_t index = 0; index < count; ++index) {
            const StringBuffer text(settings,
                                    settings->createStringBufferFromItemValueAt(path, index));
            values[index] = text.view();
        }
    } else if constexpr (kIsInteger<T>) { // the table's 32-bit read does not saturate
        std::vector<int64_t> read(count);
        settings->getAsInt64Array(path, read.data(), count);
        std::transform(read.begin(), read.end(), values.begin(), fromInt64<T>);
    } else {
        std::vector<double> read(count);
        settings->getAsFloat64Array(path, read.data(), count);
        std::transform(read.begin(), read.end(), values.begin(), fromDouble<T>);
    }
    return values;
}

template <class T>
std::optional<T> read(const Tables& tables, const char* path) {
    if constexpr (IsVector<T>::value) {
        return readArray<typename T::value_type>(tables, path);
    } else {
        return readValue<T>(tables.settings, path);
    }
}

// Equal, or both not a number.
template <class T>
bool isSame(const T& left, const T& right) {
    if constexpr (IsVector<T>::value) {
        return left.size() == right.size() &&
               std::equal(left.begin(), left.end(), right.begin(), isSame<typename T::value_type>);
    } else if constexpr (std::is_floating_point_v<T>) {
        return left == right || (left != left && right != right);
    } else {
        return left == right;
    }
}

// The full path of an item of the settings tree, "/" for its root.
inline std::string fullPathOf(const dictionary::IDictionary* dictionary,
                              const dictionary::Item* item) {
    size_t length = 0;
    for (const dictionary::Item* at = item; dictionary->getItemParent(at);
         at = dictionary->getItemParent(at)) {
        length += 1 + std::strlen(dictionary->getItemName(at));
    }
    std::string path(length > 0 ? length : 1, '/');
    while (length > 0) {
        const std::string_view name = dictionary->getItemName(item);
        length -= name.size();
        name.copy(&path[length], name.size());
        --length;
        item = dictionary->getItemParent(item);
    }
    return path;
}

// -- records of subscriptions

// What a subscription keeps on the heap. Held by its guard, by every call that is running and by
// every batch that waits to be told; the last of them deletes it.
class SubscriptionRecord {
public:
    explicit SubscriptionRecord(const ISettings* settings) : m_settings(settings) {}
    virtual ~SubscriptionRecord() = default;
    SubscriptionRecord(const SubscriptionRecord&) = delete;
    SubscriptionRecord& operator=(const SubscriptionRecord&) = delete;

    void hold() {
        m_holders.fetch_add(1, std::memory_order_relaxed);
    }
    void letGo() {
        if (m_holders.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            delete this;
        }
    }

    // Called once, by the guard.
    void end() {
        m_hasEnded = true;
        for (SubscriptionId* subscription : {m_node, m_tree}) {
            if (subscription) {
                m_settings->unsubscribeToChangeEvents(subscription);
            }
        }
        letGo();
    }
    bool hasEnded() const {
        return m_hasEnded;
    }

    // What the table gave for it, null where there is none.
    SubscriptionId* m_node = nullptr;
    SubscriptionId* m_tree = nullptr;

private:
    const ISettings* m_settings;
    std::atomic<uint32_t> m_holders{1};
    bool m_hasEnded = false;
};

struct LetGo {
    void operator()(SubscriptionRecord* record) const {
        record->letGo();
    }
};
using HeldRecord = std::unique_ptr<SubscriptionRecord, LetGo>;

inline HeldRecord held(SubscriptionRecord* record) {
    record->hold();
    return HeldRecord(record);
}

template <class Record>
void onNodeEvent(const dictionary::Item* changed, ChangeEventType type, void* userData) {
    Record* record = static_cast<Record*>(userData);
    const HeldRecord hold = held(record);
    record->onNodeEvent(changed, type);
}

template <class Record>
void onTreeEvent(const dictionary::Item* subtree,
                 const dictionary::Item* changed,
                 ChangeEventType type,
                 void* userData) {
    Record* record = static_cast<Record*>(userData);
    const HeldRecord hold = held(record);
    record->onTreeEvent(subtree, changed, type);
}

// Passes the events of one node on.
template <class Callable>
class NodeRecord final : public SubscriptionRecord {
public:
    static constexpr bool kIsNode = true;
    static constexpr bool kIsTree = false;

    template <class From>
    NodeRecord(const Tables& tables, From&& callable)
        : SubscriptionRecord(tables.settings), m_callable(std::forward<From>(callable)) {}

    void onNodeEvent(const dictionary::Item* changed, ChangeEventType type) {
        m_callable(changed, type);
    }

private:
    Callable m_callable;
};

// Passes the events below one node on.
template <class Callable>
class TreeRecord final : public SubscriptionRecord {
public:
    static constexpr bool kIsNode = false;
    static constexpr bool kIsTree = true;

    template <class From>
    TreeRecord(const Tables& tables, From&& callable)
        : SubscriptionRecord(tables.settings), m_callable(std::forward<From>(callable)) {}

    void onTreeEvent(const dictionary::Item* subtree,
                     const dictionary::Item* changed,
                     ChangeEventType type) {
        m_callable(subtree, changed, type);
    }

private:
    Callable m_callable;
};

// Remembers the value last told and passes on what differs from it.
template <class T, class Callable>
class ValueRecord final : public SubscriptionRecord {
public:
    static constexpr bool kIsNode = true;
    static constexpr bool kIsTree = IsVector<T>::value; // element writes are events below the node

    template <class From>
    ValueRecord(const Tables& tables, const char* path, From&& callable)
        : SubscriptionRecord(tables.settings), m_tables(tables), m_path(path),
          m_callable(std::forward<From>(callable)), m_told(read<T>(tables, path)) {}

    void onNodeEvent(const dictionary::Item*, ChangeEventType type) {
        const bool isDestroyed = type == ChangeEventType::eDestroyed;
        _tell([&] {
            m_isBeingDestroyed = isDestroyed;
            return isDestroyed ? std::nullopt : read<T>(m_tables, m_path.c_str());
        });
    }

    void
    onTreeEvent(const dictionary::Item*, const dictionary::Item* changed, ChangeEventType type) {
        _tell([&] {
            if (type == ChangeEventType::eChanged) {
                m_isBeingDestroyed = false;
                return read<T>(m_tables, m_path.c_str());
            }
            return m_isBeingDestroyed ? m_told : _readWithout(changed);
        });
    }

private:
    // The lock spans reading and remembering, so that of two writing threads the later value
    // stays; never the callable.
    template <class ReadNow>
    void _tell(ReadNow readNow) {
        std::unique_lock<std::mutex> lock(m_mutex);
        std::optional<T> now = readNow();
        if (now.has_value() == m_told.has_value() && (!now || isSame(*now, *m_told))) {
            return;
        }
        std::optional<T> before = std::exchange(m_told, now);
        lock.unlock();
        m_callable(std::move(before), std::move(now));
    }

    // The array as it will be when that element, which is still there, is gone.
    std::optional<T> _readWithout(const dictionary::Item* element) const {
        std::optional<T> values = read<T>(m_tables, m_path.c_str());
        if (!values || values->empty()) {
            return values;
        }
        const auto isAt = [&](size_t index) {
            const std::string path = m_path + '/' + std::to_string(index);
            return m_tables.settings->getSettingsDictionary(path.c_str()) == element;
        };
        const size_t last = values->size() - 1;
        if (isAt(last)) {
            values->pop_back();
            return last == 0 && !m_tables.dictionary ? std::nullopt : values;
        }
        for (size_t index = 0; index < last; ++index) {
            if (isAt(index)) {
                return std::nullopt; // a gap: no array any more
            }
        }
        return values;
    }

    const Tables m_tables;
    const std::string m_path;
    Callable m_callable;

    std::mutex m_mutex; // protects what follows
    std::optional<T> m_told;
    bool m_isBeingDestroyed = false; // the events of the elements are part of the node's own
};

// Collects the events of a subtree while a BatchScope is open on the thread.
class BatchRecord : public SubscriptionRecord {
public:
    static constexpr bool kIsNode = true;
    static constexpr bool kIsTree = true;

    BatchRecord(const Tables& tables, const char* path)
        : SubscriptionRecord(tables.settings), m_dictionary(tables.dictionary), m_path(path) {}

    virtual void tell(const ChangeBatch& changes) = 0;

    void onNodeEvent(const dictionary::Item*, ChangeEventType type) {
        _collect({m_path, type});
    }
    void
    onTreeEvent(const dictionary::Item*, const dictionary::Item* changed, ChangeEventType type) {
        _collect({changed ? fullPathOf(m_dictionary, changed) : m_path, type});
    }

private:
    inline void _collect(Change&& change);

    const dictionary::IDictionary* m_dictionary;
    const std::string m_path;
};

template <class Callable>
class BatchCallableRecord final : public BatchRecord {
public:
    template <class From>
    BatchCallableRecord(const Tables& tables, const char* path, From&& callable)
        : BatchRecord(tables, path), m_callable(std::forward<From>(callable)) {}

    void tell(const ChangeBatch& changes) override {
        m_callable(changes);
    }

private:
    Callable m_callable;
};

} // namespace detail

// While it lives, batch subscribers get what this thread changes as one batch, told when it ends;
// scopes inside a scope join it. Merges, commits, whole-array writes and removals through this
// facade open one by themselves. A batch callable that throws ends the process. A scope is known to
// the library that opened it: subscribers made by other libraries get batches of one.
class [[nodiscard]] BatchScope {
public:
    BatchScope() : m_isOutermost(_current() == nullptr) {
        if (m_isOutermost) {
            _current() = this;
        }
    }
    ~BatchScope() {
        if (!m_isOutermost) {
            return;
        }
        _current() = nullptr; // what the callables write is told by itself
        for (Waiting& waiting : m_waiting) {
            if (!waiting.record->hasEnded()) {
                static_cast<detail::BatchRecord*>(waiting.record.get())->tell(waiting.changes);
            }
        }
    }
    BatchScope(const BatchScope&) = delete;
    BatchScope& operator=(const BatchScope&) = delete;

private:
    friend class detail::BatchRecord;

    struct Waiting {
        detail::HeldRecord record;
        ChangeBatch changes;
    };

    // The scope that is open on this thread, or null.
    static BatchScope*& _current() {
        static thread_local BatchScope* s_current = nullptr;
        return s_current;
    }

    void _add(detail::BatchRecord* record, Change&& change) {
        for (Waiting& waiting : m_waiting) {
            if (waiting.record.get() == record) {
                waiting.changes.push_back(std::move(change));
                return;
            }
        }
        m_waiting.push_back({detail::held(record), {}});
        m_waiting.back().changes.push_back(std::move(change));
    }

    const bool m_isOutermost;
    std::vector<Waiting> m_waiting;
};

inline void detail::BatchRecord::_collect(Change&& change) {
    if (BatchScope* scope = BatchScope::_current()) {
        scope->_add(this, std::move(change));
    } else {
        tell({std::move(change)});
    }
}

// A subscription; ends with the guard. Empty when the table gave none.
class [[nodiscard]] Subscription {
public:
    // None; one of the facade's records; what another guard had.
    Subscription() = default;
    explicit Subscription(detail::SubscriptionRecord* record) : m_record(record) {}
    Subscription(Subscription&& other) noexcept
        : m_record(std::exchange(other.m_record, nullptr)) {}
    Subscription& operator=(Subscription&& other) noexcept {
        if (this != &other) {
            reset();
            m_record = std::exchange(other.m_record, nullptr);
        }
        return *this;
    }
    ~Subscription() {
        reset();
    }

    // Whether there is one.
    explicit operator bool() const {
        return m_record != nullptr;
    }

    // Ends it now. The callable is not called again, and is freed when no call of it runs.
    // [subscribes]
    void reset() {
        if (m_record) {
            std::exchange(m_record, nullptr)->end();
        }
    }

private:
    detail::SubscriptionRecord* m_record = nullptr;
};

// Names for what onNodeChange and onTreeChange give.
using NodeSubscription = Subscription;
using TreeSubscription = Subscription;

// A transaction; destroyed, with what was not committed, at the end of the scope. Writes through an
// empty one are ignored.
class [[nodiscard]] TransactionGuard
    : public TableGuard<ISettings, Transaction*, &ISettings::destroyTransaction> {
public:
    // Made as every guard.
    using TableGuard::TableGuard;

    // Notes a single value. [transacts]
    template <class T>
    void set(const TextArg& path, const T& value) {
        if (m_pointer) {
            detail::write(m_table, m_pointer, path.c_str(), detail::toStored(value));
        }
    }

    // Applies everything noted so far, as one batch. The values stay: a second commit applies
    // them again. [transacts, writes]
    void commit() {
        if (m_pointer) {
            BatchScope scope;
            m_table->commitTransaction(m_pointer);
        }
    }
};

// The settings of a table, typed. What holds for all of it is said at the top of SettingsUtils.h.
class Settings {
public:
    // The dictionary table is needed for paths of items, batches, copies, and to tell an empty
    // array from a missing one. REQUIRES: settings is not null.
    explicit Settings(const ISettings* settings,
                      const dictionary::IDictionary* dictionary = nullptr)
        : m_tables{settings, dictionary} {}

    // The tables themselves. dictionary() may be null.
    const ISettings* operator->() const {
        return m_tables.settings;
    }
    const dictionary::IDictionary* dictionary() const {
        return m_tables.dictionary;
    }

    // -- reads [reads]

    // The type of the node, eCount when there is none; whether there is one.
    dictionary::ItemType type(const TextArg& path) const {
        return m_tables.settings->getItemType(path.c_str());
    }
    bool has(const TextArg& path) const {
        return type(path) != dictionary::ItemType::eCount;
    }

    // The value converted to T: bool, an integer, a float, std::string (the text form of any
    // value), or a std::vector of these. Nothing when there is no node or it does not convert.
    // A value other than zero costs one call of the table. Without the dictionary table an empty
    // array is nothing.
    template <class T>
    [[nodiscard]] std::optional<T> get(const TextArg& path) const {
        return detail::read<T>(m_tables, path.c_str());
    }

    // The same with a value of the caller's in place of nothing.
    template <class T>
    [[nodiscard]] T get(const TextArg& path, T fallback) const {
        std::optional<T> value = get<T>(path);
        return value ? *std::move(value) : std::move(fallback);
    }

    // The text form of the value without a copy into a std::string; empty when there is none.
    StringBuffer text(const TextArg& path) const {
        return {m_tables.settings,
                m_tables.settings->createStringBufferFromItemValue(path.c_str())};
    }

    // The path of an item of the settings, as callables get them: "/" for the root, "" for null.
    // REQUIRES: the dictionary table.
    std::string pathOf(const dictionary::Item* item) const {
        return item ? detail::fullPathOf(m_tables.dictionary, item) : std::string();
    }

    // -- writes [writes]

    // Stores a bool, an integer, a float, a text, or a std::vector of these.
    template <class T>
    void set(const TextArg& path, const T& value) const {
        if constexpr (detail::IsVector<T>::value) {
            BatchScope scope;
            detail::writeArray(m_tables.settings, path.c_str(), value);
        } else {
            detail::write(m_tables.settings, path.c_str(), detail::toStored(value));
        }
    }

    // The same, only where no node is.
    template <class T>
    void setDefault(const TextArg& path, const T& value) const {
        if (!path.c_str() || !has(path)) {
            set(path, value);
        }
    }

    // Destroys the node and everything below it.
    void remove(const TextArg& path) const {
        BatchScope scope;
        m_tables.settings->destroyItem(path.c_str());
    }

    // Merges the tree below source into path; the events arrive as one batch. policy is asked
    // per item whether to take it: a callable (dstItem, dstType, srcItem, srcType) or
    // (dstItem, dstType, srcItem, srcType, userData) that returns an UpdateAction.
    void merge(const TextArg& path, const dictionary::Item* source) const {
        merge(path, source, dictionary::kUpdateItemOverwriteOriginal);
    }
    template <class Policy>
    void merge(const TextArg& path, const dictionary::Item* source, Policy&& policy) const {
        BatchScope scope;
        if constexpr (std::is_convertible_v<Policy&&, dictionary::OnUpdateItemFn>) {
            m_tables.settings->update(path.c_str(), source, nullptr, policy, nullptr);
        } else {
            using Callable = std::remove_reference_t<Policy>;
            void* userData = const_cast<std::remove_const_t<Callable>*>(std::addressof(policy));
            m_tables.settings->update(path.c_str(), source, nullptr, &_ask<Callable>, userData);
        }
    }

    // A new transaction. Empty when memory is exhausted. [transacts]
    TransactionGuard transaction() const {
        return {m_tables.settings, m_tables.settings->createTransaction()};
    }

    // A copy of the subtree as a dictionary of its own. REQUIRES: the dictionary table. [reads]
    [[nodiscard]] DictionaryGuard copy(const TextArg& path) const {
        return {m_tables.dictionary, m_tables.settings->createDictionaryFromSettings(path.c_str())};
    }

    // -- change events [subscribes]
    //
    // The path is a settings path and needs no leading "/"; the node need not exist. The result is
    // empty for a null path or when memory is exhausted.

    // Calls callable(changedItem, eventType) for every event of the node.
    template <class Callable>
    NodeSubscription onNodeChange(const TextArg& path, Callable&& callable) const {
        using Record = detail::NodeRecord<std::decay_t<Callable>>;
        return _subscribe<Record>(path, [&](const char*) {
            return new Record(m_tables, std::forward<Callable>(callable));
        });
    }

    // Calls callable(subtreeItem, changedItem, eventType) for every event strictly below the node.
    // Nothing is ever reported to the root.
    template <class Callable>
    TreeSubscription onTreeChange(const TextArg& path, Callable&& callable) const {
        using Record = detail::TreeRecord<std::decay_t<Callable>>;
        return _subscribe<Record>(path, [&](const char*) {
            return new Record(m_tables, std::forward<Callable>(callable));
        });
    }

    // Calls callable(before, now), two std::optional<T>, whenever get<T>(path) has a new result.
    // With a vector, writes and removals of single elements count too. A node that goes because a
    // value was written over something above it is not reported by the store.
    template <class T, class Callable>
    Subscription onChange(const TextArg& path, Callable&& callable) const {
        using Record = detail::ValueRecord<T, std::decay_t<Callable>>;
        return _subscribe<Record>(path, [&](const char* fullPath) {
            return new Record(m_tables, fullPath, std::forward<Callable>(callable));
        });
    }

    // Calls callable(const ChangeBatch&) with the events of the node and of everything below it:
    // once per merge, commit or scope (see BatchScope), and with a batch of one for any other
    // event. Of the root, nothing below is ever reported. REQUIRES: the dictionary table.
    template <class Callable>
    Subscription onChangeBatch(const TextArg& path, Callable&& callable) const {
        using Record = detail::BatchCallableRecord<std::decay_t<Callable>>;
        return _subscribe<Record>(path, [&](const char* fullPath) {
            return new Record(m_tables, fullPath, std::forward<Callable>(callable));
        });
    }

private:
    template <class Callable>
    static dictionary::UpdateAction _ask(const dictionary::Item* dstItem,
                                         dictionary::ItemType dstItemType,
                                         const dictionary::Item* srcItem,
                                         dictionary::ItemType srcItemType,
                                         void* policy) {
        return (*static_cast<Callable*>(policy))(dstItem, dstItemType, srcItem, srcItemType);
    }

    template <class Record, class MakeRecord>
    Subscription _subscribe(const TextArg& path, MakeRecord makeRecord) const {
        const ISettings* settings = m_tables.settings;
        std::string fullPath;
        const char* subscribed = path.c_str();
        if (!subscribed) { // the slot refuses it and says so
            settings->subscribeToNodeChangeEvents(nullptr, nullptr, nullptr);
            return Subscription();
        }
        if (*subscribed != '/') {
            fullPath = std::string("/") + subscribed;
            subscribed = fullPath.c_str();
        }
        Record* record = makeRecord(subscribed);
        Subscription subscription(record);
        bool isComplete = true;
        if constexpr (Record::kIsNode) {
            record->m_node = settings->subscribeToNodeChangeEvents(
                subscribed, &detail::onNodeEvent<Record>, record);
            isComplete = record->m_node != nullptr;
        }
        if constexpr (Record::kIsTree) {
            record->m_tree = settings->subscribeToTreeChangeEvents(
                subscribed, &detail::onTreeEvent<Record>, record);
            isComplete = isComplete && record->m_tree;
        }
        return isComplete ? std::move(subscription) : Subscription();
    }

    detail::Tables m_tables;
};

} // namespace vorn::settings
