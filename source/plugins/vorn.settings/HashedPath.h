// A path together with its hash, both of which follow when the path is cut back to that of a node
// around it: what an event is looked up by, path after path.
//
// The path is put together from the front, name after name, in memory of its own. The hash goes on
// from name to name and is kept for each, so that the hash of any path around is there already. It
// depends on nothing but the text. Names of usual length take no branch that depends on how long
// they are. Pure, but for the memory of paths that are too long for the object itself.
#pragma once

#include "../shared/ReadAhead.h"
#include "PooledString.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

namespace vorn::settings {

class HashedPath {
public:
    // So many bytes are compared without a branch that depends on how many they are.
    static constexpr size_t kCompared = 48;

    // The empty path.
    HashedPath() {
        m_levels[0] = {0, kSeed};
    }
    explicit HashedPath(std::string_view text) {
        const std::string_view first = text.substr(0, text.find('/'));
        _appendText(first);
        m_levels[0] = {m_size, first.empty() ? kSeed : _hashName(kSeed, first)};
        if (first.size() < text.size()) {
            _appendNames(text.substr(first.size() + 1));
        }
    }
    HashedPath(const HashedPath&) = delete;
    HashedPath& operator=(const HashedPath&) = delete;

    std::string_view path() const {
        return {m_text, m_size};
    }
    size_t hash() const {
        return _last().hash;
    }

    // Adds "/" and the name, for each of the names from the last to the first.
    void appendBackwards(const char* const* names, size_t count) {
        // In registers: what the text is written to could be any member, for all that is known.
        char* end = m_text + m_size;
        uint64_t hash = _last().hash;
        size_t depth = m_depth;
        for (; count > 0; --count) {
            const char* name = names[count - 1];
            const ShortName found = _findShort(name);
            const auto size = static_cast<size_t>(end - m_text);
            const bool hasRoom = m_capacity - size > kBlock && depth + 1 < kNearDepth;
            if (found.isShort && hasRoom) [[likely]] {
                *end = '/';
                std::memcpy(end + 1, &found.block, kBlock);
                end += 1 + found.length;
                hash = _hashBlock(hash, found.block, found.length);
                m_levels[++depth] = {size + 1 + found.length, hash};
                continue;
            }
            m_size = size;
            m_depth = depth;
            _appendNames(name);
            end = m_text + m_size;
            hash = _last().hash;
            depth = m_depth;
        }
        m_size = static_cast<size_t>(end - m_text);
        m_depth = depth;
    }

    // Whether the text of a pooled string of capacity kCompared or more is this path. What lies
    // behind either text in its memory is loaded, too.
    bool equals(const MflString& text) const {
        if (text.size() != m_size) {
            return false;
        }
        if (m_size > kCompared) [[unlikely]] {
            return path() == std::string_view(text);
        }
        uint64_t equal = 0;
        for (size_t begin = 0; begin < kCompared; begin += kBlock) {
            const ahead::Block differing = _mm_xor_si128(ahead::loadBlock(m_text + begin),
                                                         ahead::loadBlock(text.data() + begin));
            equal |= ahead::findByte(differing, '\0') << begin;
        }
        return (~equal & ((uint64_t{1} << m_size) - 1)) == 0;
    }

    // Cuts the path at its last "/", which goes too. False, with nothing cut, when there is none.
    bool cutLast() {
        if (!m_farLevels.empty()) [[unlikely]] {
            m_farLevels.pop_back();
        } else if (m_depth > 0) {
            --m_depth;
        } else {
            return false;
        }
        m_size = _last().size;
        return true;
    }

private:
    static constexpr size_t kBlock = ahead::kBlockSize;
    static constexpr size_t kNearCapacity = 256;
    static constexpr size_t kNearDepth = 24;
    static constexpr uint64_t kSeed = 0x9e3779b97f4a7c15ull;
    static constexpr uint64_t kFactor = 0xd6e8feb86659fd93ull;

