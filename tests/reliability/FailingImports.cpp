#include "FailingImports.h"

#include <elf.h>
#include <link.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <unordered_set>

namespace reliability {

namespace {

std::unordered_set<void*> g_live;
size_t g_mappedBytes = 0;
size_t g_countdown = 0; // 0: nothing fails
bool g_isForEver = false;
size_t g_failed = 0;
bool g_areLocksFailing = false;

bool isFailing() {
    if (g_countdown == 0 || --g_countdown > 0) {
        return false;
    }
    g_countdown = g_isForEver ? 1 : 0;
    ++g_failed;
    return true;
}

template <class Allocate>
void* allocate(Allocate allocateMemory) {
    void* memory = isFailing() ? nullptr : allocateMemory();
    if (memory) {
        g_live.insert(memory);
    }
    return memory;
}

void* orThrow(void* memory) {
    return memory ? memory : throw std::bad_alloc();
}

void* mallocOrFail(size_t size) {
    return allocate([=] { return std::malloc(size); });
}
void* alignedAllocOrFail(size_t alignment, size_t size) {
    return allocate([=] { return std::aligned_alloc(alignment, size); });
}
void* newOrFail(size_t size, const std::nothrow_t&) {
    return allocate([=] { return ::operator new(size, std::nothrow); });
}
void* newArrayOrFail(size_t size, const std::nothrow_t&) {
    return allocate([=] { return ::operator new[](size, std::nothrow); });
}
void* newOrThrow(size_t size) {
    return orThrow(newOrFail(size, std::nothrow));
}
void* newArrayOrThrow(size_t size) {
    return orThrow(newArrayOrFail(size, std::nothrow));
}
void freeNoted(void* memory) {
    g_live.erase(memory);
    std::free(memory);
}
void deleteNoted(void* memory) {
    g_live.erase(memory);
    ::operator delete(memory);
}
void deleteArrayNoted(void* memory) {
    g_live.erase(memory);
    ::operator delete[](memory);
}
void* mmapOrFail(void* address, size_t size, int access, int flags, int file, off_t offset) {
    if (isFailing()) {
        return MAP_FAILED;
    }
    g_mappedBytes += size;
    return mmap(address, size, access, flags, file, offset);
}
int munmapNoted(void* address, size_t size) {
    g_mappedBytes -= size;
    return munmap(address, size);
}
int lockOrFail(pthread_mutex_t* mutex) {
    return g_areLocksFailing ? EINVAL : pthread_mutex_lock(mutex);
}

struct Import {
    std::string_view name;
    void* replacement; // null: not known here
};

template <class Function>
void* addressOf(Function* function) {
    return reinterpret_cast<void*>(function);
}

const Import kImports[] = {
    {"malloc", addressOf(mallocOrFail)},
    {"aligned_alloc", addressOf(alignedAllocOrFail)},
    {"_Znwm", addressOf(newOrThrow)},
    {"_Znam", addressOf(newArrayOrThrow)},
    {"_ZnwmRKSt9nothrow_t", addressOf(newOrFail)},
    {"_ZnamRKSt9nothrow_t", addressOf(newArrayOrFail)},
    {"free", addressOf(freeNoted)},
    {"_ZdlPv", addressOf(deleteNoted)},
    {"_ZdlPvm", addressOf(deleteNoted)}, // the size goes unused
    {"_ZdaPv", addressOf(deleteArrayNoted)},
    {"_ZdaPvm", addressOf(deleteArrayNoted)},
    {"mmap", addressOf(mmapOrFail)},
    {"munmap", addressOf(munmapNoted)},
    {"pthread_mutex_lock", addressOf(lockOrFail)},
    {"calloc", nullptr},
    {"realloc", nullptr},
    {"posix_memalign", nullptr},
    {"_ZnwmSt11align_val_t", nullptr},
    {"_ZnamSt11align_val_t", nullptr},
};

void overwrite(void** place, void* address) {
    const auto pageSize = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    void* page = reinterpret_cast<void*>(reinterpret_cast<uintptr_t>(place) / pageSize * pageSize);
    mprotect(page, pageSize, PROT_READ | PROT_WRITE);
    *place = address;
}

void takeOver(void** place, std::string_view name) {
    for (const Import& import : kImports) {
        if (import.name != name) {
            continue;
        }
        if (import.replacement) {
            overwrite(place, import.replacement);
        } else if (!std::getenv("LLVM_PROFILE_FILE")) { // what counts coverage may do as it likes
            std::fprintf(stderr, "%s is not known to fail\n", import.name.data());
            std::abort();
        }
    }
}

} // namespace

void takeOverImports(void* library) {
    const auto* map = static_cast<const link_map*>(library);
    const auto valueOf = [map](ElfW(Sxword) tag) -> ElfW(Addr) {
        for (const ElfW(Dyn)* entry = map->l_ld; entry->d_tag != DT_NULL; ++entry) {
            if (entry->d_tag == tag) {
                return entry->d_un.d_val;
            }
        }
        return 0;
    };
    const auto* symbols = reinterpret_cast<const ElfW(Sym)*>(valueOf(DT_SYMTAB));
    const auto* strings = reinterpret_cast<const char*>(valueOf(DT_STRTAB));
    const auto takeOverTable = [&](ElfW(Sxword) table, ElfW(Sxword) size) {
        const auto* first = reinterpret_cast<const ElfW(Rela)*>(valueOf(table));
        for (const auto* at = first; at < first + valueOf(size) / sizeof(*at); ++at) {
            const auto type = ELF64_R_TYPE(at->r_info);
            if (type == R_X86_64_JUMP_SLOT || type == R_X86_64_GLOB_DAT) {
                takeOver(reinterpret_cast<void**>(map->l_addr + at->r_offset),
                         strings + symbols[ELF64_R_SYM(at->r_info)].st_name);
            }
        }
    };
    takeOverTable(DT_JMPREL, DT_PLTRELSZ);
    takeOverTable(DT_RELA, DT_RELASZ);
}

void failAllocation(size_t n, bool isForEver) {
    g_countdown = n;
    g_isForEver = isForEver;
    g_failed = 0;
}

size_t stopFailing() {
    g_countdown = 0;
    return g_failed;
}

size_t countLiveAllocations() {
    return g_live.size() + g_mappedBytes;
}

void failLocks(bool isFailing) {
    g_areLocksFailing = isFailing;
}

} // namespace reliability
