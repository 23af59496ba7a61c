#include "Tree.h"

#include "ElementName.h"

#include <algorithm>
#include <cstdlib>

namespace vorn::dictionary {

namespace {

// Whether a path can name an item: no component is empty.
bool isPossiblePath(std::string_view path) {
    return !path.empty() && path.front() != '/' && path.back() != '/' &&
           path.find("//") == std::string_view::npos;
}

} // namespace

// ---------------------------------------------------------------------------------- creating

Item* Tree::create(Item* parent, const char* path, ItemType type) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    bool isNew = false;
    Item* item = _findOrCreate(parent, path ? path : "", {type}, &isNew);
    if (item && item->type() != type) {
        _setValue(item, type, 0);
    }
    return item;
}

Item* Tree::createWith(Item* parent, const char* path, ItemType type, uint64_t payload) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    bool isNew = false;
    Item* item = _findOrCreate(parent, path ? path : "", {type, payload}, &isNew);
    if (item && !isNew) {
        _setValue(item, type, payload);
    }
    return item;
}

// An item that exists is returned as it is.
Item* Tree::_findOrCreate(Item* parent, std::string_view path, Content content, bool* isNew) {
    if (!parent || content.type >= ItemType::eCount) {
        return nullptr;
    }
    if (Item* item = find(parent, path.data(), path.size())) {
        return item;
    }
    *isNew = true;
    return isPossiblePath(path) ? _createBelow(parent, path, content) : nullptr;
}

Item* Tree::createRoot(const char* name, ItemType type) {
    constexpr uint32_t kStep = 0x9e3779b1u; // odd: every root starts from another state
    if (type >= ItemType::eCount) {
        return nullptr;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_paths.reserve(1)) {
        return nullptr;
    }
    const uint32_t index = _newItem(nullptr, name ? name : "", m_nextRootHash, {type});
    if (index == ItemPool::kNoItem) {
        return nullptr;
    }
    m_nextRootHash += kStep;
    return m_items.at(index);
}

// Creates the item at a path that does not exist yet.
Item* Tree::_createBelow(Item* parent, std::string_view path, Content content) {
    // The longest part of the path that exists, and what is missing below it.
    Item* anchor = nullptr;
    size_t known = path.size();
    while (!anchor) {
        const size_t slash = path.rfind('/', known - 1);
        known = slash == std::string_view::npos ? 0 : slash;
        anchor = find(parent, path.data(), known);
    }
    const std::string_view missing = path.substr(known == 0 ? 0 : known + 1);
    const auto separators = std::count(missing.begin(), missing.end(), '/');
    if (!m_paths.reserve(static_cast<size_t>(separators) + 1)) {
        return nullptr;
    }

    // A value on the way keeps what it holds until all that is needed is there.
    const bool isDictionary = anchor->type() == ItemType::eDictionary;
    ChildList* siblings = isDictionary ? _roomForChild(anchor) : m_childLists.allocate(1);
    if (!siblings) {
        return nullptr;
    }
    uint32_t topIndex = ItemPool::kNoItem;
    Item* item = _createChain(anchor, missing, content, &topIndex);
    if (!item) {
        if (!isDictionary) {
            m_childLists.deallocate(siblings);
        }
        return nullptr;
    }
    siblings->put(siblings->size(), topIndex);
    siblings->setSize(siblings->size() + 1);
    if (!isDictionary) {
        _setValue(anchor, ItemType::eDictionary, reinterpret_cast<uintptr_t>(siblings));
    }
    return item;
}

// Creates an item for each name of the path, each below the one before, the first below the
// anchor; the anchor does not list it yet. The last one, or null and nothing left behind.
Item* Tree::_createChain(Item* anchor, std::string_view path, Content content, uint32_t* topIndex) {
    Item* item = anchor;
    for (size_t begin = 0; begin < path.size();) {
        const size_t end = std::min(path.find('/', begin), path.size());
        const Content own = end == path.size() ? content : Content{ItemType::eDictionary};
        ChildList* siblings = item == anchor ? nullptr : _roomForChild(item);
        uint32_t index = ItemPool::kNoItem;
        if (siblings || item == anchor) {
            index = _newChild(item, path.substr(begin, end - begin), own);
        }
        if (index == ItemPool::kNoItem) {
            if (item != anchor) {
                _destroyItems(m_items.at(*topIndex));
            }
            return nullptr;
        }
        if (siblings) {
            siblings->put(0, index);
            siblings->setSize(1);
        } else {
            *topIndex = index;
        }
        item = m_items.at(index);
        begin = end + 1;
    }
    return item;
}

uint32_t Tree::_newChild(Item* parent, std::string_view name, Content content) {
    const uint32_t start = extendHashBySeparator(parent->hash.load(std::memory_order_relaxed));
    return _newItem(parent, name, extendHash(start, name.data(), name.size()), content);
}

