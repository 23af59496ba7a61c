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
#include "ElementName.h"
#include "ItemPool.h"
#include "PathScan.h"
#include "PathTable.h"
#include "RecycledBlocks.h"
#include "StringStore.h"

#include <mutex>
#include <string_view>

namespace vorn::dictionary {

// Whether a path can name an item: no component is empty.
inline bool isPossiblePath(std::string_view path) {
    return !path.empty() && path.front() != '/' && path.back() != '/' &&
           path.find("//") == std::string_view::npos;
}

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
        if (!base->isRoot()) [[unlikely]] {
            return find(base, path, std::strlen(path));
        }
        const PathScan scan = scanPath(base->hash.load(std::memory_order_relaxed), path);
        return scan.length == 0 ? base : _findHashed(base, path, scan.length, scan.hash);
    }
    // The path ends where a byte follows that can be read.
    Item* find(Item* base, const char* path, size_t length) const {
        if (length == 0) {
            return base;
        }
        if (!base->isRoot()) {
            return _findBelow(base, path, length);
        }
        const uint32_t start = base->hash.load(std::memory_order_relaxed);
        return _findHashed(base, path, length, extendHash(start, path, length));
    }

    // Where a child is looked for first: a list of children, which may be an old one, and the place
    // in it where the child is expected.
    struct ChildHint {
        ChildList* children = nullptr;
        size_t place = 0;
    };

    // The child of parent that has the name of `like`, or null. Either looked for near the hint
    // alone, which moves on when it is there, or by the hash of its path.
    Item* findChildLike(const Item* parent, const Item& like, ChildHint* hint) const {
        if (Item* child = _findNear(parent, like, hint)) [[likely]] {
            return child;
        }
        ChildList* children = _childrenOf(parent->read());
        if (children == hint->children) {
            return nullptr;
        }
        hint->children = children;
        return _findNear(parent, like, hint);
    }
    Item* findChildLike(const Item* parent, const Item& like, uint32_t hash) const {
        return _findChild(parent, hash,
                          [&like](const Item* item) { return item->hasNameOf(like); });
    }

    size_t childCount(const Item* item) const {
        for (;;) {
            const Value value = item->read();
            const ChildList* children = _childrenOf(value);
            const size_t count = children ? children->size() : 0;
            if (item->head.load(std::memory_order_acquire) == value.head) [[likely]] {
                return count; // of a list that was in use when it was counted
            }
        }
    }

    // The child at that place, or null past the end.
    Item* child(const Item* item, size_t place) const {
        for (;;) {
            const Value value = item->read();
            ChildList* children = _childrenOf(value);
            const bool exists = children && place < children->size();
            const uint32_t index = exists ? children->indexAt(place) : ItemPool::kNoItem;
            if (item->head.load(std::memory_order_acquire) == value.head) [[likely]] {
                return exists ? m_items.at(index) : nullptr;
            }
        }
    }

    // The children of a dictionary one after another, each as it is when its turn comes.
    class ChildWalk {
    public:
        explicit ChildWalk(const Item* dictionary) : m_dictionary(dictionary) {
            _lookAgain();
        }

        // Null past the end.
        Item* next(const Tree& tree) {
            for (;;) {
                const bool exists = m_children && m_place < m_children->size();
                const uint32_t index = exists ? m_children->indexAt(m_place) : ItemPool::kNoItem;
                if (m_dictionary->head.load(std::memory_order_acquire) == m_head) [[likely]] {
                    ++m_place;
                    return exists ? tree.m_items.at(index) : nullptr;
                }
                _lookAgain();
            }
        }

    private:
        void _lookAgain() {
            const Value value = m_dictionary->read();
            m_head = value.head;
            m_children = _childrenOf(value);
        }

        const Item* m_dictionary;
        uint64_t m_head;       // the children are those of this version
        ChildList* m_children; // null when there never were any
        size_t m_place = 0;
    };

    // Number of children when they are "0" to "n-1", in any order; 0 otherwise.
    size_t arrayLength(const Item* item) const;

    // Finds or creates the item at path below parent and gives it the type, as IDictionary's
    // createItem. Null for an impossible path or type, or when memory is exhausted.
    Item* create(Item* parent, const char* path, ItemType type);

    // The same with a value of that type, stored in the same step; a string's payload is taken
    // over unless the result is null.
    Item* createWith(Item* parent, const char* path, ItemType type, uint64_t payload);

    // The same for a child of parent that gets the name of `like`.
    Item*
    createChildLike(Item* parent, const Item& like, uint32_t hash, ItemType type, uint64_t payload);

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
        const std::lock_guard<ChangeMutex> lock(m_mutex);
        _setValue(item, type, payload);
    }

    // The same, or makes it a dictionary, for an item that is none; hands out what it held. One
    // that has become a dictionary meanwhile stays as it is, and that is handed out.
    Value exchangeValue(Item* item, ItemType type, uint64_t payload);

    // The item at the longest part of the path, in front of its last name, that has one, and how
    // long that part is. REQUIRES: the path is not empty.
    Item* findAnchor(Item* base, std::string_view path, size_t* length) const;

    // Makes item an array of length elements of the type; payloadAt(i) is what element i holds.
    // Payloads of strings are taken over on success. False when memory is exhausted.
    template <class PayloadAt>
    bool setArray(Item* item, size_t length, ItemType type, PayloadAt payloadAt);

    // Destroys the item and all below it.
    void destroy(Item* item);

    // Memory for a while, out of blocks that are kept for use again; null when it is exhausted.
    void* borrow(size_t bytes) {
        const std::lock_guard<std::mutex> lock(m_lentMutex);
        return m_lentBlocks.allocate(bytes);
    }
    void giveBack(void* memory) {
        const std::lock_guard<std::mutex> lock(m_lentMutex);
        m_lentBlocks.deallocate(memory);
    }

    // While it stays the same and is even, no tree has changed its shape, and no item has become a
    // dictionary or ceased to be one.
    uint64_t changeCount() const {
        return m_mutex.changeCount();
    }

    StringStore& strings() const {
        return m_strings;
    }

    // Destroys every item of every tree and gives all memory back to the system.
    void release();

