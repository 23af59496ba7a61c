#include "Tree.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

namespace vorn::dictionary {

namespace {

uint64_t payloadOf(const Branch* branch) {
    return reinterpret_cast<uintptr_t>(branch);
}

} // namespace

// ---------------------------------------------------------------------------------- creating

Item* Tree::create(Item* parent, const char* path, ItemType type) {
    const std::lock_guard<ChangeMutex> lock(m_mutex);
    bool isNew = false;
    Item* item = _findOrCreate(parent, path ? path : "", {type}, &isNew);
    if (item && item->type() != type) {
        _setValue(item, type, 0);
    }
    return item;
}

Item* Tree::createWith(Item* parent, const char* path, ItemType type, uint64_t payload) {
    const std::lock_guard<ChangeMutex> lock(m_mutex);
    bool isNew = false;
    Item* item = _findOrCreate(parent, path, {type, payload}, &isNew);
    if (item && !isNew) {
        _overwrite(item, type, payload);
    }
    return item;
}

// Flat, as what a merge that creates does most.
[[gnu::flatten]] Item* Tree::createChildLike(
    Item* parent, const Item& like, uint32_t hash, ItemType type, uint64_t payload) {
    const std::lock_guard<ChangeMutex> lock(m_mutex);
    Item* item = findChildLike(parent, like, hash);
    if (!item) {
        return _createChild(parent, like.nameView(), hash, {type, payload});
    }
    _overwrite(item, type, payload);
    return item;
}

// Mostly that is all but the last name; else the names are looked up one by one.
Item* Tree::findAnchor(Item* base, std::string_view path, size_t* length) const {
    const size_t lastSlash = path.rfind('/');
    *length = lastSlash == std::string_view::npos ? 0 : lastSlash;
    Item* anchor = find(base, path.data(), *length);
    if (anchor) {
        return anchor;
    }
    anchor = base;
    *length = 0;
    for (size_t begin = 0; begin <= lastSlash;) {
        const size_t end = path.find('/', begin);
        const std::string_view name = path.substr(begin, end - begin);
        Item* next = name.empty() ? nullptr : _findChild(anchor, anchor->childHash(name), name);
        if (!next) {
            break;
        }
        anchor = next;
        *length = end;
        begin = end + 1;
    }
    return anchor;
}

// An item that exists is returned as it is.
Item* Tree::_findOrCreate(Item* parent, std::string_view path, Content content, bool* isNew) {
    if (!parent || content.type >= ItemType::eCount) {
        return nullptr;
    }
    if (path.empty()) {
        return parent;
    }
    size_t known = 0;
    Item* anchor = findAnchor(parent, path, &known);
    const std::string_view missing = path.substr(known == 0 ? 0 : known + 1);
    if (missing.empty()) {
        return nullptr;
    }
    if (missing.find('/') == std::string_view::npos) {
        const uint32_t hash = anchor->childHash(missing);
        Item* item = _findChild(anchor, hash, missing);
        *isNew = !item;
        return item ? item : _createChild(anchor, missing, hash, content);
    }
    *isNew = true;
    return isPossiblePath(missing) ? _createBelow(anchor, missing, content) : nullptr;
}

Item* Tree::createRoot(const char* name, ItemType type) {
    constexpr uint32_t kStep = 0x9e3779b1u; // odd: every root starts from another state
    if (type >= ItemType::eCount) {
        return nullptr;
    }
    const std::lock_guard<ChangeMutex> lock(m_mutex);
    if (!m_paths.reserve(1)) {
        return nullptr;
    }
    const uint32_t index = _newItem(&Branch::kOfRoots, name ? name : "", m_nextRootHash, {type});
    if (index == kNoItem) {
        return nullptr;
    }
    m_nextRootHash += kStep;
    m_paths.insert(index);
    return m_items.at(index);
}

// Creates the child of that name, which does not exist yet; null when memory is exhausted.
Item* Tree::_createChild(Item* parent, std::string_view name, uint32_t hash, Content content) {
    Branch* branch = m_paths.reserve(1) ? _roomForChild(parent) : nullptr;
    if (!branch) {
        return nullptr;
    }
    const uint32_t index = _newItem(branch, name, hash, content);
    if (index == kNoItem) {
        _attach(parent, branch, kNoItem);
        return nullptr;
    }
    m_paths.insert(index); // first: whoever sees it in the list can also find it
    _attach(parent, branch, index);
    return m_items.at(index);
}

// Creates the item at a possible path of several names, of which the first does not exist yet;
// null, with nothing changed, when memory is exhausted.
Item* Tree::_createBelow(Item* anchor, std::string_view path, Content content) {
    const auto separators = std::count(path.begin(), path.end(), '/');
    const bool hasRoom = m_paths.reserve(static_cast<size_t>(separators) + 1);
    Branch* top = hasRoom ? _roomForChild(anchor) : nullptr;
    if (!top) {
        return nullptr;
    }
    Item* item = anchor;
    uint32_t topIndex = ItemPool::kNoItem;
    for (size_t begin = 0; begin < path.size();) {
        const size_t end = std::min(path.find('/', begin), path.size());
        const Content own = end == path.size() ? content : Content{ItemType::eDictionary};
        const std::string_view name = path.substr(begin, end - begin);
        Branch* branch = item == anchor ? top : _roomForChild(item);
        const uint32_t index = branch ? _newChild(branch, name, own) : kNoItem;
        if (index == kNoItem) {
            _discardChain(item, anchor, topIndex);
            _attach(anchor, top, kNoItem);
            return nullptr;
        }
        if (item == anchor) {
            topIndex = index;
        } else {
            _list(branch, index);
        }
        item = m_items.at(index);
        begin = end + 1;
    }
    // Nothing can fail from here on.
    m_paths.insert(topIndex);
    for (const Item* parent = m_items.at(topIndex); parent != item;) {
        const uint32_t index = _childrenOf(parent->read())->indexAt(0);
        m_paths.insert(index);
        parent = m_items.at(index);
    }
    _attach(anchor, top, topIndex);
    return item;
}

// Takes back new items that are in no table yet: the last of a chain and those above it, up to the
// anchor, which does not list the top one.
void Tree::_discardChain(Item* last, const Item* anchor, uint32_t topIndex) {
    for (Item* item = last; item != anchor;) {
        Item* parent = item->parent();
        const bool isTop = parent == anchor;
        const uint32_t index = isTop ? topIndex : _childrenOf(parent->read())->indexAt(0);
        _freeContents(item);
        m_items.deallocate(index);
        item = parent;
    }
}

uint32_t Tree::_newChild(const Branch* branch, std::string_view name, Content content) {
    const uint32_t hash = extendHash(branch->childHash, name.data(), name.size());
    return _newItem(branch, name, hash, content);
}

// A new item, in no table and no list of children yet; kNoItem when memory is exhausted.
uint32_t
Tree::_newItem(const Branch* branch, std::string_view name, uint32_t hash, Content content) {
    const uint32_t index = m_items.allocate();
    if (index == kNoItem) {
        return kNoItem;
    }
    Item* item = m_items.at(index);
    item->branch = branch;
    if (name.size() <= Item::kInlineNameCapacity) {
        item->setInlineName(name);
    } else {
        const bool fits = name.size() <= Item::kMaxNameLength;
        auto* block = static_cast<char*>(fits ? m_blocks.allocate(name.size() + 1) : nullptr);
        if (!block) {
            m_items.deallocate(index);
            return kNoItem;
        }
        item->setFarName(block, name);
    }
    const Value lastLife{item->head.load(std::memory_order_relaxed), 0}; // nobody else changes it
    item->payload.store(content.payload, std::memory_order_relaxed);
    item->head.store(lastLife.nextHead(content.type), std::memory_order_release);
    item->hash.store(hash, std::memory_order_release);
    return index;
}

// ----------------------------------------------------------------------------------- branches

// The branch of a dictionary's children, not known to it yet; null when memory is exhausted.
Branch* Tree::_newBranch(Item* owner) {
    const Branch& above = *owner->branch;
    const size_t pathLength = above.hasPath() ? above.pathLength + owner->nameLength() + 1 : 0;
    const bool isKept = owner->isRoot() || (above.hasPath() && pathLength <= Branch::kMaxKeptPath);
    void* memory = m_blocks.allocate(sizeof(Branch) + (isKept ? pathLength : 0));
    if (!memory) {
        return nullptr;
    }
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.PlacementNew): a block is as large as was asked for
    auto* branch = new (memory) Branch{owner->isRoot() ? owner : above.root,
                                       isKept ? pathLength : Branch::kNoPath,
                                       owner,
                                       {nullptr},
                                       {0},
                                       owner->childHash()};
    if (isKept && !owner->isRoot()) {
        char* end = std::copy_n(above.path(), above.pathLength, branch->path());
        end += owner->nameView().copy(end, owner->nameLength());
        *end = '/';
    }
    return branch;
}