// A new item, in the table but in no list of children; kNoItem when memory is exhausted. REQUIRES:
// room reserved in the table.
uint32_t Tree::_newItem(Item* parent, std::string_view name, uint32_t hash, Content content) {
    const uint32_t index = m_items.allocate();
    if (index == ItemPool::kNoItem) {
        return index;
    }
    Item* item = m_items.at(index);
    item->parent = parent;
    if (!_setName(item, name, content.type)) {
        m_items.deallocate(index);
        return ItemPool::kNoItem;
    }
    if (!parent) {
        item->farName.root = index;
    }
    const Value lastLife = item->read();
    item->payload.store(content.payload, std::memory_order_relaxed);
    item->head.store(lastLife.nextHead(content.type), std::memory_order_release);
    item->hash.store(hash, std::memory_order_release);
    m_paths.insert(index);
    return index;
}

// Keeps the whole path of a dictionary with its name. False when memory is exhausted.
bool Tree::_setName(Item* item, std::string_view name, ItemType type) {
    if (name.size() > Item::kMaxNameLength) {
        return false;
    }
    const Item* parent = item->parent;
    const bool isPathKept = type == ItemType::eDictionary && parent && parent->hasPath() &&
                            parent->farName.pathLength + 1 + name.size() <= Item::kMaxKeptPath;
    if (parent && !isPathKept && name.size() <= Item::kInlineNameCapacity) {
        item->setInlineName(name);
        return true;
    }
    const std::string_view parentPath = isPathKept ? parent->path() : std::string_view();
    if (!item->setFarName(name, parentPath, isPathKept)) {
        return false;
    }
    if (isPathKept) {
        item->farName.root = parent->farName.root;
    }
    return true;
}

// The child list of a dictionary, with room for one more entry; null when memory is exhausted.
ChildList* Tree::_roomForChild(Item* dictionary) {
    Value value = dictionary->read();
    ChildList* list = value.children();
    const size_t size = list ? list->size() : 0;
    if (list && size < list->capacity()) {
        return list;
    }
    ChildList* larger = m_childLists.allocate(size + 1);
    if (!larger) {
        return nullptr;
    }
    for (size_t i = 0; i < size; ++i) {
        larger->put(i, list->indexAt(i));
    }
    larger->setSize(size);
    // The lock keeps a dictionary as it is: this takes one step.
    dictionary->exchange(
        value, {value.nextHead(ItemType::eDictionary), reinterpret_cast<uintptr_t>(larger)});
    m_childLists.deallocate(list);
    return larger;
}

// -------------------------------------------------------------------------------- overwriting

// Stores type and payload, whatever the item held, and lets go of what that was.
void Tree::_setValue(Item* item, ItemType type, uint64_t payload) {
    const Value before = _replaceValue(item, type, payload);
    if (before.type() == ItemType::eString) {
        m_strings.retire(before.payload);
    } else if (before.type() == ItemType::eDictionary) {
        _destroyChildren(before.children());
    }
}

Value Tree::_replaceValue(Item* item, ItemType type, uint64_t payload) {
    Value value = item->read();
    while (!item->exchange(value, {value.nextHead(type), payload})) {
        // Another thread stored a value of the same type in between.
    }
    return value;
}

// ------------------------------------------------------------------------------------- arrays

// No two children have one name, so n names below "n" are all of them.
size_t Tree::arrayLength(const Item* item) const {
    const size_t length = childCount(item);
    for (size_t i = 0; i < length; ++i) {
        const Item* element = child(item, i);
        if (!element || elementIndexOf(element->nameView()) >= length) {
            return 0;
        }
    }
    return length;
}

// Makes item a dictionary whose children are "0" to length - 1, in this order: those that exist
// stay, missing ones are created with the type, all others are destroyed. False, with nothing
// changed, when memory is exhausted.
bool Tree::_arrangeElements(Item* array, size_t length, ItemType type) {
    if (_hasElementsInOrder(array, length)) {
        return true;
    }
    ChildList* elements = nullptr;
    if (length > 0) {
        elements = _listElements(array, length, type);
        if (!elements) {
            return false;
        }
    }
    const Value before =
        _replaceValue(array, ItemType::eDictionary, reinterpret_cast<uintptr_t>(elements));
    if (before.type() == ItemType::eString) {
        m_strings.retire(before.payload);
    } else if (before.type() == ItemType::eDictionary && before.children()) {
        // Only what the new list does not keep goes away with the old one.
        ChildList* children = before.children();
        size_t dropped = 0;
        for (size_t i = 0; i < children->size(); ++i) {
            const uint32_t index = children->indexAt(i);
            if (elementIndexOf(m_items.at(index)->nameView()) >= length) {
                children->put(dropped++, index);
            }
        }
        children->setSize(dropped);
        _destroyChildren(children);
    }
    return true;
}

