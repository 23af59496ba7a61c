// The trees of the service: finding, creating, overwriting and destroying items.
//
// All trees share one pool of items and one table of paths. Roots differ by the hash that their
// paths start from.
//
// Threads: find, children, readers and overwriting a number by one of the same type take no lock;
// overwriting a text takes that of the text blocks for a few steps. What changes a type or the
// shape of a tree is done under one mutex. Nothing here calls back.
//
// Memory: an operation that runs out of it leaves the trees as they were.
#pragma once

#include "ChildList.h"
#include "ItemPool.h"
#include "PathTable.h"
#include "StringStore.h"

#include <mutex>

namespace vorn::dictionary {

class Tree {
public:
    Tree() = default;
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;
    ~Tree() {
        release();
    }

    // The item at path below base, or null. Null base gives null, null path the base.
    Item* find(Item* base, const char* path) const {
        if (!base || !path) {
            return base;
        }
        return find(base, path, std::strlen(path));
    }
    Item* find(Item* base, const char* path, size_t length) const {
        if (length == 0) {
            return base;
        }
        const uint32_t start = base->hash.load(std::memory_order_relaxed);
        const uint32_t hash = extendHash(extendHashBySeparator(start), path, length);
        return m_paths.find(hash, [&](const Item* item) { return item->isAt(base, path, length); });
    }

    size_t childCount(const Item* item) const {
        for (;;) {
            const Value value = item->read();
            ChildList* children = value.children();
            if (value.type() != ItemType::eDictionary || !children) {
                return 0;
            }
            const size_t count = children->size();
            if (item->head.load(std::memory_order_acquire) == value.head) [[likely]] {
                return count; // of a list that was in use when it was counted
            }
        }
    }

    // The child at that place, or null past the end.
    Item* child(const Item* item, size_t place) const {
        for (;;) {
            const Value value = item->read();
            ChildList* children = value.children();
            const bool exists =
                value.type() == ItemType::eDictionary && children && place < children->size();
            const uint32_t index = exists ? children->indexAt(place) : ItemPool::kNoItem;
            if (item->head.load(std::memory_order_acquire) == value.head) [[likely]] {
                return exists ? m_items.at(index) : nullptr;
            }
        }
    }

    // Number of children when they are "0" to "n-1", in any order; 0 otherwise.
    size_t arrayLength(const Item* item) const;

    // Finds or creates the item at path below parent and gives it the type, as IDictionary's
    // createItem. Null for an impossible path or type, or when memory is exhausted.
    Item* create(Item* parent, const char* path, ItemType type);

    // The same with a value of that type, stored in the same step; a string's payload is taken
    // over unless the result is null.
    Item* createWith(Item* parent, const char* path, ItemType type, uint64_t payload);

    // A root of its own tree.
    Item* createRoot(const char* name, ItemType type);

    // Stores a value that is no dictionary. The payload of a string is taken over.
    void setValue(Item* item, ItemType type, uint64_t payload) {
        Value value = item->read();
        while (value.type() == type) {
            if (item->exchange(value, {value.head, payload})) [[likely]] {
                if (type == ItemType::eString) {
                    m_strings.retire(value.payload);
                }
                return;
            }
        }
        const std::lock_guard<std::mutex> lock(m_mutex);
        _setValue(item, type, payload);
    }

    // Makes item an array of length elements of the type; payloadAt(i) is what element i holds.
    // Payloads of strings are taken over on success. False when memory is exhausted.
    template <class PayloadAt>
    bool setArray(Item* item, size_t length, ItemType type, PayloadAt payloadAt);

    // Destroys the item and all below it.
    void destroy(Item* item);

    StringStore& strings() const {
        return m_strings;
    }

    // Destroys every item of every tree and gives all memory back to the system.
    void release();

private:
    // Everything below runs under m_mutex.
    void _setValue(Item* item, ItemType type, uint64_t payload);
    static Value _replaceValue(Item* item, ItemType type, uint64_t payload);
    // What a new item gets; a zero payload is the neutral value of every type.
    struct Content {
        ItemType type;
        uint64_t payload = 0;
    };
    Item* _findOrCreate(Item* parent, std::string_view path, Content content, bool* isNew);
    Item* _createBelow(Item* parent, std::string_view path, Content content);
    Item* _createChain(Item* anchor, std::string_view path, Content content, uint32_t* topIndex);
    uint32_t _newItem(Item* parent, std::string_view name, uint32_t hash, Content content);
    uint32_t _newChild(Item* parent, std::string_view name, Content content);
    static bool _setName(Item* item, std::string_view name, ItemType type);
    ChildList* _roomForChild(Item* dictionary);
    void _detach(const Item* item);
    void _destroyItems(Item* top);
    void _destroyChildren(ChildList* children);
    void _freeContents(Item* item);
    bool _arrangeElements(Item* array, size_t length, ItemType type);
    bool _hasElementsInOrder(const Item* array, size_t length) const;
    ChildList* _listElements(Item* array, size_t length, ItemType type);
    size_t _putExisting(ChildList* elements, const Item* array, size_t length, bool isPut);

    mutable StringStore m_strings;
    ItemPool m_items;
    PathTable m_paths{m_items};
    ChildListPool m_childLists;
    std::mutex m_mutex;
    uint32_t m_nextRootHash = 0;
};

template <class PayloadAt>
bool Tree::setArray(Item* item, size_t length, ItemType type, PayloadAt payloadAt) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!_arrangeElements(item, length, type)) {
        return false;
    }
    ChildList* elements = item->read().children();
    for (size_t i = 0; i < length; ++i) {
        Item* element = m_items.at(elements->indexAt(i));
        if (element->type() == type && type != ItemType::eString) {
            // The lock keeps the type as it is, and one word needs no more than one store.
            element->payload.store(payloadAt(i), std::memory_order_release);
        } else {
            _setValue(element, type, payloadAt(i));
        }
    }
    return true;
}

} // namespace vorn::dictionary
