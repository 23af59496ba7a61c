// The item: one record of 48 bytes for a value or a dictionary.
//
// Threads: head and payload change together in one atomic step, so a reader that sees the same
// head before and after it reads the payload has a value of one write. Between threads that do
// not hold the tree's lock, only the payload changes, and only while the type stays as it is; the
// type, and the child list of a dictionary, change under the lock and raise the version. Parent
// and name are set before the item is published and stay until it is destroyed.
#pragma once

#include "PathHash.h"

#include <vorn/dictionary/IDictionary.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace vorn::dictionary {

struct ChildList;

// Type and payload as they stood together at one moment.
struct Value {
    static constexpr uint64_t kTypeMask = 0xff;
    static constexpr uint64_t kVersionStep = 0x100;

    uint64_t head;    // type in the low byte, version above it
    uint64_t payload; // by type: 0 or 1, the integer, the bits of the float, a string, a child list

    ItemType type() const {
        return static_cast<ItemType>(head & kTypeMask);
    }
    ChildList* children() const {
        return reinterpret_cast<ChildList*>(payload); // NOLINT(performance-no-int-to-ptr)
    }
    // The head of the next version, with the given type.
    uint64_t nextHead(ItemType nextType) const {
        return (head & ~kTypeMask) + kVersionStep + static_cast<uint64_t>(nextType);
    }
};

// The type of an item that was destroyed; no query reports it.
constexpr ItemType kDeadType = static_cast<ItemType>(7);

// Which bytes of the two words that an inline name lies in belong to a name of each length.
struct NameMasks {
    uint64_t first; // of the bytes 0 to 7 of the field
    uint64_t last;  // of the bytes 7 to 14
};
inline constexpr std::array<NameMasks, 16> kNameMasks = [] {
    std::array<NameMasks, 16> masks{};
    for (size_t length = 0; length < 16; ++length) {
        const size_t beyond = length > 7 ? length - 7 : 0;
        masks[length] = {kLastBytes[beyond].mask, kLastBytes[length < 8 ? length : 8].mask};
    }
    return masks;
}();

struct alignas(16) Item {
    static constexpr size_t kInlineNameCapacity = 15;
    static constexpr size_t kMaxNameLength = 0x7fffffff;
    static constexpr size_t kMaxKeptPath = 255;
    static constexpr size_t kTextPadding = 8; // readable bytes in front of a text on the heap

    // A name that lies on the heap. Dictionaries whose path is not too long keep the whole path
    // there, of which the name is the end: what lies below them is then told from its likes by one
    // comparison. Roots have an empty path.
    struct FarName {
        char* name;
        uint32_t pathLength; // 0: no path kept
        uint32_t root;       // index of the root that the path starts from
    };

    std::atomic<uint64_t> head;
    std::atomic<uint64_t> payload;
    Item* parent;
    std::atomic<uint32_t> hash; // of the path; published last, so it vouches for the fields above
    uint32_t nameLength : 31;
    uint32_t isFar : 1;
    union {
        // Ends at the end, zero-terminated, with zeros in front: the last bytes of any two names
        // lie in the same places.
        char inlineName[kInlineNameCapacity + 1];
        FarName farName;
    };

    const char* name() const {
        return isFar ? farName.name : inlineName + kInlineNameCapacity - nameLength;
    }
    std::string_view nameView() const {
        return {name(), nameLength};
    }
    bool isRoot() const {
        return !parent;
    }
    // Whether path() is known.
    bool hasPath() const {
        return isFar && (farName.pathLength > 0 || isRoot());
    }
    // From below the root. REQUIRES: hasPath().
    std::string_view path() const {
        return {farName.name + nameLength - farName.pathLength, farName.pathLength};
    }

    // REQUIRES: the length fits.
    void setInlineName(std::string_view text) {
        isFar = 0;
        nameLength = static_cast<uint32_t>(text.size());
        std::memset(inlineName, 0, sizeof(inlineName));
        text.copy(inlineName + kInlineNameCapacity - text.size(), text.size());
    }