void Tree::_freeBranch(Branch* branch) {
    m_childLists.deallocate(branch->children.load(std::memory_order_relaxed));
    m_blocks.deallocate(branch);
}

// The branch that parent has, or for a value is to get, with room for one more child; null when
// memory is exhausted. To be followed by _attach.
inline Branch* Tree::_roomForChild(Item* parent) {
    Branch* branch = _branchOf(parent->read());
    const ChildList* list = branch ? branch->children.load(std::memory_order_relaxed) : nullptr;
    return list && list->size() < list->capacity() ? branch : _makeRoomForChild(parent, branch);
}

// The same when there is no room yet; branch may be null.
Branch* Tree::_makeRoomForChild(Item* parent, Branch* branch) {
    const bool isNew = !branch;
    branch = isNew ? _newBranch(parent) : branch;
    if (!branch) {
        return nullptr;
    }
    ChildList* list = branch->children.load(std::memory_order_relaxed);
    const size_t size = list ? list->size() : 0;
    ChildList* larger = m_childLists.allocate(size + 1);
    if (!larger) {
        if (isNew) {
            _freeBranch(branch);
        }
        return nullptr;
    }
    for (size_t i = 0; i < size; ++i) {
        larger->put(i, list->indexAt(i));
    }
    larger->setSize(size);
    m_childLists.deallocate(_replaceChildren(branch, larger));
    Value value = parent->read();
    if (isNew && value.type() == ItemType::eDictionary) {
        // The lock keeps a dictionary as it is: this takes one step.
        parent->exchange(value, {value.nextHead(ItemType::eDictionary), payloadOf(branch)});
    }
    return branch;
}

