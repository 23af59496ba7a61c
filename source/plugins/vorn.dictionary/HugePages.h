// Large blocks of memory in huge pages, where the system has them: in a large tree, most of the
// time of a lookup would go into finding the pages.
#pragma once

#include <vorn/Defines.h>

#include <cstddef>
#include <cstdlib>
#include <sys/mman.h>

namespace vorn::dictionary {

constexpr size_t kHugePageSize = size_t{2} << 20;

// At least that many bytes, aligned to a huge page, to be freed; null when memory is exhausted.
inline void* allocateHugePages(size_t bytes) {
    const size_t size = alignedSize(bytes, kHugePageSize);
    void* memory = std::aligned_alloc(kHugePageSize, size);
    if (memory) {
        madvise(memory, size, MADV_HUGEPAGE); // advice: without effect, it is slower, not wrong
    }
    return memory;
}

} // namespace vorn::dictionary
