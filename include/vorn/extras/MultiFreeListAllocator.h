// Serves requests of any size from a few size classes, each a FreeListAllocator, and what fits no
// class from malloc.
//
// Two 32-bit words in front of every pointer handed out say where the chunk came from, so
// deallocate needs the pointer alone:
//
//     chunk start                                   pointer handed out
//     |  ...gap...  | offset to chunk start | chunk size | caller's bytes ...
//
// Threads: none of its own; callers that share an allocator serialise their calls.
// Logged: "Failed to allocate memory!" at error level when a request cannot be served.
#pragma once

#include "../logging/Log.h"
#include "FreeListAllocator.h"

#include <cstring>
#include <limits>
#include <new>

namespace vorn::extras {

// The pools of several size classes behind one face.
class MultiFreeListAllocator {
public:
    static constexpr size_t kUnlimitedSize = 0;             // stands for no limit
    static constexpr size_t kDefaultElementsPerBlock = 100; // chunks of a block
    static constexpr size_t kElementsPerBlockAuto = 0;      // stands for that number

    // One size class.
    struct AllocDesc {
        size_t elementSize;      // the largest chunk it serves, prefix words included
        size_t elementsPerBlock; // chunks of a block, or kElementsPerBlockAuto
    };

    // No classes: malloc serves all until startup.
    MultiFreeListAllocator() = default;
    // As shutdown.
    ~MultiFreeListAllocator() {
        shutdown();
    }
    MultiFreeListAllocator(const MultiFreeListAllocator&) = delete;
    MultiFreeListAllocator& operator=(const MultiFreeListAllocator&) = delete;

    // Sets up the size classes, searched in the given order. Classes of an earlier startup are
    // released first. When memory is exhausted there are no classes, and malloc serves all.
    void startup(AllocDesc* allocatorDescs, size_t allocatorCount) {
        shutdown();
        m_freeListAllocDescs = new (std::nothrow) FreeListAllocInternalDesc[allocatorCount];
        if (!m_freeListAllocDescs) {
            return;
        }
        m_freeListAllocCount = static_cast<uint32_t>(allocatorCount);
        for (size_t i = 0; i < allocatorCount; ++i) {
            const size_t elemPerBlock = allocatorDescs[i].elementsPerBlock;
            FreeListAllocInternalDesc& desc = m_freeListAllocDescs[i];
            desc.pureElemSize = alignedSize(allocatorDescs[i].elementSize, sizeof(void*));
            desc.allocator.initialize(
                desc.pureElemSize, 0,
                elemPerBlock == kElementsPerBlockAuto ? kDefaultElementsPerBlock : elemPerBlock);
        }
        _numberNearSizes();
    }

    // Releases every class with its memory. Chunks handed out before must not be given back
    // afterwards, except those that came from malloc.
    void shutdown() {
        delete[] m_freeListAllocDescs;
        m_freeListAllocDescs = nullptr;
        m_freeListAllocCount = 0;
        _numberNearSizes();
    }

    // size usable bytes, aligned to 8, or null. Sizes of 4 GiB - 8 and more are refused.
    void* allocate(size_t size) {
        return _allocateChunk(size, kPrefixSize, kPrefixSize);
    }

    // As allocate, with the pointer aligned to alignment, a power of two.
    void* allocateAligned(size_t size, size_t alignment) {
        if (alignment <= FreeListAllocator::kMinimalAlignment) {
            return allocate(size);
        }
        return _allocateChunk(size, kPrefixSize + alignment, alignment);
    }

    // Gives back a chunk of allocate or allocateAligned. Null is ignored; anything else is not
    // checked.
    void deallocate(void* memory) {
        if (!memory) {
            return;
        }
        unsigned char* bytes = static_cast<unsigned char*>(memory);
        ChunkOffsetPrefixType offset;
        ChunkSizePrefixType chunkSize;
        std::memcpy(&offset, bytes - kPrefixSize, sizeof(offset));
        std::memcpy(&chunkSize, bytes - sizeof(chunkSize), sizeof(chunkSize));
        const uint32_t index = _getAllocatorIndexFromSize(chunkSize);
        if (index == kNoSuitableAllocator) {
            std::free(bytes - offset);
        } else {
            m_freeListAllocDescs[index].allocator.deallocate(bytes - offset);
        }
    }