// Whether the children are exactly the elements of an array of that length, in order.
bool Tree::_hasElementsInOrder(const Item* array, size_t length) const {
    if (array->type() != ItemType::eDictionary || childCount(array) != length) {
        return false;
    }
    ChildList* children = array->read().children();
    ElementName name;
    for (size_t i = 0; i < length; ++i, name.next()) {
        // Both hold the digits at the end, behind zeros.
        const Item* element = m_items.at(children->indexAt(i));
        if (element->isFar ? element->nameView() != name.view()
                           : std::memcmp(element->inlineName, name.paddedText(),
                                         sizeof(element->inlineName)) != 0) {
            return false;
        }
    }
    return true;
}

// A list of the elements of an array: existing children where there are any, else new ones. Null,
// with nothing left behind, when memory is exhausted. REQUIRES: length > 0.
ChildList* Tree::_listElements(Item* array, size_t length, ItemType type) {
    ChildList* elements = m_childLists.allocate(length);
    if (!elements) {
        return nullptr;
    }
    for (size_t i = 0; i < length; ++i) {
        elements->put(i, ItemPool::kNoItem);
    }
    const size_t existing = _putExisting(elements, array, length, true);
    bool isComplete = m_paths.reserve(length - existing);
    ElementName name;
    for (size_t i = 0; i < length && isComplete; ++i, name.next()) {
        if (elements->indexAt(i) == ItemPool::kNoItem) {
            elements->put(i, _newChild(array, name.view(), {type}));
            isComplete = elements->indexAt(i) != ItemPool::kNoItem;
        }
    }
    if (isComplete) {
        elements->setSize(length);
        return elements;
    }
    _putExisting(elements, array, length, false);
    for (size_t i = 0; i < length; ++i) {
        if (elements->indexAt(i) != ItemPool::kNoItem) {
            _destroyItems(m_items.at(elements->indexAt(i)));
        }
    }
    m_childLists.deallocate(elements);
    return nullptr;
}

// Puts the children that are elements into their places in a list, or takes them out again; how
// many there are.
size_t Tree::_putExisting(ChildList* elements, const Item* array, size_t length, bool isPut) {
    size_t existing = 0;
    const Value value = array->read();
    for (size_t i = 0; i < childCount(array); ++i) {
        const uint32_t index = value.children()->indexAt(i);
        const size_t place = elementIndexOf(m_items.at(index)->nameView());
        if (place < length) {
            elements->put(place, isPut ? index : ItemPool::kNoItem);
            ++existing;
        }
    }
    return existing;
}

// --------------------------------------------------------------------------------- destroying

void Tree::destroy(Item* item) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (item->parent) {
        _detach(item);
    }
    _destroyItems(item);
}

// Takes an item out of its parent's list; the order of the others stays.
void Tree::_detach(const Item* item) {
    ChildList* siblings = item->parent->read().children();
    const size_t size = siblings->size();
    // Mostly the first or the last ones are destroyed: look from both ends.
    size_t place = 0;
    for (; m_items.at(siblings->indexAt(place)) != item; ++place) {
        if (m_items.at(siblings->indexAt(size - 1 - place)) == item) {
            place = size - 1 - place;
            break;
        }
    }
    for (; place + 1 < size; ++place) {
        siblings->put(place, siblings->indexAt(place + 1));
    }
    siblings->setSize(size - 1);
}

// Destroys an item that no list holds any more, and all below it, children before parents.
void Tree::_destroyItems(Item* top) {
    for (Item* item = top;;) {
        const Value value = item->read();
        ChildList* children = value.type() == ItemType::eDictionary ? value.children() : nullptr;
        if (children && children->size() > 0) {
            const size_t last = children->size() - 1;
            item = m_items.at(children->indexAt(last));
            children->setSize(last);
            continue;
        }
        Item* parent = item->parent;
        const uint32_t index = m_paths.remove(item);
        _freeContents(item);
        m_items.deallocate(index);
        if (item == top) {
            return;
        }
        item = parent;
    }
}

// Destroys what a list holds and gives the list back. Null is ignored.
void Tree::_destroyChildren(ChildList* children) {
    if (!children) {
        return;
    }
    for (size_t size = children->size(); size > 0; --size) {
        Item* item = m_items.at(children->indexAt(size - 1));
        children->setSize(size - 1);
        _destroyItems(item);
    }
    m_childLists.deallocate(children);
}

// Marks an item as dead and frees what it owns.
void Tree::_freeContents(Item* item) {
    const Value value = _replaceValue(item, kDeadType, 0);
    if (value.type() == ItemType::eString) {
        m_strings.retire(value.payload);
    } else if (value.type() == ItemType::eDictionary) {
        m_childLists.deallocate(value.children());
    }
    // No lookup that begins from here on takes the item for what it was.
    item->hash.store(~item->hash.load(std::memory_order_relaxed), std::memory_order_release);
    item->freeName();
}

void Tree::release() {
    for (uint32_t index = ItemPool::kFirstIndex; index < m_items.endIndex(); ++index) {
        if (m_items.at(index)->type() != kDeadType) {
            _freeContents(m_items.at(index));
        }
    }
    m_strings.release();
    m_childLists.release();
    m_paths.release();
    m_items.release();
}

} // namespace vorn::dictionary
