// Storage of items, addressed by a 32-bit index or by pointer.
//
// Items lie in chunks that are never moved and given back only when the whole pool is released, so
// an index or a pointer that a reader got hold of always leads to an item, alive or dead.
//
// Threads: at() from any thread; everything else under the tree's lock.
#pragma once

#include "HugePages.h"
#include "Item.h"

#include <cstdlib>

namespace vorn::dictionary {

class ItemPool {
public:
    static constexpr uint32_t kNoItem = 0;
    static constexpr uint32_t kFirstIndex = 2; // 0 and 1 mark slots of PathTable

    ItemPool() = default;
    ItemPool(const ItemPool&) = delete;
    ItemPool& operator=(const ItemPool&) = delete;
    ~ItemPool() {
        release();
    }

    Item* at(uint32_t index) const {
        Item* chunk = g_chunks[index >> kChunkBits].load(std::memory_order_acquire);
        return chunk + (index & (kChunkSize - 1));
    }

    // An item of dead type with a zero payload, or kNoItem when memory is exhausted. The version
    // in its head goes on from its last life.
    uint32_t allocate() {
        if (m_firstFree != kNoItem) {
            const uint32_t index = m_firstFree;
            Item* item = at(index);
            m_firstFree = static_cast<uint32_t>(item->payload.load(std::memory_order_relaxed));
            item->payload.store(0, std::memory_order_relaxed);
            return index;
        }
        if (m_end >= m_capacity && !_addChunks()) {
            return kNoItem;
        }
        const uint32_t index = m_end++;
        Item* item = at(index);
        item->head.store(static_cast<uint64_t>(kDeadType), std::memory_order_relaxed);
        item->payload.store(0, std::memory_order_relaxed);
        return index;
    }

    // Takes a dead item back.
    void deallocate(uint32_t index) {
        at(index)->payload.store(m_firstFree, std::memory_order_relaxed);
        m_firstFree = index;
    }

    // Every index ever handed out lies in [kFirstIndex, endIndex()).
    uint32_t endIndex() const {
        return m_end;
    }

    // Gives all memory back to the system.
    void release() {
        for (uint32_t chunk = 0; chunk < m_capacity >> kChunkBits; ++chunk) {
            Item* items = g_chunks[chunk].exchange(nullptr, std::memory_order_relaxed);
            if (chunk < kFirstChunks) {
                std::free(items);
            } else if (chunk % kChunksOfBlock == 0) {
                freeHugePages(items, kChunksOfBlock * kChunkBytes);
            }
        }
        m_end = kFirstIndex;
        m_capacity = 0;
        m_firstFree = kNoItem;
    }

private:
    static constexpr unsigned kChunkBits = 14;
    static constexpr uint32_t kChunkSize = 1u << kChunkBits;
    static constexpr size_t kChunkBytes = sizeof(Item) << kChunkBits;
    static constexpr unsigned kIndexBits = 31;

    // The first chunks lie each in a block of its own, later ones several together, in huge pages.
    static constexpr uint32_t kFirstChunks = 8;
    static constexpr uint32_t kChunksOfBlock = 4;
    static_assert(kFirstChunks % kChunksOfBlock == 0);

    bool _addChunks() {
        if (m_capacity >> kIndexBits) {
            return false;
        }
        const uint32_t first = m_capacity >> kChunkBits;
        const uint32_t count = first < kFirstChunks ? 1 : kChunksOfBlock;
        const size_t bytes = count * kChunkBytes;
        void* block =
            count == 1 ? std::aligned_alloc(alignof(Item), bytes) : allocateHugePages(bytes);
        if (!block) {
            return false;
        }
        auto* items = static_cast<Item*>(block);
        if (first == 0) {
            // The indices that name no item lead to items without a name, which match nothing.
            std::memset(block, 0, kFirstIndex * sizeof(Item));
            for (uint32_t i = 0; i < kFirstIndex; ++i) {
                items[i].branch = &Branch::kOfRoots;
            }
        }
        for (uint32_t i = 0; i < count; ++i) {
            g_chunks[first + i].store(items + size_t{i} * kChunkSize, std::memory_order_release);
        }
        m_capacity += count * kChunkSize;
        return true;
    }

    // By index. Apart from the object, which there is one of: all zero when the library is loaded,
    // the directory takes no memory before it is used.
    static inline constinit std::atomic<Item*> g_chunks[1u << (kIndexBits - kChunkBits)] = {};

    uint32_t m_end = kFirstIndex;   // next index never handed out
    uint32_t m_capacity = 0;        // indices with memory behind them
    uint32_t m_firstFree = kNoItem; // list of dead items, linked through their payload
};

} // namespace vorn::dictionary