    // Puts the name on the heap, behind the path of the parent if that is given. False when
    // memory is exhausted.
    bool setFarName(std::string_view text, std::string_view parentPath, bool isPathKept) {
        const size_t prefix = isPathKept && !parentPath.empty() ? parentPath.size() + 1 : 0;
        const size_t length = prefix + text.size();
        auto* block = static_cast<char*>(std::malloc(kTextPadding + length + 1));
        if (!block) {
            return false;
        }
        char* path = block + kTextPadding;
        if (prefix > 0) {
            parentPath.copy(path, parentPath.size());
            path[prefix - 1] = '/';
        }
        text.copy(path + prefix, text.size());
        path[length] = '\0';
        isFar = 1;
        nameLength = static_cast<uint32_t>(text.size());
        farName = {path + prefix, isPathKept ? static_cast<uint32_t>(length) : 0, 0};
        return true;
    }

    // Leaves the item without a name.
    void freeName() {
        if (isFar) {
            const size_t beforeName = farName.pathLength > 0 ? farName.pathLength - nameLength : 0;
            std::free(farName.name - beforeName - kTextPadding);
        }
        isFar = 0;
        nameLength = 0;
    }

    Value read() const {
        for (;;) {
            const uint64_t before = head.load(std::memory_order_acquire);
            const uint64_t bits = payload.load(std::memory_order_acquire);
            if (head.load(std::memory_order_acquire) == before) [[likely]] {
                return {before, bits};
            }
        }
    }

    ItemType type() const {
        return static_cast<ItemType>(head.load(std::memory_order_acquire) & Value::kTypeMask);
    }

    // Stores desired if the value is still the one expected; else reads it anew.
    bool exchange(Value& expected, Value desired) {
        __extension__ typedef unsigned __int128 Pair __attribute__((may_alias));
        const auto pair = [](Value value) {
            return static_cast<Pair>(value.payload) << 64 | value.head;
        };
        if (__sync_bool_compare_and_swap(reinterpret_cast<Pair*>(&head), pair(expected),
                                         pair(desired))) {
            return true;
        }
        expected = read();
        return false;
    }

    // Whether the name is what ends at `end` in a text of that length. REQUIRES: the name is not
    // longer than that.
    bool nameEndsAt(const char* text, size_t end, size_t length) const {
        if (isFar) {
            return std::memcmp(text + end - nameLength, farName.name, nameLength) == 0;
        }
        const NameMasks& masks = kNameMasks[nameLength];
        const uint64_t last =
            loadWordEndingAt(text, end, length) ^ loadWord(inlineName + kInlineNameCapacity - 8);
        if (end >= kInlineNameCapacity) [[likely]] {
            const uint64_t first =
                loadWord(text + end - kInlineNameCapacity) ^ loadWord(inlineName);
            return ((last & masks.last) | (first & masks.first)) == 0;
        }
        return (last & masks.last) == 0 &&
               (nameLength <= 8 || loadWord(text + end - nameLength) == loadWord(name()));
    }

    // Whether the path is the first `end` bytes of a text of that length. REQUIRES: hasPath().
    bool pathIs(const char* text, size_t end, size_t length) const {
        if (farName.pathLength != end) {
            return false;
        }
        const char* own = path().data();
        if (end < 8) {
            const uint64_t difference =
                loadWordEndingAt(text, end, length) ^ loadWord(own + end - 8);
            return (difference & kLastBytes[end].mask) == 0;
        }
        size_t position = 0;
        for (; end - position > 16; position += 16) {
            if ((loadWord(text + position) ^ loadWord(own + position)) |
                (loadWord(text + position + 8) ^ loadWord(own + position + 8))) {
                return false;
            }
        }
        // What is left, at most 16 bytes, with some of those before.
        const size_t next = end - position > 8 ? position : end - 8;
        return ((loadWord(text + next) ^ loadWord(own + next)) |
                (loadWord(text + end - 8) ^ loadWord(own + end - 8))) == 0;
    }

    // Whether the item is what path, of the given length, names below base. REQUIRES: length > 0.
    bool isAt(const Item* base, const char* path, size_t length) const {
        const Item* item = this;
        size_t end = length;
        for (;;) {
            if (item->hasPath() && base->isRoot()) {
                return item->farName.root == base->farName.root && item->pathIs(path, end, length);
            }
            if (item->nameLength - 1u >= end || !item->nameEndsAt(path, end, length)) {
                return false; // a name is never empty; one that is (a root's) matches nothing
            }
            end -= item->nameLength;
            item = item->parent;
            if (end == 0) {
                return item == base;
            }
            if (!item || path[--end] != '/') {
                return false;
            }
        }
    }
};

static_assert(sizeof(Item) == 48, "one item, all told");
static_assert(offsetof(Item, payload) == offsetof(Item, head) + 8, "changed in one step");

} // namespace vorn::dictionary
