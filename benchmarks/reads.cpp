// Reads of an integer by a path of four names, given as text at run time.
//
//   read_hot_TREE   64 paths of the tree, in an order that cannot be predicted
//   read_all_TREE   every path of the tree once, shuffled; the caches do not hold them
//
// The tree is chosen with --tree=1k|10k|100k|1M|wide (1k), one for each process. Peers: the
// whole-path map behind four calls, nested maps, nlohmann::json (pointer made ahead, and made of
// the text), rapidjson, GKeyFile, Boost.PropertyTree; and the hash of the path alone as the floor.
#include "Loaded.h"
#include "peers/AbslMap.h"
#include "peers/KeyFile.h"
#include "peers/NestedMaps.h"
#include "peers/NlohmannJson.h"
#include "peers/PropertyTree.h"
#include "peers/RapidJson.h"

namespace vorn::bench {

namespace {

// The hash has no value to compare.
template <class Side>
Loaded<Side>& loaded(const Tree& tree) {
    if constexpr (std::is_same_v<Side, PathHashOnly>) {
        static Loaded<Side> unchecked(tree);
        return unchecked;
    } else {
        return Loaded<Side>::instance(tree);
    }
}

template <class Side>
void readHot(benchmark::State& state, const Tree& tree) {
    Loaded<Side>& subject = loaded<Side>(tree);
    const Side& side = subject.side();
    const auto& keys = subject.hotKeys();
    const std::vector<uint16_t> order = randomOrder(keys.size());
    int64_t sum = 0;
    size_t i = 0;
    for (auto _ : state) {
        sum += side.read(keys[order[i]]);
        i = (i + 1) & kOrderMask;
    }
    if constexpr (!std::is_same_v<Side, PathHashOnly>) {
        int64_t expected = 0;
        for (size_t n = 0; n < static_cast<size_t>(state.iterations()); ++n) {
            expected += valueAt(subject.hotIndices()[order[n & kOrderMask]]);
        }
        require(sum == expected, std::string(Side::kName) + " read something else");
    }
    benchmark::DoNotOptimize(sum);
}

template <class Side>
void readAll(benchmark::State& state, const Tree& tree) {
    const Side& side = loaded<Side>(tree).side();
    const auto& keys = loaded<Side>(tree).shuffledKeys(tree);
    int64_t sum = 0;
    size_t i = 0;
    for (auto _ : state) {
        sum += side.read(keys[i]);
        if (++i == keys.size()) {
            i = 0;
        }
    }
    benchmark::DoNotOptimize(sum);
}

template <class Side>
void addReads(const Tree& tree) {
    addWorkload(std::string("read_hot_") + tree.name, Side::kName,
                [&tree](benchmark::State& state) { readHot<Side>(state, tree); });
}

template <class Side>
void addReadsOfAll(const Tree& tree) {
    addWorkload(std::string("read_all_") + tree.name, Side::kName,
                [&tree](benchmark::State& state) { readAll<Side>(state, tree); });
}

} // namespace

void registerWorkloads(const Options& options) {
    const Tree& tree = chosenTree(options, "1k");
    // A search through the members one by one takes rapidjson minutes in the wide tree.
    const bool isWide = tree.widths[3] > 1000;

    addReads<VornStore>(tree);
    addReads<AbslMap>(tree);
    addReads<PathHashOnly>(tree);
    addReads<NestedMaps>(tree);
    addReads<NlohmannJson>(tree);
    addReads<NlohmannText>(tree);
    if (!isWide) {
        addReads<RapidJson>(tree);
    }
    addReads<KeyFile>(tree);
    addReads<PropertyTree>(tree);

    addReadsOfAll<VornStore>(tree);
    addReadsOfAll<AbslMap>(tree);
    addReadsOfAll<PathHashOnly>(tree);
    addReadsOfAll<NestedMaps>(tree);
    addReadsOfAll<NlohmannJson>(tree);
    addReadsOfAll<NlohmannText>(tree);
    if (!isWide) {
        addReadsOfAll<RapidJson>(tree);
    }
    addReadsOfAll<KeyFile>(tree);
    addReadsOfAll<PropertyTree>(tree);
}

} // namespace vorn::bench