// Gives the branch another list of children and returns the one before, for readers to find that
// they must look again before it is used for anything else.
ChildList* Tree::_replaceChildren(Branch* branch, ChildList* children) {
    ChildList* before = branch->children.exchange(children, std::memory_order_acq_rel);
    if (before) { // else the owner does not know of it yet
        Value value = branch->owner->read();
        branch->owner->exchange(value, {value.nextHead(value.type()), value.payload});
    }
    return before;
}

// Ends what _roomForChild began: with the new child, or kNoItem when there is none.
void Tree::_attach(Item* parent, Branch* branch, uint32_t index) {
    const bool isDictionary = parent->type() == ItemType::eDictionary;
    if (index != kNoItem) {
        _list(branch, index);
        if (!isDictionary) {
            _setValue(parent, ItemType::eDictionary, payloadOf(branch));
        }
    } else if (!isDictionary) {
        _freeBranch(branch);
    }
}

// Puts the item behind the other children. REQUIRES: there is room.
void Tree::_list(Branch* branch, uint32_t index) {
    ChildList* children = branch->children.load(std::memory_order_relaxed);
    const size_t size = children->size();
    children->put(size, index);
    children->setSize(size + 1);
    const bool isInOrder = branch->inOrder.load(std::memory_order_relaxed) == size;
    if (isInOrder && elementIndexOf(m_items.at(index)->nameView()) == size) {
        branch->inOrder.store(static_cast<uint32_t>(size + 1), std::memory_order_release);
    }
}

// -------------------------------------------------------------------------------- overwriting

