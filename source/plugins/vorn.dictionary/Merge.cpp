#include "Merge.h"

#include <algorithm>
#include <new>
#include <string_view>
#include <vector>

namespace vorn::dictionary {

namespace {

const Item* rootOf(const Item* item) {
    return item->isRoot() ? item : item->branch->root;
}

// The items of a source in pre-order, each as it is when its turn comes.
class LiveSource {
public:
    LiveSource(const Tree& tree, Item* top) : m_tree(tree), m_item(top), m_value(top->read()) {}

    bool isAtEnd() const {
        return !m_item;
    }
    Item* item() const {
        return m_item;
    }
    ItemType type() const {
        return m_value.type();
    }
    // Below the top of the source.
    size_t depth() const {
        return m_levels.size();
    }

    // A copy of the value, which is no dictionary, for an item to hold. Another thread may have
    // written a value of another type meanwhile. False when memory is exhausted.
    bool copyValue(ItemType* type, uint64_t* payload) const {
        Value value = m_value;
        if (value.type() != ItemType::eString) {
            *type = value.type();
            *payload = value.payload;
            return true;
        }
        const StringReader reader(m_tree.strings());
        value = m_item->read(); // again, now that a text stays readable
        if (value.type() < ItemType::eString) {
            *type = value.type();
            *payload = value.payload;
            return true;
        }
        *type = ItemType::eString;
        const bool isText = value.type() == ItemType::eString;
        return m_tree.strings().create(isText ? StringBlock::textOf(value.payload) : "", payload);
    }

    // Goes on to the next item: the first child, when there is one and isEntered says so.
    void step(bool isEntered) {
        if (isEntered && m_value.type() == ItemType::eDictionary) {
            m_levels.push_back({m_item, 0});
        }
        m_item = nullptr;
        while (!m_item && !m_levels.empty()) {
            Level& level = m_levels.back();
            m_item = m_tree.child(level.dictionary, level.nextChild++);
            if (!m_item) {
                m_levels.pop_back();
            }
        }
        if (m_item) {
            m_value = m_item->read();
        }
    }

private:
    struct Level {
        Item* dictionary;
        size_t nextChild;
    };

    const Tree& m_tree;
    Item* m_item;
    Value m_value;
    std::vector<Level> m_levels; // around the item
};

// The same, as all of them were in the beginning: for a merge within one tree, which may write to
// what it has yet to read.
class PlannedSource {
public:
    PlannedSource(const Tree& tree, Item* top) : m_tree(tree) {
        try {
            for (LiveSource source(tree, top); !source.isAtEnd(); source.step(true)) {
                _add(source);
            }
        } catch (const std::bad_alloc&) {
            _discardAll();
            throw;
        }
    }
    ~PlannedSource() {
        _discardAll();
    }
    PlannedSource(const PlannedSource&) = delete;
    PlannedSource& operator=(const PlannedSource&) = delete;

    bool isAtEnd() const {
        return m_place == m_items.size();
    }
    Item* item() const {
        return m_items[m_place].source;
    }
    ItemType type() const {
        return m_items[m_place].type;
    }
    size_t depth() const {
        return m_items[m_place].depth;
    }

    bool copyValue(ItemType* type, uint64_t* payload) {
        *type = m_items[m_place].type;
        *payload = m_items[m_place].payload;
        m_items[m_place].payload = 0;
        return true;
    }

    void step(bool isEntered) {
        const size_t left = depth();
        do {
            ++m_place;
        } while (!isEntered && !isAtEnd() && depth() > left);
    }

private:
    struct Entry {
        Item* source;
        uint64_t payload; // a string's is a copy, the plan's own until it is handed out
        ItemType type;
        size_t depth;
    };

    void _add(const LiveSource& source) {
        m_items.push_back({source.item(), 0, source.type(), source.depth()});
        Entry& entry = m_items.back();
        if (entry.type != ItemType::eDictionary && !source.copyValue(&entry.type, &entry.payload)) {
            throw std::bad_alloc();
        }
    }
    void _discardAll() {
        for (const Entry& entry : m_items) {
            if (entry.type == ItemType::eString) {
                m_tree.strings().discard(entry.payload);
            }
        }
    }

