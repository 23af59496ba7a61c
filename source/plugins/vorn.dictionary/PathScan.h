// Length and hash of a path, in one pass over its text.
//
// A path of usual length takes no branch that depends on it (shared/ReadAhead.h says why): its
// first kReach bytes are looked at at once, and of the states of the hash after each word the last
// that the text reaches is selected.
#pragma once

#include "../shared/ReadAhead.h"
#include "PathHash.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vorn::dictionary {

struct PathScan {
    size_t length;
    uint32_t hash; // the state behind the text
};

namespace detail {

[[gnu::noinline]] inline PathScan scanPlainly(uint32_t state, const char* text) {
    const size_t length = std::strlen(text);
    return {length, length > 0 ? extendHash(state, text, length) : state};
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
    if (!ahead::isReadable<kReach>(text) || !detail::g_hasCrcInstruction) [[unlikely]] {
        return detail::scanPlainly(state, text);
    }
    text = ahead::forgetSize(text);
    const uint64_t zeros = ahead::findByte(ahead::loadBlock(text), '\0') |
                           ahead::findByte(ahead::loadBlock(text + 16), '\0') << 16 |
                           ahead::findByte(ahead::loadBlock(text + 32), '\0') << 32;
    if (zeros == 0 || zeros % (1u << kShortest) != 0) [[unlikely]] {
        return detail::scanPlainly(state, text);
    }
    const size_t length = static_cast<unsigned>(__builtin_ctzll(zeros));
    const size_t words = (length - 1) / 8; // in front of the last 1 to 8 bytes
    const uint64_t after1 = detail::crcWord(state, loadWord(text)); // all of it in the text
    const uint64_t after2 = detail::crcWord(after1, ahead::loadWord(text + 8));
    const uint64_t after3 = detail::crcWord(after2, ahead::loadWord(text + 16));
    const uint64_t after4 = detail::crcWord(after3, ahead::loadWord(text + 24));
    const uint64_t after5 = detail::crcWord(after4, ahead::loadWord(text + 32));
    uint64_t crc = detail::selectState<1>(words, after1, after2);
    crc = detail::selectState<2>(words, crc, after3);
    crc = detail::selectState<3>(words, crc, after4);
    crc = detail::selectState<4>(words, crc, after5);
    return {length, extendHashByLast(crc, text + length, length - 8 * words)};
}

} // namespace vorn::dictionary
