#include "Merge.h"

#include <memory>
#include <new>
#include <string_view>
#include <type_traits>
#include <utility>
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

    // Goes to an item, of unknown depth; null: to the end.
    void goTo(Item* item) {
        m_item = item;
        if (item) {
            m_value = item->read();
        }
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
            m_levels.emplace_back(m_item);
        }
        for (; !m_levels.empty(); m_levels.pop_back()) {
            if (Item* child = m_levels.back().next(m_tree)) {
                goTo(child);
                return;
            }
        }
        goTo(nullptr);
    }

private:
    const Tree& m_tree;
    Item* m_item;
    Value m_value;
    std::vector<Tree::ChildWalk> m_levels; // through the dictionaries around the item
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
    ~WriteLog() {
        while (m_last) {
            Chunk* before = m_last->before;
            m_tree.giveBack(m_last);
            m_last = before;
        }
    }
    WriteLog(const WriteLog&) = delete;
    WriteLog& operator=(const WriteLog&) = delete;

    // To be called before each write. Throws std::bad_alloc when memory is exhausted.
    void makeRoom() {
        if (!m_last || m_last->count == kChunkSize) {
            void* memory = m_tree.borrow(sizeof(Chunk));
            if (!memory) {
                throw std::bad_alloc();
            }
            auto* chunk = static_cast<Chunk*>(memory);
            chunk->before = m_last;
            chunk->count = 0;
            m_last = chunk;
        }
    }
    void noteCreated(Item* item) {
        _note({item, {static_cast<uint64_t>(kDeadType), 0}});
    }
    void noteExchanged(Item* item, const Value& before) {
        _note({item, before});
    }

    // Lets go of the values that were replaced.
    void forget() {
        _forEachFromLast([this](const Write& write) {
            if (write.before.type() == ItemType::eString) {
                m_tree.strings().retire(write.before.payload);
            }
        });
    }
    // From the last to the first, so that children go before their parents. Nothing fails.
    void undo() {
        _forEachFromLast([this](const Write& write) {
            if (write.before.type() == kDeadType) {
                m_tree.destroy(write.item);
            } else {
                m_tree.setValue(write.item, write.before.type(), write.before.payload);
            }
        });
    }

private:
    struct Write {
        Item* item;
        Value before; // of dead type when the item was created
    };

    static constexpr size_t kChunkSize = 84; // 2 KB
    struct Chunk {
        Chunk* before;
        size_t count;
        Write writes[kChunkSize];
    };

    void _note(const Write& write) {
        m_last->writes[m_last->count++] = write;
    }
    template <class Visit>
    void _forEachFromLast(Visit visit) {
        for (const Chunk* chunk = m_last; chunk; chunk = chunk->before) {
            for (size_t i = chunk->count; i > 0; --i) {
                visit(chunk->writes[i - 1]);
            }
        }
    }

    Tree& m_tree;
    Chunk* m_last = nullptr;
};

// Carries out a merge from one of the sources above; with a plan, from a live one, it goes by it or
// makes it anew.
template <class Source>
class Merger {
public:
    Merger(
        Tree& tree, Source& source, MergePlan* plan, OnUpdateItemFn onUpdateItemFn, void* userData)
        : m_tree(tree), m_source(source), m_plan(plan), m_onUpdateItemFn(onUpdateItemFn),
          m_userData(userData), m_log(tree) {}