    const Tree& m_tree;
    std::vector<Entry> m_items;
    size_t m_place = 0;
};

// What a merge has written, for the case that it cannot go on.
class WriteLog {
public:
    explicit WriteLog(Tree& tree) : m_tree(tree) {}
    WriteLog(const WriteLog&) = delete;
    WriteLog& operator=(const WriteLog&) = delete;

    // To be called before each write. Throws std::bad_alloc when memory is exhausted.
    void makeRoom() {
        if (m_writes.size() == m_writes.capacity()) {
            m_writes.reserve(std::max(kFirstCapacity, 2 * m_writes.size()));
        }
    }
    void noteCreated(Item* item) {
        m_writes.push_back({item, {static_cast<uint64_t>(kDeadType), 0}});
    }
    void noteExchanged(Item* item, const Value& before) {
        m_writes.push_back({item, before});
    }

    // Lets go of the values that were replaced.
    void forget() {
        for (const Write& write : m_writes) {
            if (write.before.type() == ItemType::eString) {
                m_tree.strings().retire(write.before.payload);
            }
        }
    }
    // From the last to the first, so that children go before their parents. Nothing fails.
    void undo() {
        for (; !m_writes.empty(); m_writes.pop_back()) {
            const Write& write = m_writes.back();
            if (write.before.type() == kDeadType) {
                m_tree.destroy(write.item);
            } else if (write.before.type() != ItemType::eDictionary) {
                m_tree.setValue(write.item, write.before.type(), write.before.payload);
            }
        }
    }

private:
    static constexpr size_t kFirstCapacity = 64;

    struct Write {
        Item* item;
        Value before; // of dead type when the item was created
    };

    Tree& m_tree;
    std::vector<Write> m_writes;
};

// Carries out a merge from one of the sources above.
template <class Source>
class Merger {
public:
    Merger(Tree& tree, Source& source, OnUpdateItemFn onUpdateItemFn, void* userData)
        : m_tree(tree), m_source(source), m_onUpdateItemFn(onUpdateItemFn), m_userData(userData),
          m_log(tree) {}

    // Throws std::bad_alloc, with the destination as it was, when memory is exhausted.
    void run(Item* dst, const char* dstPath) {
        try {
            _enter(dst);
            while (!m_source.isAtEnd() && _mergeItem(dstPath ? dstPath : "")) {
            }
        } catch (const std::bad_alloc&) {
            m_log.undo();
            for (const Postponed& write : m_postponed) {
                _discard(write.type, write.payload);
            }
            throw;
        }
        m_log.forget();
        for (const Postponed& write : m_postponed) {
            m_tree.setValue(write.item, write.type, write.payload);
        }
    }

private:
    // Where the items of one depth go.
    struct Level {
        Item* parent;
        uint32_t childHash;
        size_t hint; // the place of the child of the parent that is expected next
    };
    // A value that replaces a dictionary. That comes last, since it cannot be undone, and within
    // one tree could take sources with it.
    struct Postponed {
        Item* item;
        ItemType type;
        uint64_t payload;
    };

    void _enter(Item* parent) {
        m_levels.push_back({parent, parent->childHash(), 0});
    }

    // Merges the item at hand and goes on to the next. False when the path of the top is
    // impossible.
    bool _mergeItem(const char* dstPath) {
        const size_t depth = m_source.depth();
        while (m_levels.size() > depth + 1) {
            m_levels.pop_back();
        }
        m_topPath = depth == 0 ? dstPath : nullptr;
        _find();
        const bool isAccepted = _isAccepted();
        if (isAccepted) {
            const bool isDictionary = m_source.type() == ItemType::eDictionary;
            Item* merged = isDictionary ? _writeDictionary() : _writeValue();
            if (!merged) {
                return false;
            }
            if (isDictionary) {
                _enter(merged);
            }
        }
        m_source.step(isAccepted);
        return true;
    }

    // Looks up where the item goes.
    void _find() {
        Level& level = m_levels.back();
        if (m_topPath) {
            m_item = m_tree.find(level.parent, m_topPath);
        } else {
            const Item& source = *m_source.item();
            m_item = m_tree.findChildLike(level.parent, source, &level.hint);
            if (!m_item) {
                const std::string_view name = source.nameView();
                m_hash = extendHash(level.childHash, name.data(), name.size());
                m_item = m_tree.findChildLike(level.parent, source, m_hash);
            }
        }
        m_itemType = m_item ? m_item->type() : ItemType::eCount;
    }