private:
    // The mutex under which trees change. It counts when it is taken and when it is let go of, so
    // the count also tells of a change that is under way.
    class ChangeMutex {
    public:
        void lock() {
            m_mutex.lock();
            _count();
        }
        void unlock() {
            _count();
            m_mutex.unlock();
        }
        uint64_t changeCount() const {
            return m_changeCount.load(std::memory_order_acquire);
        }

    private:
        void _count() {
            m_changeCount.store(m_changeCount.load(std::memory_order_relaxed) + 1,
                                std::memory_order_release);
        }

        std::mutex m_mutex;
        std::atomic<uint64_t> m_changeCount{0};
    };

    // What a dictionary that has ever had children keeps of them; else null.
    static Branch* _branchOf(const Value& value) {
        return value.type() == ItemType::eDictionary ? value.branch() : nullptr;
    }
    static ChildList* _childrenOf(const Value& value) {
        Branch* branch = _branchOf(value);
        return branch ? branch->children.load(std::memory_order_acquire) : nullptr;
    }

    // find() for a base that is a root, once the hash is known.
    Item* _findHashed(Item* base, const char* path, size_t length, uint32_t hash) const {
        Item* candidate = m_paths.firstCandidate(hash);
        if (candidate) [[likely]] {
            if (candidate->isAtOrdinary(base, path, length)) [[likely]] {
                return candidate;
            }
        } else if (m_paths.isAbsent(hash)) {
            return nullptr;
        }
        return _findAmong(candidate, base, path, length, hash);
    }

    // find() for a base that is no root.
    [[gnu::noinline]] Item* _findBelow(Item* base, const char* path, size_t length) const {
        if (Item* element = _findElement(base, {path, length})) {
            return element;
        }
        return _findAmong(nullptr, base, path, length, extendHash(base->childHash(), path, length));
    }

    // The whole search: the first candidate, if there is one, and then all items of the hash.
    [[gnu::noinline]] Item* _findAmong(
        Item* candidate, const Item* base, const char* path, size_t length, uint32_t hash) const {
        if (candidate && candidate->isAt(base, path, length)) {
            return candidate;
        }
        return m_paths.find(hash, [=](const Item* item) { return item->isAt(base, path, length); });
    }

    // The element of an array in order, without a look at the table; null if there is none.
    Item* _findElement(const Item* array, std::string_view name) const {
        const Branch* branch = _branchOf(array->read());
        const size_t index = branch ? elementIndexOf(name) : kNoElement;
        if (index == kNoElement || index >= branch->inOrder.load(std::memory_order_acquire)) {
            return nullptr;
        }
        Item* element = child(array, index);
        return element && element->nameView() == name ? element : nullptr;
    }

    // The child of that hash and name, or null.
    Item* _findChild(const Item* parent, uint32_t hash, std::string_view name) const {
        return _findChild(parent, hash, [name](const Item* i) { return i->nameView() == name; });
    }
    // The same for a child whose name hasName(child) confirms.
    template <class HasName>
    Item* _findChild(const Item* parent, uint32_t hash, HasName hasName) const {
        if (m_paths.isAbsent(hash)) {
            return nullptr;
        }
        return m_paths.find(hash, [parent, hasName](const Item* item) {
            return item->parent() == parent && hasName(item);
        });
    }

    // findChildLike() in the list that the hint has, whatever that list has become.
    Item* _findNear(const Item* parent, const Item& like, ChildHint* hint) const {
        constexpr size_t kReach = 2; // places: one child may be left out
        const size_t size = hint->children ? hint->children->size() : 0;
        for (size_t place = hint->place; place < size && place < hint->place + kReach; ++place) {
            Item* child = m_items.at(hint->children->indexAt(place) & ~kNewMark);
            if (child->parent() == parent && child->hasNameOf(like)) [[likely]] {
                hint->place = place + 1;
                return child;
            }
        }
        return nullptr;
    }

    // Everything below runs under m_mutex.
    void _setValue(Item* item, ItemType type, uint64_t payload);
    void _overwrite(Item* item, ItemType type, uint64_t payload);
    static Value _replaceValue(Item* item, ItemType type, uint64_t payload);
    // What a new item gets; a zero payload is the neutral value of every type.
    struct Content {
        ItemType type;
        uint64_t payload = 0;
    };
    static constexpr uint32_t kNoItem = ItemPool::kNoItem;
    // Marks an index, of 31 bits, as that of a new item, in a list that is being put together.
    static constexpr uint32_t kNewMark = 1u << 31;

    Item* _findOrCreate(Item* parent, std::string_view path, Content content, bool* isNew);
    Item* _createBelow(Item* anchor, std::string_view path, Content content);
    Item* _createChild(Item* parent, std::string_view name, uint32_t hash, Content content);
    void _discardChain(Item* last, const Item* anchor, uint32_t topIndex);
    uint32_t _newChild(const Branch* branch, std::string_view name, Content content);
    uint32_t _newItem(const Branch* branch, std::string_view name, uint32_t hash, Content content);
    Branch* _newBranch(Item* owner);
    void _freeBranch(Branch* branch);
    Branch* _roomForChild(Item* parent);
    Branch* _makeRoomForChild(Item* parent, Branch* branch);
    static ChildList* _replaceChildren(Branch* branch, ChildList* children);
    void _attach(Item* parent, Branch* branch, uint32_t index);
    void _list(Branch* branch, uint32_t index);
    void _letGo(const Value& value);
    bool _arrangeElements(Item* array, size_t length, ItemType type);
    ChildList* _listElements(Branch* branch, size_t length, ItemType type);
    size_t _putExisting(ChildList* elements, const Branch* branch, size_t length);
    void _detach(Branch* branch, const Item* item);
    void _destroyItems(Item* top);
    void _destroyChildren(Branch* branch);
    void _freeContents(Item* item);

    mutable StringStore m_strings;
    PathTable m_paths{m_items};
    ItemPool m_items;
    uint32_t m_nextRootHash = 0;
    ChildListPool m_childLists;
    RecycledBlocks m_blocks; // branches and long names
    std::mutex m_lentMutex;
    RecycledBlocks m_lentBlocks; // of no kind: nobody looks at one that was given back
    ChangeMutex m_mutex;
};

template <class PayloadAt>
bool Tree::setArray(Item* item, size_t length, ItemType type, PayloadAt payloadAt) {
    const std::lock_guard<ChangeMutex> lock(m_mutex);
    if (!_arrangeElements(item, length, type)) {
        return false;
    }
    ChildList* elements = length > 0 ? _childrenOf(item->read()) : nullptr;
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
