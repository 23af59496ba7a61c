// Strings for paths, with storage from the store's own pools, and their hash.
//
// Threads: the pools are shared by every string of the store and guarded by one mutex, held for a
// single allocation or release at a time. A string itself belongs to one thread.
#pragma once

#include <vorn/Defines.h>
#include <vorn/extras/MultiFreeListAllocator.h>

#include <pthread.h>

#include <limits>
#include <new>
#include <string>
#include <string_view>
#include <system_error>

namespace vorn::settings {

// The storage of all pooled strings and its lock (defined in State.cpp).
extern extras::MultiFreeListAllocator g_multiFreeListStringsAlloc;
extern pthread_mutex_t g_multiFreeListStringsAllocMutex;

// Holds the lock of the string pools from construction to destruction.
class StringsAllocLock {
public:
    StringsAllocLock() {
        if (const int error = pthread_mutex_lock(&g_multiFreeListStringsAllocMutex)) {
            throw std::system_error(error, std::generic_category());
        }
    }
    ~StringsAllocLock() {
        pthread_mutex_unlock(&g_multiFreeListStringsAllocMutex);
    }
    StringsAllocLock(const StringsAllocLock&) = delete;
    StringsAllocLock& operator=(const StringsAllocLock&) = delete;
};

// Standard allocator over the string pools. All instances stand for the same pools.
template <class T>
class MultiFreeListStringAllocStlWrapper {
public:
    using size_type = size_t;
    using difference_type = ptrdiff_t;
    using pointer = T*;
    using const_pointer = const T*;
    using reference = T&;
    using const_reference = const T&;
    using value_type = T;

    template <class U>
    struct rebind {
        using other = MultiFreeListStringAllocStlWrapper<U>;
    };

    MultiFreeListStringAllocStlWrapper() = default;
    template <class U>
    MultiFreeListStringAllocStlWrapper(const MultiFreeListStringAllocStlWrapper<U>&) {}

    pointer address(reference value) const {
        return &value;
    }
    const_pointer address(const_reference value) const {
        return &value;
    }
    size_type max_size() const {
        return std::numeric_limits<size_type>::max() / sizeof(T);
    }

    // n bytes. The hint is ignored.
    pointer allocate(size_type n, const void* = nullptr) {
        static_assert(sizeof(T) == 1, "sizes are counted in bytes");
        const StringsAllocLock lock;
        void* memory = g_multiFreeListStringsAlloc.allocate(n);
        if (!memory) {
            throw std::bad_alloc();
        }
        return static_cast<pointer>(memory);
    }
    // The chunk knows its own size.
    void deallocate(pointer p, size_type) {
        const StringsAllocLock lock;
        g_multiFreeListStringsAlloc.deallocate(p);
    }

    void construct(pointer p, const T& value) {
        ::new (static_cast<void*>(p)) T(value);
    }
    void destroy(pointer) {}

    bool operator==(const MultiFreeListStringAllocStlWrapper&) const {
        return true;
    }
    bool operator!=(const MultiFreeListStringAllocStlWrapper&) const {
        return false;
    }
};

using MflString =
    std::basic_string<char, std::char_traits<char>, MultiFreeListStringAllocStlWrapper<char>>;

// 64-bit FNV-1a. Bytes count as signed, so those from 0x80 on enter with all upper bits set.
struct MflStringHash {
    static constexpr uint64_t kFnvOffsetBasis = vorn::kFnvBasis;
    static constexpr uint64_t kFnvPrime = vorn::kFnvPrime;

    size_t operator()(const MflString& mflString) const {
        uint64_t hashVal = kFnvOffsetBasis;
        for (const char byte : mflString) {
            hashVal = (hashVal ^ _widen(byte)) * kFnvPrime;
        }
        return hashVal;
    }

private:
    static uint64_t _widen(char byte) {
        return static_cast<uint64_t>(static_cast<int64_t>(static_cast<signed char>(byte)));
    }
};

} // namespace vorn::settings