    // Throws std::bad_alloc, with the destination as it was, when memory is exhausted.
    void run(Item* dst, const char* dstPath) {
        try {
            _enter(0, dst);
            if constexpr (std::is_same_v<Source, LiveSource>) {
                _goByPlan(m_tree.find(dst, dstPath));
            }
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
        Item* parent = nullptr;
        Tree::ChildHint hint; // of the child of the parent that is expected next
    };
    // A value that replaces a dictionary. That comes last, since it cannot be undone, and within
    // one tree could take sources with it.
    struct Postponed {
        Item* item;
        ItemType type;
        uint64_t payload;
    };

    // Merges the pairs of the plan, if it is of this merge and as long as it holds. What is left
    // then is merged as ever; for that case, or else, the plan is begun anew.
    void _goByPlan(Item* destination) {
        Item* const top = m_source.item();
        if (!m_plan) {
            return;
        }
        if (m_plan->isOf(top, destination) && _goByPairs(m_plan->begin())) {
            m_source.goTo(nullptr);
        } else {
            m_source.goTo(top);
            // Not even an equal count holds while a change is under way, which an odd one tells.
            m_plan->reset(top, destination, m_tree.changeCount() & ~uint64_t{1});
        }
    }
    // False when the plan does not hold up to the end. What is read before it is seen to hold is
    // no dictionary.
    bool _goByPairs(const MergePlan::Pair* pair) {
        for (;; ++pair) {
            const bool isAtEnd = pair == m_plan->end();
            if (!isAtEnd) {
                m_source.goTo(pair->source);
                _found(pair->destination);
            }
            if (m_tree.changeCount() != m_plan->changeCount()) {
                return false;
            }
            if (isAtEnd) {
                return true;
            }
            if (_isWanted()) {
                _writeValue();
            }
            m_lastByPlan = pair->source;
        }
    }

    // Adds the item at hand to the plan, if that can tell what becomes of it.
    void _plan(bool isDictionary) {
        const bool isFoundDictionary = m_itemType == ItemType::eDictionary;
        if (isDictionary && isFoundDictionary) {
            return;
        }
        if (m_item && !isDictionary && !isFoundDictionary) {
            m_plan->add({m_source.item(), m_item});
        } else {
            _abandonPlan();
        }
    }
    void _abandonPlan() {
        if (m_plan) {
            m_plan->abandon();
            m_plan = nullptr;
        }
    }

    // Makes parent the one that items of that depth go below.
    void _enter(size_t depth, Item* parent) {
        if (depth == m_levels.size()) {
            m_levels.emplace_back();
        }
        m_levels[depth] = {parent, {}};
    }

    // Merges the item at hand and goes on to the next. False when the path of the top is
    // impossible.
    bool _mergeItem(const char* dstPath) {
        const size_t depth = m_source.depth();
        const bool isDictionary = m_source.type() == ItemType::eDictionary;
        m_topPath = depth == 0 ? dstPath : nullptr;
        m_level = &m_levels[depth];
        _find();
        if (m_plan) {
            _plan(isDictionary);
        }
        const bool isAccepted = _isAccepted(isDictionary);
        if (isAccepted) {
            Item* merged = isDictionary ? _writeDictionary() : _writeValue();
            if (!merged) {
                return false;
            }
            if (isDictionary) {
                _enter(depth + 1, merged);
            }
        }
        m_source.step(isAccepted);
        return true;
    }

    // Looks up where the item goes.
    void _find() {
        Item* parent = m_level->parent;
        if (m_topPath) {
            _found(m_tree.find(parent, m_topPath));
            return;
        }
        const Item& source = *m_source.item();
        Item* item = m_tree.findChildLike(parent, source, &m_level->hint);
        if (!item) {
            m_hash = parent->childHash(source.nameView());
            item = m_tree.findChildLike(parent, source, m_hash);
        }
        _found(item);
    }
    void _found(Item* item) {
        m_item = item;
        m_itemType = item ? item->type() : ItemType::eCount;
    }

    // A dictionary that both sides have is entered; about all else the caller is asked, unless
    // that was done by the plan.
    bool _isAccepted(bool isDictionary) {
        const bool hadItsTurn = m_lastByPlan != nullptr;
        if (m_source.item() == m_lastByPlan) {
            m_lastByPlan = nullptr;
            if (isDictionary) { // only since its turn: not to be entered, which no plan tells
                _abandonPlan();
                return false;
            }
        }
        return (isDictionary && m_itemType == ItemType::eDictionary) ||
               (!hadItsTurn && _isWanted());
    }
    bool _isWanted() {
        return m_onUpdateItemFn(m_item, m_itemType, m_source.item(), m_source.type(), m_userData) ==
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
        const Value before = m_tree.exchangeValue(item, type, payload);
        if (before.type() != ItemType::eDictionary) {
            m_log.noteExchanged(item, before);
        } else if (type != ItemType::eDictionary) {
            m_postponed.push_back({item, type, payload});
        }
        return item;
    }

    Item* _create(ItemType type, uint64_t payload) {
        Item* parent = m_level->parent;
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
    MergePlan* m_plan;            // null when there is none to be made
    Item* m_lastByPlan = nullptr; // the item of the source up to which the plan was held to
    OnUpdateItemFn m_onUpdateItemFn;
    void* m_userData;
    WriteLog m_log;
    std::vector<Level> m_levels; // by depth
    std::vector<Postponed> m_postponed;

    // About the item at hand: its path when it is the top of the source, else null; its level;
    // where it goes (null when there is nothing yet), what that is, and its hash, known when there
    // is nothing.
    const char* m_topPath = nullptr;
    Level* m_level = nullptr;
    Item* m_item = nullptr;
    ItemType m_itemType = ItemType::eCount;
    uint32_t m_hash = 0;
};

} // namespace

void merge(Tree& tree,
           MergePlans& plans,
           Item* dst,
           const char* dstPath,
           Item* src,
           const char* srcPath,
           OnUpdateItemFn onUpdateItemFn,
           void* userData) {
    Item* top = tree.find(src, srcPath);
    if (!top) {
        return;
    }
    if (rootOf(dst) == rootOf(top)) {
        PlannedSource source(tree, top);
        Merger<PlannedSource>(tree, source, nullptr, onUpdateItemFn, userData).run(dst, dstPath);
        return;
    }
    LiveSource source(tree, top);
    std::unique_ptr<MergePlan> plan = plans.take(top);
    Merger<LiveSource>(tree, source, plan.get(), onUpdateItemFn, userData).run(dst, dstPath);
    plans.keep(top, std::move(plan));
}

} // namespace vorn::dictionary
