// What every side of a benchmark works on: trees of integers, the paths of their values, and the
// orders in which these are visited. All of it follows from the sizes alone, so that every
// process, every round and every peer sees the same.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace vorn::bench {

// A tree four levels deep: how many children each node of a level has.
struct Tree {
    const char* name;
    size_t widths[4];

    size_t size() const {
        return widths[0] * widths[1] * widths[2] * widths[3];
    }
};

constexpr Tree kTrees[] = {
    {"1k", {5, 5, 5, 8}},     {"10k", {10, 10, 10, 10}},   {"100k", {10, 20, 20, 25}},
    {"1M", {20, 25, 40, 50}}, {"wide", {1, 1, 1, 100000}}, // one node with 100,000 children
};

inline const Tree* findTree(const std::string& name) {
    const auto* tree = std::find_if(std::begin(kTrees), std::end(kTrees),
                                    [&](const Tree& candidate) { return candidate.name == name; });
    return tree == std::end(kTrees) ? nullptr : tree;
}

// The value that is stored at the path of that number.
inline int64_t valueAt(size_t index) {
    return static_cast<int64_t>(index * 7919 % 1000003) + 1;
}

// The path of a value, as in /audio2/mixer4/channel17/volume3.
inline std::string pathAt(const Tree& tree, size_t index) {
    static const char* const kNames[4][10] = {
        {"app", "renderer", "audio", "network", "physics", "input", "storage", "ui", "exts",
         "telemetry"},
        {"main", "window", "mixer", "session", "world", "device", "cache", "panel", "pool",
         "schedule"},
        {"view", "shadows", "channel", "limits", "solver", "mapping", "index", "layout", "log",
         "transport"},
        {"width", "height", "enabled", "opacity", "volume", "timeoutMs", "maxCount",
         "samplesPerPixel", "name", "scale"},
    };
    size_t places[4];
    for (size_t level = 4; level-- > 0; index /= tree.widths[level]) {
        places[level] = index % tree.widths[level];
    }
    std::string path;
    for (size_t level = 0; level < 4; ++level) {
        path += '/';
        path += kNames[level][places[level] % 10];
        path += std::to_string(places[level]);
    }
    return path;
}

// The paths of a tree as texts, one after the other in memory.
class Paths {
public:
    explicit Paths(const Tree& tree) : Paths(tree, "") {}

    // The same below a node: every path begins with base. Nothing is allocated but what stays.
    Paths(const Tree& tree, const std::string& base) {
        size_t length = 0;
        for (size_t i = 0; i < tree.size(); ++i) {
            length += base.size() + pathAt(tree, i).size() + 1;
        }
        m_texts = std::make_unique<char[]>(length);
        m_paths.reserve(tree.size());
        char* end = m_texts.get();
        for (size_t i = 0; i < tree.size(); ++i) {
            const std::string path = base + pathAt(tree, i);
            m_paths.push_back(end);
            end = std::copy_n(path.c_str(), path.size() + 1, end);
        }
    }

    size_t size() const {
        return m_paths.size();
    }
    const char* operator[](size_t index) const {
        return m_paths[index];
    }

private:
    std::unique_ptr<char[]> m_texts;
    std::vector<const char*> m_paths;
};

using Generator = std::mt19937_64; // the same sequence everywhere

// 64 values spread over the tree.
constexpr size_t kHotCount = 64;

inline std::vector<size_t> spreadIndices(size_t treeSize) {
    Generator generator(64);
    std::vector<size_t> indices;
    while (indices.size() < std::min(kHotCount, treeSize)) {
        const size_t index = generator() % treeSize;
        if (std::find(indices.begin(), indices.end(), index) == indices.end()) {
            indices.push_back(index);
        }
    }
    return indices;
}

// An order of visits to count places, too long for a branch predictor to learn. Walked with
// i = (i + 1) & kOrderMask.
constexpr size_t kOrderLength = 1u << 16;
constexpr size_t kOrderMask = kOrderLength - 1;

inline std::vector<uint16_t> randomOrder(size_t count) {
    Generator generator(7);
    std::vector<uint16_t> order(kOrderLength);
    for (uint16_t& place : order) {
        place = static_cast<uint16_t>(generator() % count);
    }
    return order;
}

// Every number below count once, shuffled.
inline std::vector<uint32_t> permutation(size_t count) {
    Generator generator(11);
    std::vector<uint32_t> numbers(count);
    std::iota(numbers.begin(), numbers.end(), 0u);
    for (size_t i = count; i > 1; --i) {
        std::swap(numbers[i - 1], numbers[generator() % i]);
    }
    return numbers;
}

} // namespace vorn::bench
