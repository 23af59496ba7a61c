#include "Merge.h"

#include <algorithm>
#include <new>
#include <vector>

namespace vorn::dictionary {

namespace {

// One item of the source as it was when the merge began.
struct PlannedItem {
    Item* source;
    uint64_t payload; // a string's is a copy, owned by the plan until it is stored
    ItemType type;
    uint32_t depth; // below the top of the source
};

// The items of a source in pre-order.
class Plan {
public:
    explicit Plan(const Tree& tree) : m_tree(tree) {}

    // Throws std::bad_alloc when memory is exhausted.
    void read(Item* top) {
        struct Level {
            Item* dictionary;
            size_t nextChild;
        };
        const StringReader reader(m_tree.strings());
        std::vector<Level> levels;
        _add(top, 0);
        while (true) {
            if (m_items.back().type == ItemType::eDictionary &&
                m_items.back().depth == levels.size()) {
                levels.push_back({m_items.back().source, 0});
                m_depth = std::max(m_depth, levels.size());
            }
            Item* next = nullptr;
            while (!levels.empty()) {
                next = m_tree.child(levels.back().dictionary, levels.back().nextChild++);
                if (next) {
                    break;
                }
                levels.pop_back();
            }
            if (!next) {
                return;
            }
            _add(next, static_cast<uint32_t>(levels.size()));
        }
    }
    ~Plan() {
        for (const PlannedItem& item : m_items) {
            if (item.type == ItemType::eString) {
                m_tree.strings().discard(item.payload);
            }
        }
    }
    Plan(const Plan&) = delete;
    Plan& operator=(const Plan&) = delete;

    size_t size() const {
        return m_items.size();
    }
    size_t depth() const {
        return m_depth;
    }
    const PlannedItem& operator[](size_t i) const {
        return m_items[i];
    }
    // The place of the first item after i that is not below it.
    size_t skip(size_t i) const {
        const uint32_t depth = m_items[i].depth;
        do {
            ++i;
        } while (i < m_items.size() && m_items[i].depth > depth);
        return i;
    }
    // Hands the payload of a value out; a string is the caller's from here on.
    uint64_t takePayload(size_t i) {
        const uint64_t payload = m_items[i].payload;
        m_items[i].payload = 0;
        return payload;
    }

private:
    void _add(Item* source, uint32_t depth) {
        const Value value = source->read();
        m_items.push_back({source, 0, value.type(), depth});
        if (value.type() != ItemType::eString) {
            m_items.back().payload = value.payload;
        } else if (!m_tree.strings().create(StringBlock::textOf(value.payload),
                                            &m_items.back().payload)) {
            throw std::bad_alloc();
        }
    }

    const Tree& m_tree;
    std::vector<PlannedItem> m_items;
    size_t m_depth = 0;
};

const Item* rootOf(const Item* item) {
    while (item->parent) {
        item = item->parent;
    }
    return item;
}

// Carries a plan out.
class Merger {
public:
    Merger(Tree& tree, Plan& plan, OnUpdateItemFn onUpdateItemFn, void* userData)
        : m_tree(tree), m_plan(plan), m_onUpdateItemFn(onUpdateItemFn), m_userData(userData) {}

    // Gets all the memory that run needs besides what it stores. Throws std::bad_alloc when it is
    // not to be had.
    void prepare(Item* dst) {
        // Within one tree, a dictionary that becomes a value could take planned sources with it.
        m_isOneTree = rootOf(dst) == rootOf(m_plan[0].source);
        if (m_isOneTree) {
            m_postponed.reserve(m_plan.size());
        }
        m_parents.resize(m_plan.depth() + 1);
        m_parents[0] = dst;
    }

    void run(const char* dstPath) {
        for (size_t i = 0; i < m_plan.size();) {
            const PlannedItem& item = m_plan[i];
            const char* path = item.depth == 0 ? dstPath : item.source->name();
            if (!_isAccepted(i, m_parents[item.depth], path)) {
                i = m_plan.skip(i);
                continue;
            }
            Item* merged = _write(i, m_parents[item.depth], path);
            if (!merged) {
                break;
            }
            if (item.type == ItemType::eDictionary) {
                m_parents[item.depth + 1] = merged;
            }
            ++i;
        }
        for (const Postponed& write : m_postponed) {
            const ItemType type = m_plan[write.place].type;
            m_tree.setValue(write.item, type, m_plan.takePayload(write.place));
        }
    }

private:
    struct Postponed {
        Item* item;
        size_t place;
    };

    // Whether the planned item goes to path below parent: a dictionary that both sides have is
    // entered, about all else the caller is asked.
    bool _isAccepted(size_t place, Item* parent, const char* path) {
        const PlannedItem& planned = m_plan[place];
        m_item = m_tree.find(parent, path);
        m_itemType = m_item ? m_item->type() : ItemType::eCount;
        if (planned.type == ItemType::eDictionary && m_itemType == ItemType::eDictionary) {
            return true;
        }
        return m_onUpdateItemFn(m_item, m_itemType, planned.source, planned.type, m_userData) ==
               UpdateAction::eOverwrite;
    }

    // Writes the accepted item. The item in the destination, or null when memory is exhausted.
    Item* _write(size_t place, Item* parent, const char* path) {
        const ItemType type = m_plan[place].type;
        if (type == ItemType::eDictionary) {
            return m_itemType == type ? m_item : m_tree.create(parent, path, type);
        }
        if (m_itemType == ItemType::eDictionary && m_isOneTree) {
            m_postponed.push_back({m_item, place});
            return m_item;
        }
        if (m_item) {
            m_tree.setValue(m_item, type, m_plan.takePayload(place));
            return m_item;
        }
        Item* item = m_tree.createWith(parent, path, type, m_plan[place].payload);
        if (item) {
            m_plan.takePayload(place);
        }
        return item;
    }

    Tree& m_tree;
    Plan& m_plan;
    OnUpdateItemFn m_onUpdateItemFn;
    void* m_userData;
    bool m_isOneTree = false;
    Item* m_item = nullptr; // in the destination, where the item at hand goes; may be null
    ItemType m_itemType = ItemType::eCount;
    std::vector<Item*> m_parents; // where the items of each depth go
    std::vector<Postponed> m_postponed;
};

} // namespace

void merge(Tree& tree,
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
    Plan plan(tree);
    Merger merger(tree, plan, onUpdateItemFn, userData);
    try {
        plan.read(top);
        merger.prepare(dst);
    } catch (const std::bad_alloc&) {
        return;
    }
    merger.run(dstPath);
}

} // namespace vorn::dictionary
