// Memory in blocks of a few sizes that, once taken, is used for the same things until the end.
//
// A block that was given back keeps its bytes until it is handed out again, and its memory is
// returned to the system only when all of it is: whoever still looks at such a block reads old or
// new contents of its kind, never memory of something else.
//
// Threads: under a lock of the owner's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace vorn::dictionary {

class RecycledBlocks {
public:
    RecycledBlocks() = default;
    RecycledBlocks(const RecycledBlocks&) = delete;
    RecycledBlocks& operator=(const RecycledBlocks&) = delete;
    ~RecycledBlocks() {
        release();
    }

    // At least that many bytes, or null when memory is exhausted.
    void* allocate(size_t bytes) {
        unsigned sizeClass = 0;
        while (_sizeOf(sizeClass) < bytes) {
            ++sizeClass;
        }
        Block* block = m_free[sizeClass];
        if (block) {
            m_free[sizeClass] = block->next;
        } else {
            block = static_cast<Block*>(std::malloc(sizeof(Block) + _sizeOf(sizeClass)));
            if (!block) {
                return nullptr;
            }
            block->sizeClass = sizeClass;
        }
        return block + 1;
    }

    // Takes a block back.
    void deallocate(void* memory) {
        Block* block = static_cast<Block*>(memory) - 1;
        block->next = m_free[block->sizeClass];
        m_free[block->sizeClass] = block;
    }

    // Gives the blocks that were taken back to the system.
    void release() {
        for (Block*& first : m_free) {
            while (first) {
                Block* next = first->next;
                std::free(first);
                first = next;
            }
        }
    }

private:
    struct alignas(16) Block {
        Block* next; // while it is free
        unsigned sizeClass;
    };
    static constexpr unsigned kSizeClasses = 28; // the largest holds the longest name

    static constexpr size_t _sizeOf(unsigned sizeClass) {
        return size_t{32} << sizeClass;
    }

    Block* m_free[kSizeClasses] = {};
};

} // namespace vorn::dictionary
