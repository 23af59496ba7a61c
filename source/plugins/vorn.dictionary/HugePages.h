// Large blocks of memory straight from the system, in huge pages where it has them: in a large
// tree, most of the time of a lookup would go into finding the pages.
#pragma once

#include <vorn/Defines.h>

#include <cstddef>
#include <cstdint>
#include <sys/mman.h>

namespace vorn::dictionary {

constexpr size_t kHugePageSize = size_t{2} << 20;

// At least that many bytes, aligned to a huge page; null when memory is exhausted.
inline void* allocateHugePages(size_t bytes) {
    const size_t size = alignedSize(bytes, kHugePageSize);
    void* range = mmap(nullptr, size + kHugePageSize, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (range == MAP_FAILED) {
        return nullptr;
    }
    const auto begin = reinterpret_cast<uintptr_t>(range);
    const size_t before = alignedSize(begin, kHugePageSize) - begin;
    auto* memory = static_cast<char*>(range) + before;
    munmap(range, before); // of no bytes, either does nothing
    munmap(memory + size, kHugePageSize - before);
    madvise(memory, size, MADV_HUGEPAGE); // advice: without effect, it is slower, not wrong
    return memory;
}

// The same number of bytes.
inline void freeHugePages(void* memory, size_t bytes) {
    munmap(memory, alignedSize(bytes, kHugePageSize));
}

} // namespace vorn::dictionary
