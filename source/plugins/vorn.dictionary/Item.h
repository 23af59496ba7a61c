// The item: one cache line for a value or a dictionary; and the branch: what the children
// of one dictionary share.
//
// Threads: head and payload change together in one atomic step, so a reader that sees the same
// head before and after it reads the payload has a value of one write. Between threads that do
// not hold the tree's lock, only the payload changes, and only while the type stays as it is; the
// type, and the child list of a dictionary, change under the lock and raise the version. Branch
// and name are set before the item is published and stay until it is destroyed. Branches and long
// names lie in recycled blocks, so a reader that looks at an item while it is destroyed reads
// memory of the same kind, whose contents it does not take for the item's.
#pragma once

#include "PathHash.h"

#include <vorn/dictionary/IDictionary.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <emmintrin.h>
#include <string_view>

namespace vorn::dictionary {

struct Branch;

// Type and payload as they stood together at one moment.
struct Value {
    static constexpr uint64_t kTypeMask = 0xff;
    static constexpr uint64_t kVersionStep = 0x100;

    uint64_t head;    // type in the low byte, version above it
    uint64_t payload; // by type: 0 or 1, the integer, the bits of the float, a string, a branch

    ItemType type() const {
        return static_cast<ItemType>(head & kTypeMask);
    }
    // What the children of a dictionary share; null while it never had one.
    Branch* branch() const {
        return reinterpret_cast<Branch*>(payload); // NOLINT(performance-no-int-to-ptr)
    }
    // The head of the next version, with the given type.
    uint64_t nextHead(ItemType nextType) const {
        return (head & ~kTypeMask) + kVersionStep + static_cast<uint64_t>(nextType);
    }
};

// The type of an item that was destroyed; no query reports it.
constexpr ItemType kDeadType = static_cast<ItemType>(7);

struct alignas(64) Item {
    static constexpr size_t kInlineNameCapacity = 31;
    static constexpr size_t kMaxNameLength = 0x7fffffff;
    static constexpr uint32_t kFarName = 0x80000000;

    std::atomic<uint64_t> head;
    std::atomic<uint64_t> payload;
    const Branch* branch;       // that it is in; a root is in Branch::kOfRoots
    std::atomic<uint32_t> hash; // of the path; published last, so it vouches for the fields above
    uint32_t nameWord;          // length of the name, and kFarName
    union {
        // The last bytes of the path, zero-terminated, with zeros in front when it is shorter: the
        // name is at the end.
        char pathEnd[kInlineNameCapacity + 1];
        char* farName; // a recycled block, for a name that is longer
    };

    bool isFar() const {
        return (nameWord & kFarName) != 0;
    }
    size_t nameLength() const {
        return nameWord & ~kFarName;
    }
    const char* name() const {
        return isFar() ? farName : pathEnd + kInlineNameCapacity - nameLength();
    }
    std::string_view nameView() const {
        return {name(), nameLength()};
    }
    Item* parent() const;
    bool isRoot() const;

    // Where the hashes of the names below the item continue from.
    uint32_t childHash() const {
        const uint32_t own = hash.load(std::memory_order_relaxed);
        return isRoot() ? own : extendHashBySeparator(own);
    }
    // The hash of the child of that name.
    uint32_t childHash(std::string_view childName) const {
        return extendHash(childHash(), childName.data(), childName.size());
    }

    // Sets a name that fits; the branch must be set.
    void setInlineName(std::string_view text);
    void setFarName(char* block, std::string_view text) {
        std::memcpy(block, text.data(), text.size());
        block[text.size()] = '\0';
        nameWord = static_cast<uint32_t>(text.size()) | kFarName;
        farName = block;
    }
    // Leaves the item without a name.
    void clearName() {
        nameWord = 0;
        std::memset(pathEnd, 0, sizeof(pathEnd));
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

    // Whether the two have the same name.
    bool hasNameOf(const Item& other) const {
        if ((nameWord | other.nameWord) & kFarName) {
            return nameView() == other.nameView();
        }
        const __m128i equal =
            _mm_cmpeq_epi8(_loadBlock(pathEnd + 16), _loadBlock(other.pathEnd + 16));
        const auto differing = ~static_cast<unsigned>(_mm_movemask_epi8(equal)) & 0x7fffu;
        return nameWord == other.nameWord &&
               (nameWord > 15 ? nameView() == other.nameView() : differing >> (15 - nameWord) == 0);
    }

    // Whether the item is what path, of the given length, names below base. REQUIRES: length > 0.
    bool isAt(const Item* base, const char* path, size_t length) const;

    // The same for base a root and paths of ordinary length, 16 to 63 bytes, in a few steps with
    // hardly a branch that depends on lengths; false for all others. REQUIRES: the byte behind the
    // path is readable.
    bool isAtOrdinary(const Item* base, const char* path, size_t length) const;

private:
    friend struct Branch;

    static __m128i _loadBlock(const char* bytes) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
    }
};

static_assert(sizeof(Item) == 64, "one cache line");
static_assert(offsetof(Item, payload) == offsetof(Item, head) + 8, "changed in one step");

struct ChildList;

struct Branch {
    static constexpr size_t kMaxKeptPath = 255;
    static constexpr size_t kNoPath = SIZE_MAX / 2; // no difference of two lengths is that