// Stores type and payload, whatever the item held, and lets go of what that was.
void Tree::_setValue(Item* item, ItemType type, uint64_t payload) {
    _letGo(_replaceValue(item, type, payload));
}

Value Tree::exchangeValue(Item* item, ItemType type, uint64_t payload) {
    Value value = item->read();
    while (value.type() == type && type != ItemType::eDictionary) {
        if (item->exchange(value, {value.head, payload})) {
            return value;
        }
    }
    const std::lock_guard<ChangeMutex> lock(m_mutex);
    const Value now = item->read();
    return now.type() == ItemType::eDictionary ? now : _replaceValue(item, type, payload);
}

// The same as _setValue, but a dictionary that is to be one stays as it is.
void Tree::_overwrite(Item* item, ItemType type, uint64_t payload) {
    if (type != ItemType::eDictionary || item->type() != type) {
        _setValue(item, type, payload);
    }
}

Value Tree::_replaceValue(Item* item, ItemType type, uint64_t payload) {
    Value value = item->read();
    while (!item->exchange(value, {value.nextHead(type), payload})) {
        // Another thread stored a value of the same type in between.
    }
    return value;
}

void Tree::_letGo(const Value& value) {
    if (value.type() == ItemType::eString) {
        m_strings.retire(value.payload);
    } else if (value.type() == ItemType::eDictionary && value.branch()) {
        _destroyChildren(value.branch());
    }
}

// ------------------------------------------------------------------------------------- arrays

// No two children have one name, so n names below "n" are all of them.
size_t Tree::arrayLength(const Item* item) const {
    const size_t length = childCount(item);
    const Branch* branch = _branchOf(item->read());
    if (branch && length > 0 && branch->inOrder.load(std::memory_order_acquire) == length) {
        return length;
    }
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
    const Value before = array->read();
    const bool isDictionary = before.type() == ItemType::eDictionary;
    Branch* branch = isDictionary ? before.branch() : nullptr;
    if (length == 0) {
        if (!isDictionary || branch) {
            _setValue(array, ItemType::eDictionary, 0);
        }
        return true;
    }
    if (branch && childCount(array) == length && branch->inOrder == length) {
        return true;
    }
    const bool isNew = !branch;
    branch = isNew ? _newBranch(array) : branch;
    ChildList* elements = branch ? _listElements(branch, length, type) : nullptr;
    if (!elements) {
        if (branch && isNew) {
            _freeBranch(branch);
        }
        return false;
    }
    ChildList* children = _replaceChildren(branch, elements);
    branch->inOrder.store(static_cast<uint32_t>(length), std::memory_order_release);
    if (isNew) {
        _setValue(array, ItemType::eDictionary, payloadOf(branch));
    }
    if (children) {
        for (size_t i = 0; i < children->size(); ++i) {
            Item* child = m_items.at(children->indexAt(i));
            if (elementIndexOf(child->nameView()) >= length) {
                _destroyItems(child);
            }
        }
        m_childLists.deallocate(children);
    }
    return true;
}

// A list of the elements of an array: existing children where there are any, else new ones. Null,
// with nothing left behind, when memory is exhausted. REQUIRES: length > 0.
ChildList* Tree::_listElements(Branch* branch, size_t length, ItemType type) {
    ChildList* elements = m_childLists.allocate(length);
    if (!elements) {
        return nullptr;
    }
    for (size_t i = 0; i < length; ++i) {
        elements->put(i, kNoItem);
    }
    bool isComplete = m_paths.reserve(length - _putExisting(elements, branch, length));
    ElementName name;
    for (size_t i = 0; i < length && isComplete; ++i, name.next()) {
        if (elements->indexAt(i) == kNoItem) {
            const uint32_t index = _newChild(branch, name.view(), {type});
            isComplete = index != kNoItem;
            elements->put(i, isComplete ? index | kNewMark : kNoItem);
        }
    }
    for (size_t i = 0; i < length; ++i) {
        const uint32_t index = elements->indexAt(i) & ~kNewMark;
        const bool isNew = elements->indexAt(i) != index;
        elements->put(i, index);
        if (isNew && isComplete) {
            m_paths.insert(index);
        } else if (isNew) {
            _freeContents(m_items.at(index));
            m_items.deallocate(index);
        }
    }
    if (!isComplete) {
        m_childLists.deallocate(elements);
        return nullptr;
    }
    elements->setSize(length);
    return elements;
}