    // The path as far as one of its names.
    struct Level {
        size_t size;
        uint64_t hash;
    };

    const Level& _last() const {
        return m_farLevels.empty() ? m_levels[m_depth] : m_farLevels.back();
    }
    void _push(uint64_t hash) {
        if (m_depth + 1 < kNearDepth) [[likely]] {
            m_levels[++m_depth] = {m_size, hash};
        } else {
            m_farLevels.push_back({m_size, hash});
        }
    }

    // A name that fits a block, which holds zeros behind it, and has no slash in it.
    struct ShortName {
        bool isShort;
        size_t length;
        ahead::Block block;
    };
    static ShortName _findShort(const char* name) {
        if (!ahead::isReadable<kBlock>(name)) [[unlikely]] {
            return {false, 0, _mm_setzero_si128()};
        }
        const ahead::Block block = ahead::loadBlock(ahead::forgetSize(name));
        const uint64_t zeros = ahead::findByte(block, '\0');
        const uint64_t slashes = ahead::findByte(block, '/');
        const size_t length = static_cast<unsigned>(__builtin_ctzll(zeros | 1u << kBlock));
        return {zeros != 0 && (slashes & (zeros ^ (zeros - 1))) == 0, length,
                _mm_and_si128(block, _firstBytes(length))};
    }
    // Any names, with slashes between them.
    [[gnu::noinline]] void _appendNames(std::string_view names) {
        for (bool isLast = false; !isLast;) {
            const std::string_view name = names.substr(0, names.find('/'));
            const uint64_t hash = _hashName(_last().hash, name);
            _appendText("/");
            _appendText(name);
            _push(hash);
            isLast = name.size() == names.size();
            names.remove_prefix(isLast ? 0 : name.size() + 1);
        }
    }
    void _appendText(std::string_view text) {
        _makeRoom(text.size());
        text.copy(m_text + m_size, text.size());
        m_size += text.size();
    }
    void _makeRoom(size_t length) {
        if (m_capacity - m_size < length) [[unlikely]] {
            _grow(length);
        }
    }
    [[gnu::noinline]] void _grow(size_t length) {
        MflString larger(2 * (m_size + length), '\0');
        larger.replace(0, m_size, m_text, m_size);
        m_far = std::move(larger);
        m_text = m_far.data();
        m_capacity = m_far.size();
    }

    // What keeps the first bytes of a block.
    static ahead::Block _firstBytes(size_t count) {
        alignas(kBlock) static constexpr unsigned char kMasks[2 * kBlock] = {
            0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff,
            0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
        ahead::Block mask;
        std::memcpy(&mask, kMasks + kBlock - count, kBlock);
        return mask;
    }

    // The hash after a whole name: after each block, the last of which is not full.
    static uint64_t _hashName(uint64_t hash, std::string_view name) {
        for (;; name.remove_prefix(kBlock)) {
            ahead::Block block = _mm_setzero_si128();
            const size_t length = name.size() < kBlock ? name.size() : kBlock;
            std::memcpy(&block, name.data(), length);
            hash = _hashBlock(hash, block, length);
            if (length < kBlock) {
                return hash;
            }
        }
    }
    // Zeros follow the length bytes. Both halves of the product are used, so that every bit counts.
    static uint64_t _hashBlock(uint64_t hash, ahead::Block block, size_t length) {
        __extension__ typedef unsigned __int128 Product;
        const auto low = static_cast<uint64_t>(_mm_cvtsi128_si64(block));
        const auto high =
            static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(block, block)));
        const Product product = static_cast<Product>(hash ^ low) * (high ^ (kFactor + length));
        return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
    }

    char m_near[kNearCapacity];
    MflString m_far;
    char* m_text = m_near;
    size_t m_size = 0;
    size_t m_capacity = kNearCapacity;
    Level m_levels[kNearDepth];
    size_t m_depth = 0;             // place of the last of these
    std::vector<Level> m_farLevels; // behind those
};

} // namespace vorn::settings
