#include "PathTable.h"

#include <cstdlib>
#include <new>
#include <sys/mman.h>
#include <unistd.h>

namespace vorn::dictionary {

// Makes room for count more items by another table.
bool PathTable::_grow(size_t count) {
    const Table* table = m_table.load(std::memory_order_relaxed);
    // Growing from half full up: with removed slots in the way, the same size may do.
    unsigned bits = table ? table->bits : kMinBits;
    while (bits < kMaxBits && !_fits((m_count + count) + (m_count + count) / 4, bits)) {
        ++bits;
    }
    return _fits(m_count + count, bits) && _rebuild(bits);
}

void PathTable::insert(uint32_t index) {
    _put(m_table.load(std::memory_order_relaxed), index,
         m_items.at(index)->hash.load(std::memory_order_relaxed));
    ++m_count;
}

// A slot may become empty only where lookups end anyway: in a group that has an empty one already.
uint32_t PathTable::remove(const Item* item) {
    Table* table = m_table.load(std::memory_order_relaxed);
    const uint32_t indexMask = table->indexMask;
    std::atomic<uint32_t>* slots = table->slots();
    const uint32_t hash = item->hash.load(std::memory_order_relaxed);
    for (size_t first = _firstOf(hash, indexMask);; first = (first + kGroupSize) & indexMask) {
        const Group group(slots + first);
        for (unsigned fits = group.findTag(hash, ~indexMask); fits;
             fits = Group::withoutFirst(fits)) {
            std::atomic<uint32_t>& slot = slots[first + Group::first(fits)];
            const uint32_t index = slot.load(std::memory_order_relaxed) & indexMask;
            if (m_items.at(index) == item) {
                const bool isLast = group.findTag(kEmpty, ~uint32_t{0}) != 0;
                slot.store(isLast ? kEmpty : kRemoved, std::memory_order_release);
                m_removed += isLast ? 0 : 1;
                --m_count;
                return index;
            }
        }
    }
}

void PathTable::release() {
    _free(m_table.exchange(nullptr, std::memory_order_relaxed));
    for (Table*& first : m_retired) {
        while (first) {
            Table* next = first->nextRetired;
            _free(first);
            first = next;
        }
    }
    m_generation.fetch_add(1, std::memory_order_release);
    m_count = m_removed = 0;
}

// An empty table, or null when memory is exhausted.
PathTable::Table* PathTable::_takeTable(unsigned bits) {
    Table* table = m_retired[bits];
    if (table) {
        m_retired[bits] = table->nextRetired;
    } else {
        const size_t bytes = sizeof(Table) + (sizeof(uint32_t) << bits);
        void* memory = bytes < kHugePageSize
                           ? std::aligned_alloc(alignof(Table), alignedSize(bytes, alignof(Table)))
                           : allocateHugePages(bytes);
        if (!memory) {
            return nullptr;
        }
        table = new (memory) Table{nullptr, bits, (1u << bits) - 1};
        for (size_t i = 0; i < table->size(); ++i) {
            new (table->slots() + i) std::atomic<uint32_t>(kEmpty);
        }
        return table;
    }
    for (size_t i = 0; i < table->size(); ++i) {
        table->slots()[i].store(kEmpty, std::memory_order_relaxed);
    }
    return table;
}

// Null is ignored.
void PathTable::_free(Table* table) {
    if (table && table->bytes() >= kHugePageSize) {
        freeHugePages(table, table->bytes());
    } else {
        std::free(table);
    }
}

// Keeps a table that readers may still look at, without the memory of its whole pages.
void PathTable::_retire(Table* table) {
    const auto pageSize = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    const uintptr_t begin = alignedSize(reinterpret_cast<uintptr_t>(table->slots()), pageSize);
    const uintptr_t end =
        (reinterpret_cast<uintptr_t>(table) + table->bytes()) / pageSize * pageSize;
    if (begin < end) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): a page inside the table
        madvise(reinterpret_cast<void*>(begin), end - begin, MADV_DONTNEED);
    }
    table->nextRetired = m_retired[table->bits];
    m_retired[table->bits] = table;
}

void PathTable::_put(Table* table, uint32_t index, uint32_t hash) {
    const uint32_t indexMask = table->indexMask;
    constexpr uint32_t kMarks = kEmpty | kRemoved;
    size_t first = _firstOf(hash, indexMask);
    unsigned unused = Group(table->slots() + first).findTag(0, ~kMarks);
    while (!unused) {
        first = (first + kGroupSize) & indexMask;
        unused = Group(table->slots() + first).findTag(0, ~kMarks);
    }
    std::atomic<uint32_t>& slot = table->slots()[first + Group::first(unused)];
    if (slot.load(std::memory_order_relaxed) == kRemoved) {
        --m_removed;
    }
    slot.store((hash & ~indexMask) | index, std::memory_order_release);
}

// Replaces the table by one of the given size. Items are visited in the order of their memory,
// which costs far fewer cache misses than the order of the old table.
bool PathTable::_rebuild(unsigned bits) {
    Table* table = _takeTable(bits);
    if (!table) {
        return false;
    }
    for (uint32_t index = ItemPool::kFirstIndex; index < m_items.endIndex(); ++index) {
        const Item* item = m_items.at(index);
        if (item->type() != kDeadType) {
            _put(table, index, item->hash.load(std::memory_order_relaxed));
        }
    }
    m_removed = 0;
    Table* old = m_table.load(std::memory_order_relaxed);
    m_table.store(table, std::memory_order_release);
    m_generation.fetch_add(1, std::memory_order_release);
    if (old) {
        _retire(old);
    }
    return true;
}

} // namespace vorn::dictionary
