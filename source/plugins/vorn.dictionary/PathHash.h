// The hash of an item's path, extendable at any byte.
//
// The state of an item is the state of its parent, extended by "/" and the item's name. So the
// state of everything below an item can be computed from the item's own state and the relative
// path in one pass over the text, and items never need their whole path.
//
// The function is CRC-32C: it continues at any byte boundary and takes eight bytes a step where
// the processor has the instruction. It spreads names well, and every match is confirmed by the
// names themselves, so a collision costs time, never an answer.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vorn::dictionary {

namespace detail {

constexpr std::array<uint32_t, 256> makeCrcTable() {
    constexpr uint32_t kReflectedPolynomial = 0x82f63b78u;
    std::array<uint32_t, 256> table{};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t crc = byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1) ^ ((crc & 1) ? kReflectedPolynomial : 0);
        }
        table[byte] = crc;
    }
    return table;
}
inline constexpr std::array<uint32_t, 256> kCrcTable = makeCrcTable();

inline const bool g_hasCrcInstruction = __builtin_cpu_supports("sse4.2");

inline uint64_t crcWord(uint64_t crc, uint64_t word) {
    asm("crc32q %1, %0" : "+r"(crc) : "r"(word));
    return crc;
}

inline uint32_t crcByte(uint32_t crc, char byte) {
    asm("crc32b %1, %0" : "+r"(crc) : "rm"(byte));
    return crc;
}

// Reference form, for processors without the instruction.
inline uint32_t extendBytewise(uint32_t state, const char* text, size_t length) {
    for (size_t i = 0; i < length; ++i) {
        state = (state >> 8) ^ kCrcTable[(state ^ static_cast<unsigned char>(text[i])) & 0xff];
    }
    return state;
}

} // namespace detail

inline uint64_t loadWord(const char* text) {
    uint64_t word;
    std::memcpy(&word, text, sizeof(word));
    return word;
}

// The factor that moves the low `count` bytes of a word to its end.
inline constexpr uint64_t kMoveToEnd[9] = {
    0, 1ull << 56, 1ull << 48, 1ull << 40, 1ull << 32, 1ull << 24, 1ull << 16, 1ull << 8, 1ull,
};
// The last `count` bytes of a word.
inline constexpr uint64_t kLastBytes[9] = {
    0x0000000000000000, 0xff00000000000000, 0xffff000000000000,
    0xffffff0000000000, 0xffffffff00000000, 0xffffffffff000000,
    0xffffffffffff0000, 0xffffffffffffff00, 0xffffffffffffffff,
};

// The state after the last 1 to 8 bytes of a text of at least 8, in one step. Leading zero bytes
// leave a zero state alone, so the bytes go to the end of a word, with the state folded into them
// instead of passed along; what of the state reaches beyond them is added afterwards.
inline uint32_t extendHashByLast(uint64_t state, const char* end, size_t count) {
    __extension__ typedef unsigned __int128 Product;
    const Product moved = static_cast<Product>(state) * kMoveToEnd[count];
    const uint64_t last = loadWord(end - 8) & kLastBytes[count];
    const uint64_t mixed = detail::crcWord(0, last ^ static_cast<uint64_t>(moved));
    return static_cast<uint32_t>(mixed ^ static_cast<uint64_t>(moved >> 64));
}

// The state after length more bytes. REQUIRES: length > 0.
inline uint32_t extendHash(uint32_t state, const char* text, size_t length) {
    if (!detail::g_hasCrcInstruction) [[unlikely]] {
        return detail::extendBytewise(state, text, length);
    }
    if (length < 8) [[unlikely]] {
        for (size_t i = 0; i < length; ++i) {
            state = detail::crcByte(state, text[i]);
        }
        return state;
    }
    // Few branches that depend on the length.
    uint64_t crc = state;
    size_t position = 0;
    for (; length - position > 16; position += 16) {
        crc = detail::crcWord(crc, loadWord(text + position));
        crc = detail::crcWord(crc, loadWord(text + position + 8));
    }
    const bool hasMore = length - position > 8;
    const uint64_t more = detail::crcWord(crc, loadWord(text + (hasMore ? position : 0)));
    crc = hasMore ? more : crc;
    position += hasMore ? 8 : 0;
    return extendHashByLast(crc, text + length, length - position);
}

// The state that a "/" adds: where the names of an item's children start from.
inline uint32_t extendHashBySeparator(uint32_t state) {
    return (state >> 8) ^ detail::kCrcTable[(state ^ static_cast<unsigned char>('/')) & 0xff];
}

} // namespace vorn::dictionary
