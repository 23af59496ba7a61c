// One flat table from the hash of a path to the item there.
//
// A slot of 32 bits holds an item's index in its low bits and, in the bits that the index does not
// need, a tag of the hash; 16 slots make a cache line. A lookup probes slots one after another from
// the hash's own place, looks at an item only where the tag fits, and ends at an empty slot. The
// table tells candidates; the caller confirms them by their names.
//
// Threads: find() from any thread, without waiting; everything else under the tree's lock. A table
// that has been replaced keeps its addresses until the end, but gives its pages back to the
// system, after which they read as empty slots; a reader that comes up empty looks whether the
// generation has changed meanwhile, and then looks again.
#pragma once

#include "ItemPool.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <emmintrin.h>

namespace vorn::dictionary {

class PathTable {
public:
    explicit constexpr PathTable(const ItemPool& items) : m_items(items) {}
    PathTable(const PathTable&) = delete;
    PathTable& operator=(const PathTable&) = delete;
    ~PathTable() {
        release();
    }

    // The item of that hash which accept(item) confirms, or null.
    template <class Accept>
    Item* find(uint32_t hash, Accept accept) const {
        const uint64_t generation = m_generation.load(std::memory_order_acquire);
        const Table* table = m_table.load(std::memory_order_acquire);
        if (table) [[likely]] {
            const size_t first = _firstOf(_mix(hash), table->indexMask);
            bool isLast = false;
            if (Item* item = _findInGroup(*table, first, hash, accept, &isLast)) [[likely]] {
                return item;
            }
            if (!isLast) [[unlikely]] {
                return _findBeyond(hash, accept);
            }
        }
        if (m_generation.load(std::memory_order_acquire) != generation) [[unlikely]] {
            return _findBeyond(hash, accept);
        }
        return nullptr;
    }

    // Makes sure that count more items can be inserted. False when memory is exhausted.
    // REQUIRES: every live item of the pool is in the table.
    bool reserve(size_t count);

    // Adds an item; its hash must be set. REQUIRES: room reserved.
    void insert(uint32_t index);

    // Takes an item out and returns its index. REQUIRES: it is in the table.
    uint32_t remove(const Item* item);

    // Gives all memory back to the system.
    void release();

private:
    static constexpr uint32_t kEmpty = 0;
    static constexpr uint32_t kRemoved = 1;
    static constexpr unsigned kMinBits = 10;
    static constexpr unsigned kMaxBits = 31;

    static constexpr size_t kGroupSize = 4;

    // The slots of a group as they stood when it was made.
    class Group {
    public:
        explicit Group(const std::atomic<uint32_t>* slots)
            : m_slots(_mm_set_epi64x(_load(slots + 2), _load(slots))) {}

        // One bit for each slot that equals the tag where the mask has bits.
        unsigned findTag(uint32_t tag, uint32_t mask) const {
            const __m128i masks = _mm_set1_epi32(static_cast<int>(mask));
            const __m128i tags = _mm_set1_epi32(static_cast<int>(tag & mask));
            const __m128i equal = _mm_cmpeq_epi32(_mm_and_si128(m_slots, masks), tags);
            return static_cast<unsigned>(_mm_movemask_ps(_mm_castsi128_ps(equal)));
        }

    private:
        // Two slots in one step.
        static long long _load(const std::atomic<uint32_t>* slots) {
            typedef long long Pair __attribute__((may_alias));
            return __atomic_load_n(reinterpret_cast<const Pair*>(slots), __ATOMIC_ACQUIRE);
        }

        __m128i m_slots;
    };

    // The first slot of the group where probing starts.
    static size_t _firstOf(uint32_t mixed, uint32_t indexMask) {
        return mixed & indexMask & ~(kGroupSize - 1);
    }

    struct alignas(64) Table {
        Table* nextRetired; // of the same size
        unsigned bits;      // of the number of slots
        uint32_t indexMask; // of a slot: the index; of a mixed hash: where probing starts

        size_t size() const {
            return size_t{1} << bits;
        }
        std::atomic<uint32_t>* slots() {
            return reinterpret_cast<std::atomic<uint32_t>*>(this + 1);
        }
        const std::atomic<uint32_t>* slots() const {
            return reinterpret_cast<const std::atomic<uint32_t>*>(this + 1);
        }
        size_t bytes() const {
            return sizeof(Table) + size() * sizeof(uint32_t);
        }
    };

    // The item in the group of slots from first on; isLast tells whether probing ends here.
    template <class Accept>
    [[gnu::always_inline]] Item* _findInGroup(
        const Table& table, size_t first, uint32_t hash, Accept accept, bool* isLast) const {
        const uint32_t indexMask = table.indexMask;
        const std::atomic<uint32_t>* slots = table.slots() + first;
        const Group group(slots);
        // A removed slot may fit too; it leads to an item that matches nothing.
        for (unsigned fits = group.findTag(_mix(hash), ~indexMask); fits; fits &= fits - 1) {
            const uint32_t slot = slots[__builtin_ctz(fits)].load(std::memory_order_acquire);
            Item* item = m_items.at(slot & indexMask);
            if (item->hash.load(std::memory_order_acquire) == hash && accept(item)) [[likely]] {
                return item;
            }
        }
        *isLast = group.findTag(kEmpty, ~uint32_t{0}) != 0;
        return nullptr;
    }

    // The whole search, however many groups and tables it takes.
    template <class Accept>
    [[gnu::noinline]] Item* _findBeyond(uint32_t hash, Accept accept) const {
        for (;;) {
            const uint64_t generation = m_generation.load(std::memory_order_acquire);
            const Table* table = m_table.load(std::memory_order_acquire);
            bool isLast = !table;
            for (size_t first = table ? _firstOf(_mix(hash), table->indexMask) : 0; !isLast;
                 first = (first + kGroupSize) & table->indexMask) {
                if (Item* item = _findInGroup(*table, first, hash, accept, &isLast)) {
                    return item;
                }
            }
            if (m_generation.load(std::memory_order_acquire) == generation) {
                return nullptr;
            }
        }
    }

    // Every bit of the result depends on every bit of the hash.
    static uint32_t _mix(uint32_t hash) {
        constexpr uint64_t kGoldenRatio = 0x9e3779b97f4a7c15ull;
        return static_cast<uint32_t>((hash * kGoldenRatio) >> 32);
    }

    static bool _fits(size_t used, unsigned bits) {
        return used <= (size_t{7} << bits) / 8;
    }
    Table* _takeTable(unsigned bits);
    void _retire(Table* table);
    void _put(Table* table, uint32_t index, uint32_t hash);
    bool _rebuild(unsigned bits);

    const ItemPool& m_items;
    std::atomic<Table*> m_table{nullptr};
    std::atomic<uint64_t> m_generation{0}; // raised after every replacement of the table
    size_t m_count = 0;                    // items in the table
    size_t m_removed = 0;                  // slots marked as removed
    Table* m_retired[kMaxBits + 1] = {};   // lists of replaced tables by size, for use again
};

} // namespace vorn::dictionary