    // A dictionary that both sides have is entered, about all else the caller is asked.
    bool _isAccepted() {
        const ItemType type = m_source.type();
        if (type == ItemType::eDictionary && m_itemType == type) {
            return true;
        }
        return m_onUpdateItemFn(m_item, m_itemType, m_source.item(), type, m_userData) ==
               UpdateAction::eOverwrite;
    }

    // Both give the item in the destination, or null when its path is impossible.
    Item* _writeDictionary() {
        if (m_itemType == ItemType::eDictionary) {
            return m_item;
        }
        return m_item ? _exchange(m_item, ItemType::eDictionary, 0)
                      : _create(ItemType::eDictionary, 0);
    }
    Item* _writeValue() {
        ItemType type;
        uint64_t payload;
        if (!m_source.copyValue(&type, &payload)) {
            throw std::bad_alloc();
        }
        try {
            if (m_itemType == ItemType::eDictionary) {
                m_postponed.push_back({m_item, type, payload});
                return m_item;
            }
            Item* item = m_item ? _exchange(m_item, type, payload) : _create(type, payload);
            if (!item) {
                _discard(type, payload);
            }
            return item;
        } catch (const std::bad_alloc&) {
            _discard(type, payload);
            throw;
        }
    }

    // A payload that was not stored.
    void _discard(ItemType type, uint64_t payload) {
        if (type == ItemType::eString) {
            m_tree.strings().discard(payload);
        }
    }

    Item* _exchange(Item* item, ItemType type, uint64_t payload) {
        m_log.makeRoom();
        m_log.noteExchanged(item, m_tree.exchangeValue(item, type, payload));
        return item;
    }

    Item* _create(ItemType type, uint64_t payload) {
        Item* parent = m_levels.back().parent;
        if (m_topPath) {
            return _createTop(parent, m_topPath, type, payload);
        }
        m_log.makeRoom();
        Item* item = m_tree.createChildLike(parent, *m_source.item(), m_hash, type, payload);
        if (!item) {
            throw std::bad_alloc();
        }
        m_log.noteCreated(item);
        return item;
    }

    // With the items on the way to it, of which the first may be a value that becomes a dictionary.
    Item* _createTop(Item* base, std::string_view path, ItemType type, uint64_t payload) {
        if (!isPossiblePath(path)) {
            return nullptr;
        }
        size_t known = 0;
        Item* anchor = m_tree.findAnchor(base, path, &known);
        if (anchor->type() != ItemType::eDictionary) {
            _exchange(anchor, ItemType::eDictionary, 0);
        }
        m_log.makeRoom();
        Item* item = m_tree.createWith(base, path.data(), type, payload);
        if (!item) {
            throw std::bad_alloc();
        }
        Item* first = item;
        while (first->parent() != anchor) {
            first = first->parent();
        }
        m_log.noteCreated(first);
        return item;
    }

    Tree& m_tree;
    Source& m_source;
    OnUpdateItemFn m_onUpdateItemFn;
    void* m_userData;
    WriteLog m_log;
    std::vector<Level> m_levels; // one more than the item at hand is deep
    std::vector<Postponed> m_postponed;

    // About the item at hand: its path when it is the top of the source, else null; where it goes
    // (null when there is nothing yet), what that is, and its hash, known when there is nothing.
    const char* m_topPath = nullptr;
    Item* m_item = nullptr;
    ItemType m_itemType = ItemType::eCount;
    uint32_t m_hash = 0;
};

template <class Source>
void mergeFrom(Tree& tree,
               Item* dst,
               const char* dstPath,
               Item* top,
               OnUpdateItemFn onUpdateItemFn,
               void* userData) {
    Source source(tree, top);
    Merger<Source>(tree, source, onUpdateItemFn, userData).run(dst, dstPath);
}

} // namespace

void merge(Tree& tree,
           Item* dst,
           const char* dstPath,
           Item* src,
           const char* srcPath,
           OnUpdateItemFn onUpdateItemFn,
           void* userData) {
    if (Item* top = tree.find(src, srcPath)) {
        const auto from =
            rootOf(dst) == rootOf(top) ? mergeFrom<PlannedSource> : mergeFrom<LiveSource>;
        from(tree, dst, dstPath, top, onUpdateItemFn, userData);
    }
}

} // namespace vorn::dictionary