    // The class that serves a chunk of that many bytes, or kNoSuitableAllocator.
    uint32_t _getAllocatorIndexFromSize(size_t size) const {
        if (size <= kMaxNearSize) {
            return m_nearNumbers[alignedSize(size, sizeof(void*)) / sizeof(void*)] - 1;
        }
        return _searchAllocatorIndex(size);
    }

private:
    using ChunkSizePrefixType = uint32_t;
    using ChunkOffsetPrefixType = uint32_t;
    static constexpr size_t kPrefixSize =
        sizeof(ChunkSizePrefixType) + sizeof(ChunkOffsetPrefixType);

    struct FreeListAllocInternalDesc {
        FreeListAllocator allocator;
        size_t pureElemSize = 0;
    };

    uint32_t _searchAllocatorIndex(size_t size) const {
        for (uint32_t i = 0; i < m_freeListAllocCount; ++i) {
            if (m_freeListAllocDescs[i].pureElemSize >= size) {
                return i;
            }
        }
        return kNoSuitableAllocator;
    }

    void _numberNearSizes() {
        for (size_t words = 0; words <= kMaxNearSize / sizeof(void*); ++words) {
            m_nearNumbers[words] = _searchAllocatorIndex(words * sizeof(void*)) + 1;
        }
    }

    // Takes a chunk of size + overhead bytes and places the pointer on the first multiple of
    // alignment that leaves room for the prefix words.
    void* _allocateChunk(size_t size, size_t overhead, size_t alignment) {
        const size_t chunkSize = size + overhead;
        unsigned char* chunk = nullptr;
        if (chunkSize >= size && chunkSize <= std::numeric_limits<ChunkSizePrefixType>::max()) {
            const uint32_t index = _getAllocatorIndexFromSize(chunkSize);
            chunk = static_cast<unsigned char*>(
                index == kNoSuitableAllocator ? std::malloc(chunkSize)
                                              : m_freeListAllocDescs[index].allocator.allocate());
        }
        if (!chunk) {
            VORN_LOG_FROM("include/vorn/extras/MultiFreeListAllocator.h", logging::kLevelError,
                          "Failed to allocate memory!");
            return nullptr;
        }
        const uintptr_t chunkAddress = reinterpret_cast<uintptr_t>(chunk);
        const size_t offset =
            _calculateAlignedSize(chunkAddress + kPrefixSize, alignment) - chunkAddress;
        const auto offsetWord = static_cast<ChunkOffsetPrefixType>(offset);
        const auto sizeWord = static_cast<ChunkSizePrefixType>(chunkSize);
        unsigned char* memory = chunk + offset;
        std::memcpy(memory - kPrefixSize, &offsetWord, sizeof(offsetWord));
        std::memcpy(memory - sizeof(sizeWord), &sizeWord, sizeof(sizeWord));
        return memory;
    }

    static size_t _calculateAlignedSize(size_t size, size_t alignment) {
        return alignedSize(size, alignment);
    }

    FreeListAllocInternalDesc* m_freeListAllocDescs = nullptr; // owned
    uint32_t m_freeListAllocCount = 0;
    // For sizes up to the limit, by words rounded up, the index of the class plus 1, or 0: which
    // class a size falls into is no branch to guess.
    static constexpr size_t kMaxNearSize = 512;
    uint32_t m_nearNumbers[kMaxNearSize / sizeof(void*) + 1] = {};
    const uint32_t kNoSuitableAllocator = 0xFFFFFFFF; // NOLINT(readability-identifier-naming)
};

} // namespace vorn::extras
