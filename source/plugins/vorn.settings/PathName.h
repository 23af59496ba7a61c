// A name of a path, looked at as a block of 16 bytes: what a name is compared and hashed by without
// a branch that depends on how long it is. Pure.
#pragma once

#include "../shared/ReadAhead.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace vorn::settings {

class PathName {
public:
    static constexpr size_t kBlock = ahead::kBlockSize;

    // REQUIRES: there is no slash in it, and the text outlives the name if it is long.
    explicit PathName(std::string_view text) : m_text(text) {
        const size_t size = isLong() ? kBlock : text.size();
        if (ahead::isReadable<kBlock>(text.data())) [[likely]] {
            m_block = _readBlock(text.data(), size);
        } else {
            m_block = _mm_setzero_si128();
            std::memcpy(&m_block, text.data(), size);
        }
    }

    // Reads a zero-terminated name in one look, or tells that it has to be read otherwise: it is
    // long, has a slash in it, or lies at the end of a page.
    static bool read(const char* text, PathName* name) {
        if (!ahead::isReadable<kBlock>(text)) [[unlikely]] {
            return false;
        }
        const ahead::Block block = ahead::loadBlock(ahead::forgetSize(text));
        const uint64_t zeros = ahead::findByte(block, '\0');
        if (zeros == 0) [[unlikely]] {
            return false;
        }
        const size_t length = static_cast<unsigned>(__builtin_ctz(static_cast<unsigned>(zeros)));
        if (length >= kBlock) {
            __builtin_unreachable(); // of 16 bytes
        }
        name->m_text = {text, length};
        name->m_block = _mm_and_si128(block, _firstBytes(length));
        return ahead::findByte(name->m_block, '/') == 0;
    }

    PathName() = default;

    // Longer than what fits a block with a zero behind it.
    bool isLong() const {
        return m_text.size() >= kBlock;
    }
    std::string_view text() const {
        return m_text;
    }
    // The name with zeros behind it; of a long one its beginning, with none.
    ahead::Block block() const {
        return m_block;
    }

    // The hash of the path that consists of one of that hash, a slash and this name.
    uint64_t hashBelow(uint64_t hash) const {
        return isLong() ? _hashLong(hash) : _hashBlock(hash, m_block, m_text.size());
    }

private:
    [[gnu::noinline]] uint64_t _hashLong(uint64_t hash) const {
        const size_t length = m_text.size();
        for (size_t begin = 0; begin + kBlock < length; begin += kBlock) {
            hash = _hashBlock(hash, _load(m_text.data() + begin), length);
        }
        return _hashBlock(hash, _load(m_text.data() + length - kBlock), length);
    }
    // Both halves of the product are used, so that every bit counts.
    static uint64_t _hashBlock(uint64_t hash, ahead::Block block, size_t length) {
        __extension__ typedef unsigned __int128 Product;
        constexpr uint64_t kFactor = 0xd6e8feb86659fd93ull;
        const auto low = static_cast<uint64_t>(_mm_cvtsi128_si64(block));
        const auto high =
            static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(block, block)));
        const Product product = static_cast<Product>(hash ^ low) * (high ^ (kFactor + length));
        return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
    }

    // The first bytes of a text, behind which others may lie, with zeros behind them.
    static ahead::Block _readBlock(const char* text, size_t count) {
        return _mm_and_si128(ahead::loadBlock(ahead::forgetSize(text)), _firstBytes(count));
    }
    // What keeps the first bytes of a block.
    static ahead::Block _firstBytes(size_t count) {
        alignas(kBlock) static constexpr unsigned char kMasks[2 * kBlock] = {
            0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff,
            0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
        return _load(kMasks + kBlock - count);
    }
    static ahead::Block _load(const void* bytes) {
        return _mm_loadu_si128(static_cast<const ahead::Block*>(bytes));
    }

    std::string_view m_text;
    ahead::Block m_block;
};

} // namespace vorn::settings
