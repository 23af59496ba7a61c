// A path together with its hash, both of which follow when the path is cut back to that of a node
// around it: what an event is looked up by, path after path.
//
// The hash takes eight bytes a step and remembers its state after each, so that the hash of any
// beginning of the path is one step from there. Pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace vorn::settings {

class HashedPath {
public:
    explicit HashedPath(std::string_view path) : m_path(path) {
        const size_t remembered =
            path.size() / kWord < kMaxStates ? path.size() / kWord : kMaxStates;
        uint64_t state = kSeed;
        m_states[0] = state;
        for (size_t word = 0; word < remembered; ++word) {
            state = _step(state, word);
            m_states[word + 1] = state;
        }
    }

    std::string_view path() const {
        return m_path;
    }

    size_t hash() const {
        const size_t words = m_path.size() / kWord;
        size_t word = words < kMaxStates ? words : kMaxStates;
        uint64_t state = m_states[word]; // NOLINT(clang-analyzer-core.uninitialized.Assign)
        for (; word < words; ++word) {
            state = _step(state, word);
        }
        return _fold(state ^ _rest(), m_path.size() ^ kSeed);
    }

    // Cuts the path at its last "/", which goes too. False, with nothing cut, when there is none.
    bool cutLast() {
        const void* slash = ::memrchr(m_path.data(), '/', m_path.size());
        if (!slash) {
            return false;
        }
        m_path = {m_path.data(),
                  static_cast<size_t>(static_cast<const char*>(slash) - m_path.data())};
        return true;
    }

private:
    static constexpr size_t kWord = sizeof(uint64_t);
    static constexpr size_t kMaxStates = 16; // after more words the hash goes on from the last
    static constexpr uint64_t kSeed = 0x9e3779b97f4a7c15ull;
    static constexpr uint64_t kFactor = 0xd6e8feb86659fd93ull;

    uint64_t _step(uint64_t state, size_t word) const {
        uint64_t bytes;
        std::memcpy(&bytes, m_path.data() + word * kWord, kWord);
        return _fold(state ^ bytes, kFactor);
    }

    // The bytes behind the last whole word.
    uint64_t _rest() const {
        const size_t count = m_path.size() % kWord;
        if (m_path.size() < kWord || count == 0) {
            uint64_t bytes = 0;
            for (size_t i = 0; i < count; ++i) {
                bytes |= static_cast<uint64_t>(static_cast<unsigned char>(m_path[i])) << (8 * i);
            }
            return bytes;
        }
        uint64_t last;
        std::memcpy(&last, m_path.data() + m_path.size() - kWord, kWord);
        return last >> (8 * (kWord - count));
    }

    // Both halves of the product, so that every bit counts.
    static uint64_t _fold(uint64_t a, uint64_t b) {
        __extension__ typedef unsigned __int128 Product;
        const Product product = static_cast<Product>(a) * b;
        return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
    }

    std::string_view m_path;
    uint64_t m_states[kMaxStates + 1]; // after so many words, as far as the first path goes
};

} // namespace vorn::settings
