// Overwriting integers by path, with nobody subscribed.
//
//   overwrite_hot_TREE   64 paths of the tree, in an order that cannot be predicted
//
// The tree is chosen with --tree (1M). Peers: the whole-path map behind four calls, nested maps,
// nlohmann::json and rapidjson with pointers made ahead.
#include "Loaded.h"
#include "peers/AbslMap.h"
#include "peers/NestedMaps.h"
#include "peers/NlohmannJson.h"
#include "peers/RapidJson.h"

namespace vorn::bench {

namespace {

template <class Side>
void overwriteHot(benchmark::State& state, const Tree& tree) {
    Loaded<Side>& subject = Loaded<Side>::instance(tree);
    Side& side = subject.side();
    const auto& keys = subject.hotKeys();
    const std::vector<uint16_t> order = randomOrder(keys.size());
    size_t i = 0;
    int64_t value = 0;
    for (auto _ : state) {
        side.overwrite(keys[order[i]], ++value);
        i = (i + 1) & kOrderMask;
    }

    // Every value is the one of its last write.
    std::vector<int64_t> written(keys.size(), 0);
    for (int64_t n = std::max<int64_t>(1, value - static_cast<int64_t>(kOrderLength) + 1);
         n <= value; ++n) {
        written[order[static_cast<size_t>(n - 1) & kOrderMask]] = n;
    }
    for (size_t k = 0; k < keys.size(); ++k) {
        require(written[k] == 0 || side.read(keys[k]) == written[k],
                std::string(Side::kName) + " lost a write");
        side.overwrite(keys[k], valueAt(subject.hotIndices()[k]));
    }
}

template <class Side>
void addOverwrites(const Tree& tree) {
    addWorkload(std::string("overwrite_hot_") + tree.name, Side::kName,
                [&tree](benchmark::State& state) { overwriteHot<Side>(state, tree); });
}

} // namespace

void registerWorkloads(const Options& options) {
    const Tree& tree = chosenTree(options, "1M");
    addOverwrites<VornStore>(tree);
    addOverwrites<AbslMap>(tree);
    addOverwrites<NestedMaps>(tree);
    addOverwrites<NlohmannJson>(tree);
    addOverwrites<RapidJson>(tree);
}

} // namespace vorn::bench
