// Short texts looked at in blocks of 16 bytes, before it is known where they end.
//
// Where texts of many lengths come in turn, every branch that depends on the length is guessed
// wrong time and again, and that costs more than looking at a few bytes too many. What lies behind
// the end of a text is loaded and then dropped, and nothing is loaded from a page that the text
// does not begin in. The loads are in assembler, out of the sight of the sanitizers; Valgrind,
// which would take them for a fault of the program, is asked for once, and there nobody reads
// ahead.
#pragma once

#include <cstddef>
#include <cstdint>
#include <emmintrin.h>

namespace vorn::ahead {

constexpr size_t kBlockSize = 16;
using Block = __m128i;

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

constexpr uintptr_t kPageSize = 4096;

// So many bytes of a page may be read ahead: all of them, or none.
inline const uintptr_t g_readableOfPage = isUnderValgrind() ? 0 : kPageSize;

// Whether reach bytes can be loaded from where a text begins.
template <size_t reach>
bool isReadable(const char* text) {
    return reinterpret_cast<uintptr_t>(text) % kPageSize + reach <= g_readableOfPage;
}

// The same text, of whose size the compiler knows nothing any more: what is read behind the end of
// one that it knows would be a fault to it.
inline const char* forgetSize(const char* text) {
    asm("" : "+r"(text));
    return text;
}

// All REQUIRE that the bytes are readable.
inline Block loadBlock(const char* bytes) {
    Block block;
    asm("movdqu %1, %0" : "=x"(block) : "m"(*reinterpret_cast<const char(*)[16]>(bytes)));
    return block;
}
inline uint64_t loadWord(const char* bytes) {
    uint64_t word;
    asm("movq %1, %0" : "=r"(word) : "m"(*reinterpret_cast<const char(*)[8]>(bytes)));
    return word;
}

// Which bytes of a block are the given one, a bit each.
inline uint64_t findByte(Block block, char byte) {
    const Block equal = _mm_cmpeq_epi8(block, _mm_set1_epi8(byte));
    return static_cast<uint64_t>(static_cast<unsigned>(_mm_movemask_epi8(equal)));
}

} // namespace vorn::ahead
