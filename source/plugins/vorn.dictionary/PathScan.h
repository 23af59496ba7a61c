// Length and hash of a path, in one pass over its text.
//
// Where paths of many lengths are looked up in turn, every branch that depends on the length is
// guessed wrong time and again, and that costs more than all other steps of a lookup. So a path of
// usual length is scanned without any: its first kReach bytes are looked at at once, and of the
// states of the hash after each word the last that the text reaches is selected.
//
// Bytes behind the end of the text are loaded, though never beyond its page, and change nothing.
// The loads are in assembler, out of the sight of the sanitizers; under Valgrind, which would take
// them for a fault of the program, all paths take the plain way.
#pragma once

#include "PathHash.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <emmintrin.h>

namespace vorn::dictionary {

struct PathScan {
    size_t length;
    uint32_t hash; // the state behind the text
};

namespace detail {

// Valgrind knows these rotations, which mean nothing to a processor, for a question.
inline bool isUnderValgrind() {
    constexpr uint64_t kRunningOnValgrind = 0x1001;
    const volatile uint64_t question[6] = {kRunningOnValgrind};
    uint64_t answer = 0;
    asm volatile("rolq $3, %%rdi\n\t"
                 "rolq $13, %%rdi\n\t"
                 "rolq $61, %%rdi\n\t"
                 "rolq $51, %%rdi\n\t"
                 "xchgq %%rbx, %%rbx"
                 : "+d"(answer)
                 : "a"(&question)
                 : "cc", "memory");
    return answer != 0;
}

inline const bool g_canScanAhead = g_hasCrcInstruction && !isUnderValgrind();

[[gnu::noinline]] inline PathScan scanPlainly(uint32_t state, const char* text) {
    const size_t length = std::strlen(text);
    return {length, length > 0 ? extendHash(state, text, length) : state};
}

// Which of the 16 bytes are zero, a bit each.
inline uint64_t zeroBytes(const char* bytes) {
    __m128i block;
    asm("movdqu %1, %0" : "=x"(block) : "m"(*reinterpret_cast<const char(*)[16]>(bytes)));
    const __m128i equal = _mm_cmpeq_epi8(block, _mm_setzero_si128());
    return static_cast<uint64_t>(static_cast<unsigned>(_mm_movemask_epi8(equal)));
}

inline uint64_t loadWordAhead(const char* bytes) {
    uint64_t word;
    asm("movq %1, %0" : "=r"(word) : "m"(*reinterpret_cast<const char(*)[8]>(bytes)));
    return word;
}

// reached when index is less than count, else before; never by a branch.
template <uint64_t index>
uint64_t selectState(uint64_t count, uint64_t before, uint64_t reached) {
    asm("cmpq %[index], %[count]\n\t"
        "cmovaq %[reached], %[before]"
        : [before] "+r"(before)
        : [reached] "r"(reached), [count] "r"(count), [index] "i"(index)
        : "cc");
    return before;
}

} // namespace detail

// Scans a zero-terminated text that continues a path of the given state.
inline PathScan scanPath(uint32_t state, const char* text) {
    constexpr size_t kReach = 48;
    constexpr uint64_t kShortest = 9; // a word and a byte
    constexpr uintptr_t kPageSize = 4096;
    const bool isInPage = reinterpret_cast<uintptr_t>(text) % kPageSize <= kPageSize - kReach;
    if (!isInPage || !detail::g_canScanAhead) [[unlikely]] {
        return detail::scanPlainly(state, text);
    }
    asm("" : "+r"(text)); // the compiler forgets what it knows of the text's size
    const uint64_t zeros = detail::zeroBytes(text) | detail::zeroBytes(text + 16) << 16 |
                           detail::zeroBytes(text + 32) << 32;
    if (zeros == 0 || zeros % (1u << kShortest) != 0) [[unlikely]] {
        return detail::scanPlainly(state, text);
    }
    const size_t length = static_cast<unsigned>(__builtin_ctzll(zeros));
    const size_t words = (length - 1) / 8; // in front of the last 1 to 8 bytes
    const uint64_t after1 = detail::crcWord(state, loadWord(text));
    const uint64_t after2 = detail::crcWord(after1, detail::loadWordAhead(text + 8));
    const uint64_t after3 = detail::crcWord(after2, detail::loadWordAhead(text + 16));
    const uint64_t after4 = detail::crcWord(after3, detail::loadWordAhead(text + 24));
    const uint64_t after5 = detail::crcWord(after4, detail::loadWordAhead(text + 32));
    uint64_t crc = detail::selectState<1>(words, after1, after2);
    crc = detail::selectState<2>(words, crc, after3);
    crc = detail::selectState<3>(words, crc, after4);
    crc = detail::selectState<4>(words, crc, after5);
    return {length, extendHashByLast(crc, text + length, length - 8 * words)};
}

} // namespace vorn::dictionary
