// The children of one dictionary: item indices in the order of creation.
//
// A list that is full is replaced by one of twice the room. Lists are recycled by size and given
// back to the system only when the pool is released: a reader that still looks at a list that was
// replaced reads some valid index, and finds by the version of the item that it must look again.
//
// Threads: readers use count and entries; everything else happens under the tree's lock.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace vorn::dictionary {

struct ChildList {
    std::atomic<uint32_t> count;
    uint32_t capacityBits; // room for 1 << capacityBits entries
    ChildList* nextFree;   // while in the pool

    std::atomic<uint32_t>* entries() {
        return reinterpret_cast<std::atomic<uint32_t>*>(this + 1);
    }
    size_t capacity() const {
        return size_t{1} << capacityBits;
    }
    uint32_t size() const {
        return count.load(std::memory_order_acquire);
    }
    uint32_t indexAt(size_t place) {
        return entries()[place].load(std::memory_order_acquire);
    }
    // REQUIRES: place < capacity().
    void put(size_t place, uint32_t index) {
        entries()[place].store(index, std::memory_order_release);
    }
    void setSize(size_t size) {
        count.store(static_cast<uint32_t>(size), std::memory_order_release);
    }
};

class ChildListPool {
public:
    static constexpr size_t kMaxCapacity = size_t{1} << 31;

    ChildListPool() = default;
    ChildListPool(const ChildListPool&) = delete;
    ChildListPool& operator=(const ChildListPool&) = delete;
    ~ChildListPool() {
        release();
    }

    // An empty list with room for at least minCapacity entries, or null when memory is exhausted
    // or there can be no such list.
    ChildList* allocate(size_t minCapacity) {
        if (minCapacity > kMaxCapacity) {
            return nullptr;
        }
        uint32_t bits = kMinCapacityBits;
        while ((size_t{1} << bits) < minCapacity) {
            ++bits;
        }
        if (ChildList* list = m_free[bits]) {
            m_free[bits] = list->nextFree;
            return list;
        }
        const size_t bytes = sizeof(ChildList) + (sizeof(uint32_t) << bits);
        void* memory = std::malloc(bytes);
        if (!memory) {
            return nullptr;
        }
        auto* list = new (memory) ChildList{{0}, bits, nullptr};
        for (size_t i = 0; i < list->capacity(); ++i) {
            new (list->entries() + i) std::atomic<uint32_t>(0);
        }
        return list;
    }

    // Takes a list back. Null is ignored.
    void deallocate(ChildList* list) {
        if (list) {
            list->setSize(0);
            list->nextFree = m_free[list->capacityBits];
            m_free[list->capacityBits] = list;
        }
    }

    // Gives the lists in the pool back to the system.
    void release() {
        for (ChildList*& first : m_free) {
            while (first) {
                ChildList* next = first->nextFree;
                std::free(first);
                first = next;
            }
        }
    }

private:
    static constexpr uint32_t kMinCapacityBits = 2;

    ChildList* m_free[32] = {}; // by capacityBits
};

} // namespace vorn::dictionary