// Puts the children that are elements into their places in a list; how many there are.
size_t Tree::_putExisting(ChildList* elements, const Branch* branch, size_t length) {
    ChildList* children = branch->children.load(std::memory_order_relaxed);
    size_t existing = 0;
    for (size_t i = 0; children && i < children->size(); ++i) {
        const uint32_t index = children->indexAt(i);
        const size_t place = elementIndexOf(m_items.at(index)->nameView());
        if (place < length) {
            elements->put(place, index);
            ++existing;
        }
    }
    return existing;
}

// --------------------------------------------------------------------------------- destroying

void Tree::destroy(Item* item) {
    const std::lock_guard<ChangeMutex> lock(m_mutex);
    if (Item* parent = item->parent()) {
        _detach(parent->read().branch(), item);
    }
    _destroyItems(item);
}

// Takes an item out of the list of children; the order of the others stays.
void Tree::_detach(Branch* branch, const Item* item) {
    ChildList* siblings = branch->children.load(std::memory_order_relaxed);
    const size_t size = siblings->size();
    // Mostly the first or the last ones are destroyed: look from both ends.
    size_t place = 0;
    for (; m_items.at(siblings->indexAt(place)) != item; ++place) {
        if (m_items.at(siblings->indexAt(size - 1 - place)) == item) {
            place = size - 1 - place;
            break;
        }
    }
    if (place < branch->inOrder.load(std::memory_order_relaxed)) {
        branch->inOrder.store(static_cast<uint32_t>(place), std::memory_order_release);
    }
    for (; place + 1 < size; ++place) {
        siblings->put(place, siblings->indexAt(place + 1));
    }
    siblings->setSize(size - 1);
}

// Destroys an item that no list holds any more, and all below it, children before parents.
void Tree::_destroyItems(Item* top) {
    for (Item* item = top;;) {
        ChildList* children = _childrenOf(item->read());
        if (children && children->size() > 0) {
            const size_t last = children->size() - 1;
            item = m_items.at(children->indexAt(last));
            children->setSize(last);
            continue;
        }
        Item* parent = item->parent();
        const uint32_t index = m_paths.remove(item);
        _freeContents(item);
        m_items.deallocate(index);
        if (item == top) {
            return;
        }
        item = parent;
    }
}

// Destroys all children and the branch.
void Tree::_destroyChildren(Branch* branch) {
    ChildList* children = branch->children.load(std::memory_order_relaxed);
    for (size_t size = children->size(); size > 0; --size) {
        Item* item = m_items.at(children->indexAt(size - 1));
        children->setSize(size - 1);
        _destroyItems(item);
    }
    _freeBranch(branch);
}

// Marks an item as dead and frees what it owns, but for its children.
void Tree::_freeContents(Item* item) {
    // No lookup that begins from here on takes the item for what it was.
    item->hash.store(~item->hash.load(std::memory_order_relaxed), std::memory_order_release);
    const Value value = _replaceValue(item, kDeadType, 0);
    if (value.type() == ItemType::eString) {
        m_strings.retire(value.payload);
    } else if (value.type() == ItemType::eDictionary && value.branch()) {
        _freeBranch(value.branch());
    }
    if (item->isFar()) {
        m_blocks.deallocate(item->farName);
    }
    item->clearName();
}

void Tree::release() {
    for (uint32_t index = ItemPool::kFirstIndex; index < m_items.endIndex(); ++index) {
        if (m_items.at(index)->type() != kDeadType) {
            _freeContents(m_items.at(index));
        }
    }
    m_strings.release();
    m_childLists.release();
    m_blocks.release();
    m_lentBlocks.release();
    m_paths.release();
    m_items.release();
}

} // namespace vorn::dictionary
