// One flat table from the hash of a path to the item there.
//
// A slot of 32 bits holds an item's index in its low bits and, in the bits that the index does not
// need, a tag of the hash; 16 slots make a cache line. A lookup probes slots one after another from
// the hash's own place, looks at an item only where the tag fits, and ends at an empty slot. The
// table tells candidates; the caller confirms them by their names.
//
// Nothing is looked up before the first item is inserted.
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

class PathTable { // NOLINT(clang-analyzer-optin.performance.Padding): by cache lines
public:
    explicit constexpr PathTable(const ItemPool& items) : m_items(items) {}
    PathTable(const PathTable&) = delete;
    PathTable& operator=(const PathTable&) = delete;
    ~PathTable() {
        release();
    }

    // The item of that hash that one looks at first, or null: mostly the only one.
    Item* firstCandidate(uint32_t hash) const {
        const Table* table = m_table.load(std::memory_order_acquire);
        const uint32_t indexMask = table->indexMask;
        const std::atomic<uint32_t>* slots = table->slots() + _firstOf(hash, indexMask);
        const unsigned fits = Group(slots).findTag(hash, ~indexMask);
        if (fits == 0) {
            return nullptr;
        }
        const uint32_t slot = slots[Group::first(fits)].load(std::memory_order_acquire);
        Item* item = m_items.at(slot & indexMask);
        return item->hash.load(std::memory_order_acquire) == hash ? item : nullptr;
    }

    // Whether one look tells that there is no item of that hash.
    bool isAbsent(uint32_t hash) const {
        const uint64_t generation = m_generation.load(std::memory_order_acquire);
        const Table* table = m_table.load(std::memory_order_acquire);
        const uint32_t indexMask = table->indexMask;
        const Group group(table->slots() + _firstOf(hash, indexMask));
        return group.findTag(hash, ~indexMask) == 0 && group.findTag(kEmpty, ~uint32_t{0}) != 0 &&
               m_generation.load(std::memory_order_acquire) == generation;
    }

    // The item of that hash which accept(item) confirms, or null.
    template <class Accept>
    Item* find(uint32_t hash, Accept accept) const {
        for (;;) {
            const uint64_t generation = m_generation.load(std::memory_order_acquire);
            const Table* table = m_table.load(std::memory_order_acquire);
            const uint32_t indexMask = table->indexMask;
            for (size_t first = _firstOf(hash, indexMask);;
                 first = (first + kGroupSize) & indexMask) {
                const std::atomic<uint32_t>* slots = table->slots() + first;
                const Group group(slots);
                // A removed slot may fit too; it leads to an item that matches nothing.
                for (unsigned fits = group.findTag(hash, ~indexMask); fits;
                     fits = Group::withoutFirst(fits)) {
                    const uint32_t slot = slots[Group::first(fits)].load(std::memory_order_acquire);
                    Item* item = m_items.at(slot & indexMask);
                    if (item->hash.load(std::memory_order_acquire) == hash && accept(item)) {
                        return item;
                    }
                }
                if (group.findTag(kEmpty, ~uint32_t{0})) {
                    break;
                }
            }
            if (m_generation.load(std::memory_order_acquire) == generation) [[likely]] {
                return nullptr;
            }
        }
    }

    // Makes sure that count more items can be inserted. False when memory is exhausted.
    // REQUIRES: every live item of the pool is in the table.
    bool reserve(size_t count) {
        const Table* table = m_table.load(std::memory_order_relaxed);
        return (table && _fits(m_count + m_removed + count, table->bits)) || _grow(count);
    }

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

    static constexpr size_t kGroupSize = 8;

    // The slots of a group, each as it stood when it was loaded.
    class Group {
    public:
        explicit Group(const std::atomic<uint32_t>* slots)
            : m_lower(_load(slots)), m_upper(_load(slots + kGroupSize / 2)) {}

        // Two equal bits for each slot that equals the tag where the mask has bits.
        unsigned findTag(uint32_t tag, uint32_t mask) const {
            const __m128i masks = _mm_set1_epi32(static_cast<int>(mask));
            const __m128i tags = _mm_set1_epi32(static_cast<int>(tag & mask));
            const auto compare = [&](__m128i slots) {
                return _mm_cmpeq_epi32(_mm_and_si128(slots, masks), tags);
            };
            const __m128i equal = _mm_packs_epi32(compare(m_lower), compare(m_upper));
            return static_cast<unsigned>(_mm_movemask_epi8(equal));
        }
        // The place of the first of the slots found.
        static unsigned first(unsigned found) {
            return static_cast<unsigned>(__builtin_ctz(found)) / 2;
        }
        static unsigned withoutFirst(unsigned found) {
            return found & ~(3u << __builtin_ctz(found));
        }

    private:
        // One aligned load, in which no slot is torn. The language has no such atomic.
        static __m128i _load(const std::atomic<uint32_t>* slots) {
            __m128i loaded;
            asm volatile("movdqa %1, %0"
                         : "=x"(loaded)
                         : "m"(*reinterpret_cast<const __m128i*>(slots))
                         : "memory");
            return loaded;
        }

        __m128i m_lower;
        __m128i m_upper;
    };

    // The first slot of the group where probing starts.
    static size_t _firstOf(uint32_t hash, uint32_t indexMask) {
        return hash & indexMask & ~(kGroupSize - 1);
    }

    struct alignas(64) Table {
        Table* nextRetired; // of the same size
        unsigned bits;      // of the number of slots
        uint32_t indexMask; // of a slot: the index; of a hash: where probing starts

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

    static bool _fits(size_t used, unsigned bits) {
        return used <= (size_t{3} << bits) / 4;
    }
    bool _grow(size_t count);
    Table* _takeTable(unsigned bits);
    static void _free(Table* table);
    void _retire(Table* table);
    void _put(Table* table, uint32_t index, uint32_t hash);
    bool _rebuild(unsigned bits);

    // What readers look at, in a cache line that no insertion touches.
    alignas(64) const ItemPool& m_items;
    std::atomic<Table*> m_table{nullptr};
    std::atomic<uint64_t> m_generation{0}; // raised after every replacement of the table

    alignas(64) size_t m_count = 0;      // items in the table
    size_t m_removed = 0;                // slots marked as removed
    Table* m_retired[kMaxBits + 1] = {}; // lists of replaced tables by size, for use again
};

} // namespace vorn::dictionary
