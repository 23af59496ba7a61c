// A pool of equal-sized, aligned elements.
//
// Takes large blocks from malloc, carves elements off them with a bump pointer, keeps elements
// that are given back on a list threaded through the elements themselves, and hands those out
// again, last in first out, before it carves fresh memory. Memory goes back to the system only
// when the whole pool is reset, initialised again or destroyed.
//
// Threads: none of its own; callers that share a pool serialise their calls.
#pragma once

#include "../Defines.h"

#include <cstdlib>

namespace vorn::extras {

// The pool.
class FreeListAllocator {
public:
    // In bytes; smaller ones are raised to it.
    static constexpr size_t kMinimalAlignment = 8;

    // A pool without a configuration; allocate answers null until initialize.
    FreeListAllocator() = default;

    // As default construction followed by initialize.
    FreeListAllocator(size_t elementSize, size_t alignment, size_t elementsPerBlock) {
        _initialize(elementSize, alignment, elementsPerBlock);
    }

    // Releases every block; elements still out become invalid.
    ~FreeListAllocator() {
        _deallocateBlocks(m_activeBlocks);
        _deallocateBlocks(m_freeBlocks);
    }

    FreeListAllocator(const FreeListAllocator&) = delete;
    FreeListAllocator& operator=(const FreeListAllocator&) = delete;

    // Releases every block and configures the pool: elements of elementSize bytes, raised to 8
    // and rounded up to the alignment; an alignment, a power of two, raised to 8.
    void initialize(size_t elementSize, size_t alignment, size_t elementsPerBlock) {
        reset();
        _initialize(elementSize, alignment, elementsPerBlock);
    }

    // One element, not cleared, or null when the system has no memory or the pool has no
    // configuration. Constant time; asks the system once per block.
    void* allocate() {
        if (m_freeElements) {
            Element* element = m_freeElements;
            m_freeElements = element->m_next;
            return element;
        }
        if (m_top < m_end) {
            void* element = m_top;
            m_top += m_elementSize;
            return element;
        }
        return _allocateBlock();
    }

    // Gives an element of this pool back. Null is ignored; anything else is not checked.
    void deallocate(void* data) {
        if (!data) {
            return;
        }
        Element* element = static_cast<Element*>(data);
        element->m_next = m_freeElements;
        m_freeElements = element;
    }

    // Takes every element back at once and keeps the blocks for later use.
    void deallocateAll() {
        while (m_activeBlocks) {
            Block* block = m_activeBlocks;
            m_activeBlocks = block->m_next;
            block->m_next = m_freeBlocks;
            m_freeBlocks = block;
        }
        m_top = m_end = nullptr;
        m_freeElements = nullptr;
    }

    // Whether data is the start of an element of a block in use. Linear in the number of blocks.
    bool isValid(const void* data) const {
        const uintptr_t address = reinterpret_cast<uintptr_t>(data);
        for (const Block* block = m_activeBlocks; block; block = block->m_next) {
            const uintptr_t begin = reinterpret_cast<uintptr_t>(block->m_data);
            if (address >= begin && address < begin + m_blockSize) {
                return (address - begin) % m_elementSize == 0;
            }
        }
        return false;
    }

    // Releases every block; the configuration stays.
    void reset() {
        _deallocateBlocks(m_activeBlocks);
        _deallocateBlocks(m_freeBlocks);
        m_top = m_end = nullptr;
        m_activeBlocks = m_freeBlocks = nullptr;
        m_freeElements = nullptr;
    }

    // What it is configured to, after raising and rounding; sizes in bytes.
    size_t getElementSize() const {
        return m_elementSize;
    }
    // Bytes of elements per block.
    size_t getBlockSize() const {
        return m_blockSize;
    }
    size_t getAlignment() const {
        return m_alignment;
    }

private:
    // A free element; the link lies in its first bytes.
    struct Element {
        Element* m_next;
    };

    // Header at the start of every block; m_data is the first element.
    struct Block {
        Block* m_next;
        unsigned char* m_data;
    };

    void _initialize(size_t elementSize, size_t alignment, size_t elementsPerBlock) {
        m_alignment = alignment < kMinimalAlignment ? kMinimalAlignment : alignment;
        m_elementSize = elementSize < sizeof(Element) ? sizeof(Element) : elementSize;
        m_elementSize = alignedSize(m_elementSize, m_alignment);
        m_blockSize = m_elementSize * elementsPerBlock;
        m_blockAllocationSize = m_blockSize + _calculateAlignedBlockSize(m_alignment);
        m_top = m_end = nullptr;
        m_activeBlocks = m_freeBlocks = nullptr;
        m_freeElements = nullptr;
    }

    // Makes the next block the current one and hands out its first element.
    void* _allocateBlock() {
        if (m_blockSize == 0) {
            return nullptr; // not configured: a block would have no elements
        }
        Block* block = m_freeBlocks;
        if (block) {
            m_freeBlocks = block->m_next;
        } else {
            block = static_cast<Block*>(std::malloc(m_blockAllocationSize));
            if (!block) {
                return nullptr;
            }
            unsigned char* afterHeader = reinterpret_cast<unsigned char*>(block + 1);
            const size_t misalignment = reinterpret_cast<uintptr_t>(afterHeader) % m_alignment;
            block->m_data = afterHeader + (misalignment ? m_alignment - misalignment : 0);
        }
        block->m_next = m_activeBlocks;
        m_activeBlocks = block;
        m_end = block->m_data + m_blockSize;
        m_top = block->m_data + m_elementSize;
        return block->m_data;
    }

    static void _deallocateBlocks(Block* block) {
        while (block) {
            Block* next = block->m_next;
            std::free(block);
            block = next;
        }
    }

    // Room for the header and for moving the first element up to the alignment. malloc aligns to
    // 16, as the header is large, so rounding the header up covers any move.
    static size_t _calculateAlignedBlockSize(size_t align) {
        return alignedSize(sizeof(Block), align);
    }

    unsigned char* m_top = nullptr;  // next element not yet carved from the current block
    unsigned char* m_end = nullptr;  // end of the current block
    Block* m_activeBlocks = nullptr; // in use; the head is the current block
    Block* m_freeBlocks = nullptr;   // owned but not in use; taken before the system is asked
    Element* m_freeElements = nullptr;
    size_t m_elementSize = 0;
    size_t m_alignment = 1;
    size_t m_blockSize = 0;
    size_t m_blockAllocationSize = 0;
};

static_assert(sizeof(FreeListAllocator) == 72, "layout");

} // namespace vorn::extras