    // What the roots are in: without an owner.
    static const Branch kOfRoots;

    const Item* root;                 // that the path starts from; null for the roots
    size_t pathLength;                // kNoPath when the path is not kept
    Item* owner;                      // the dictionary; null for the roots
    std::atomic<ChildList*> children; // null while there never was one
    std::atomic<uint32_t> inOrder;    // so many children, counted from the first, are elements of
                                      // an array in their places: "0", "1", ...
    uint32_t childHash;               // where the hashes of the names continue from

    // The path of the owner from below the root, with a "/" behind it; nothing for the root.
    char* path() {
        return reinterpret_cast<char*>(this + 1);
    }
    const char* path() const {
        return reinterpret_cast<const char*>(this + 1);
    }
    bool hasPath() const {
        return pathLength != kNoPath;
    }
};

inline constinit const Branch Branch::kOfRoots = {nullptr, kNoPath, nullptr, {nullptr}, {0}, 0};

inline Item* Item::parent() const {
    return branch->owner;
}

inline bool Item::isRoot() const {
    return branch == &Branch::kOfRoots;
}

// The end of the path above is put together with the name in a buffer that takes two blocks too
// many in front, so that nothing but the name depends on a length. What is read from in front of a
// shorter path lies in its branch, and is masked.
inline void Item::setInlineName(std::string_view text) {
    constexpr size_t kBlock = 16;
    constexpr size_t kSize = sizeof(pathEnd);
    static_assert(kSize == 2 * kBlock && kSize <= sizeof(Branch));
    static constexpr auto kLastBytesOf = [] { // from place n on: a mask of the last n bytes
        std::array<char, 2 * kSize> bytes{};
        for (size_t i = kSize; i < bytes.size(); ++i) {
            bytes[i] = '\xff';
        }
        return bytes;
    }();
    const size_t above = branch->hasPath() ? branch->pathLength : 0;
    const char* mask = kLastBytesOf.data() + (above < kSize ? above : kSize);
    const char* pathAbove = branch->path() + above - kSize;
    char buffer[2 * kSize];
    char* nameBegin = buffer + 2 * kSize - 1 - text.size();
    const auto store = [](char* to, __m128i block) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to), block);
    };
    store(nameBegin - kSize, _mm_and_si128(_loadBlock(pathAbove), _loadBlock(mask)));
    store(nameBegin - kBlock,
          _mm_and_si128(_loadBlock(pathAbove + kBlock), _loadBlock(mask + kBlock)));
    std::memcpy(nameBegin, text.data(), text.size());
    buffer[2 * kSize - 1] = '\0';
    store(pathEnd, _loadBlock(buffer + kSize));
    store(pathEnd + kBlock, _loadBlock(buffer + kSize + kBlock));
    nameWord = static_cast<uint32_t>(text.size());
}

// Compares blocks of 16 bytes, overlapping as they must.
inline bool Item::isAtOrdinary(const Item* base, const char* path, size_t length) const {
    constexpr size_t kBlock = 16;
    // No length of a path for a name that is longer, or far.
    const size_t nameBegin = length - nameWord;
    const Branch& own = *branch;
    if (own.root != base || own.pathLength != nameBegin || length - kBlock > 3 * kBlock - 1) {
        return false;
    }
    const auto compare = [](const char* text, const char* with) {
        return _mm_cmpeq_epi8(_loadBlock(text), _loadBlock(with));
    };
    // The last bytes, two blocks of them less the final zero, or the whole path if it is shorter.
    const char* ownBegin = pathEnd + kInlineNameCapacity - length; // may lie before the item
    const size_t endBegin = length < kInlineNameCapacity ? 0 : length - kInlineNameCapacity;
    const size_t last = length + 1 - kBlock;
    __m128i equal = compare(path + endBegin, ownBegin + endBegin);
    const auto isLastEqual =
        static_cast<unsigned>(_mm_movemask_epi8(compare(path + last, pathEnd + kBlock)));
    // What is in front of them: less than two blocks, since the length is ordinary.
    if (nameBegin >= kBlock) [[likely]] {
        const size_t middle = nameBegin < 2 * kBlock ? nameBegin - kBlock : kBlock;
        equal = _mm_and_si128(equal, compare(path, own.path()));
        equal = _mm_and_si128(equal, compare(path + middle, own.path() + middle));
    } else if (endBegin > 0) {
        return false;
    }
    const auto isEqual = static_cast<unsigned>(_mm_movemask_epi8(equal));
    return (isEqual & (isLastEqual | 0x8000u)) == 0xffff;
}

inline bool Item::isAt(const Item* base, const char* path, size_t length) const {
    const Item* item = this;
    for (size_t end = length;;) {
        // A name is never empty; one that is (a root's) matches nothing.
        const std::string_view ownName = item->nameView();
        if (ownName.size() - 1 >= end ||
            std::memcmp(path + end - ownName.size(), ownName.data(), ownName.size()) != 0) {
            return false;
        }
        end -= ownName.size();
        const Branch& own = *item->branch;
        if (own.root == base && own.hasPath()) {
            return own.pathLength == end && std::memcmp(own.path(), path, end) == 0;
        }
        item = own.owner;
        if (end == 0) {
            return item == base;
        }
        if (!item || path[--end] != '/') {
            return false;
        }
    }
}

} // namespace vorn::dictionary
