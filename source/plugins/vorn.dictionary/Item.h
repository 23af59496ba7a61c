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

#include <atomic>
#include <cstddef>
#include <cstdint>
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

struct alignas(16) Item {
    static constexpr size_t kInlineNameCapacity = 15;

    std::atomic<uint64_t> head;
    std::atomic<uint64_t> payload;
    Item* parent;
    std::atomic<uint32_t> hash; // of the path; published last, so it vouches for the fields above
    uint32_t nameLength;
    union {
        // Ends at the end, zero-terminated, with zeros in front: the last bytes of any two names
        // lie in the same places.
        char inlineName[kInlineNameCapacity + 1];
        char* longName; // owned by the tree
    };

    bool hasLongName() const {
        return nameLength > kInlineNameCapacity;
    }
    const char* name() const {
        return hasLongName() ? longName : inlineName + kInlineNameCapacity - nameLength;
    }
    std::string_view nameView() const {
        return {name(), nameLength};
    }

    Value read() const {
        for (;;) {
            const uint64_t before = head.load(std::memory_order_acquire);
            const uint64_t bits = payload.load(std::memory_order_acquire);
            if (head.load(std::memory_order_relaxed) == before) [[likely]] {
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

    // REQUIRES: the length fits.
    void setInlineName(std::string_view text) {
        std::memset(inlineName, 0, sizeof(inlineName));
        text.copy(inlineName + kInlineNameCapacity - text.size(), text.size());
    }

    // Whether the name is what ends at `end` in a text of that length. REQUIRES: the name is not
    // longer than that.
    bool nameEndsAt(const char* text, size_t end, size_t length) const {
        if (hasLongName()) [[unlikely]] {
            return std::memcmp(text + end - nameLength, longName, nameLength) == 0;
        }
        const uint64_t difference =
            loadWordEndingAt(text, end, length) ^ loadWord(inlineName + kInlineNameCapacity - 8);
        if (nameLength <= 8) [[likely]] {
            return (difference & kLastBytes[nameLength].mask) == 0;
        }
        return difference == 0 && loadWord(text + end - nameLength) == loadWord(name());
    }

    // Whether the item is what path, of the given length, names below base. REQUIRES: length > 0.
    bool isAt(const Item* base, const char* path, size_t length) const {
        const Item* item = this;
        size_t end = length;
        for (;;) {
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
