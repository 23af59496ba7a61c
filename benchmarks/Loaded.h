// A side of a benchmark with the whole tree in it, made once a process and checked.
#pragma once

#include "Rounds.h"
#include "VornStore.h"
#include "Workload.h"

#include <string>
#include <type_traits>
#include <vector>

namespace vorn::bench {

// The texts of the tree's paths; the same for every side.
inline const Paths& pathsOf(const Tree& tree) {
    static const Paths paths(tree);
    return paths;
}

template <class Side>
class Loaded {
public:
    using Key = typename Side::Key;

    explicit Loaded(const Tree& tree) : m_hotIndices(spreadIndices(tree.size())) {
        const Paths& paths = pathsOf(tree);
        for (size_t i = 0; i < paths.size(); ++i) {
            m_side.create(paths[i], valueAt(i));
        }
        for (const size_t index : m_hotIndices) {
            m_hotKeys.push_back(m_side.key(paths[index]));
        }
    }

    // The one of this process.
    static Loaded& instance(const Tree& tree) {
        static Loaded loaded(tree);
        static const bool isChecked = loaded._check(tree);
        (void)isChecked;
        return loaded;
    }

    Side& side() {
        return m_side;
    }
    const std::vector<Key>& hotKeys() const {
        return m_hotKeys;
    }
    const std::vector<size_t>& hotIndices() const {
        return m_hotIndices;
    }

    // The keys of all values in the shuffled order of permutation(). Made on the first call, in
    // the order of creation, so that keys visited one after another lie apart in memory.
    const std::vector<Key>& shuffledKeys(const Tree& tree) {
        if (m_shuffledKeys.empty()) {
            const Paths& paths = pathsOf(tree);
            std::vector<Key> keys;
            for (size_t i = 0; i < paths.size(); ++i) {
                keys.push_back(m_side.key(paths[i]));
            }
            for (const uint32_t index : permutation(paths.size())) {
                m_shuffledKeys.push_back(keys[index]);
            }
        }
        return m_shuffledKeys;
    }

private:
    // The hot values and a thousand others are what the settings table says.
    bool _check(const Tree& tree) {
        const Paths& paths = pathsOf(tree);
        std::vector<size_t> indices = m_hotIndices;
        for (size_t i = 0; i < paths.size(); i += paths.size() / 1000) {
            indices.push_back(i);
        }
        for (const size_t index : indices) {
            const int64_t value = m_side.read(m_side.key(paths[index]));
            require(value == valueAt(index),
                    std::string(Side::kName) + " reads wrong: " + paths[index]);
            if constexpr (!std::is_same_v<Side, VornStore>) {
                require(value == Loaded<VornStore>::instance(tree).side().read(paths[index]),
                        std::string(Side::kName) + " differs from vorn at " + paths[index]);
            }
        }
        return true;
    }

    Side m_side;
    std::vector<size_t> m_hotIndices;
    std::vector<Key> m_hotKeys;
    std::vector<Key> m_shuffledKeys;
};

// The tree that the options name, or else the program's own choice.
inline const Tree& chosenTree(const Options& options, const char* ownChoice) {
    const std::string name = options.tree.empty() ? ownChoice : options.tree;
    const Tree* tree = findTree(name);
    require(tree != nullptr, name + ": no such tree");
    return *tree;
}

} // namespace vorn::bench
