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
#include <map>
#include <new>
#include <set>
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

template <auto allocate, class... Arguments>
void* orNull(Arguments... arguments) {
    void* memory = isFailing() ? nullptr : allocate(arguments...);
    if (memory) {
        g_live.insert(memory);
    }
    return memory;
}

template <auto allocate>
void* orThrow(size_t size) {
    void* memory = orNull<allocate>(size, std::nothrow);
    return memory ? memory : throw std::bad_alloc();
}

template <auto release>
void noted(void* memory) {
    g_live.erase(memory);
    release(memory);
}

using New = void* (*)(size_t, const std::nothrow_t&);
using Delete = void (*)(void*);
constexpr New kNew = &::operator new, kNewArray = &::operator new[];
constexpr Delete kDelete = &::operator delete, kDeleteArray = &::operator delete[];

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

template <class Function>
void* addressOf(Function* function) {
    return reinterpret_cast<void*>(function);
}

const std::map<std::string_view, void*> kReplacements = {
    {"malloc", addressOf(orNull<std::malloc, size_t>)},
    {"aligned_alloc", addressOf(orNull<std::aligned_alloc, size_t, size_t>)},
    {"_Znwm", addressOf(orThrow<kNew>)},
    {"_Znam", addressOf(orThrow<kNewArray>)},
    {"_ZnwmRKSt9nothrow_t", addressOf(orNull<kNew, size_t, const std::nothrow_t&>)},
    {"_ZnamRKSt9nothrow_t", addressOf(orNull<kNewArray, size_t, const std::nothrow_t&>)},
    {"free", addressOf(noted<std::free>)},
    {"_ZdlPv", addressOf(noted<kDelete>)},
    {"_ZdlPvm", addressOf(noted<kDelete>)}, // the size goes unused
    {"_ZdaPv", addressOf(noted<kDeleteArray>)},
    {"_ZdaPvm", addressOf(noted<kDeleteArray>)},
    {"mmap", addressOf(mmapOrFail)},
    {"munmap", addressOf(munmapNoted)},
    {"pthread_mutex_lock", addressOf(lockOrFail)},
};
const std::set<std::string_view> kNotKnownToFail = {"calloc", "realloc", "posix_memalign",
                                                    "_ZnwmSt11align_val_t", "_ZnamSt11align_val_t"};

void takeOver(void** place, const char* name) {
    if (const auto replacement = kReplacements.find(name); replacement != kReplacements.end()) {
        const auto pageSize = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
        const auto page = reinterpret_cast<uintptr_t>(place) / pageSize * pageSize;
        mprotect(reinterpret_cast<void*>(page), pageSize, PROT_READ | PROT_WRITE);
        *place = replacement->second;
    } else if (kNotKnownToFail.count(name) > 0 && !std::getenv("LLVM_PROFILE_FILE")) {
        std::fprintf(stderr, "%s is not known to fail\n", name); // what counts coverage may use it
        std::abort();
    }
}

} // namespace

void takeOverImports(void* library) {
    const auto* map = static_cast<const link_map*>(library);
    std::map<ElfW(Sxword), ElfW(Addr)> values;
    for (const ElfW(Dyn)* entry = map->l_ld; entry->d_tag != DT_NULL; ++entry) {
        values[entry->d_tag] = entry->d_un.d_val;
    }
    const auto* symbols = reinterpret_cast<const ElfW(Sym)*>(values[DT_SYMTAB]);
    const auto* strings = reinterpret_cast<const char*>(values[DT_STRTAB]);
    const auto takeOverTable = [&](ElfW(Sxword) table, ElfW(Sxword) size) {
        const auto* first = reinterpret_cast<const ElfW(Rela)*>(values[table]);
        for (const auto* at = first; at < first + values[size] / sizeof(*at); ++at) {
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
