// Many writes at once, with nobody subscribed, in a tree of 100k values (--tree).
//
//   merge         10,000 values merged into a dictionary that has every second one of them
//   transaction   100 values that exist, overwritten: one by one (direct), collected in a
//                 transaction that is used again and again (kept), and in one that is made and
//                 destroyed for it (fresh); the time is that of all 100
//
// Peers of the merge: rapidjson with a recursive merge written by hand, nlohmann::json::update
// with merging of objects. Destinations are made anew before each merge, outside of the time.
#include "Loaded.h"
#include "peers/NlohmannJson.h"
#include "peers/RapidJson.h"

#include <chrono>

namespace vorn::bench {

namespace {

using settings::ISettings;
using settings::Transaction;

const Tree& mergedTree() {
    return *findTree("10k");
}

// The value of the destination before the merge.
int64_t oldValueAt(size_t index) {
    return -valueAt(index);
}

// Times merge() once an iteration, on the destination that prepare() has made.
template <class Prepare, class Merge>
void timeMerges(benchmark::State& state, Prepare prepare, Merge merge) {
    for (auto _ : state) {
        prepare();
        const auto start = std::chrono::steady_clock::now();
        merge();
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(elapsed.count());
    }
}

template <class Read>
void requireMerged(const char* side, Read read) {
    for (size_t i = 0; i < mergedTree().size(); ++i) {
        const std::string path = pathAt(mergedTree(), i);
        require(read(path) == valueAt(i), std::string(side) + " has not merged " + path);
    }
}

void mergeVorn(benchmark::State& state, const Tree& tree) {
    static constexpr const char* kDestination = "/merged";
    const VornStore& store = Loaded<VornStore>::instance(tree).side();
    const ISettings* settings = store.settings();
    const dictionary::IDictionary* dictionary = store.dictionary();
    const Paths paths(mergedTree());
    const Paths destinationPaths(mergedTree(), kDestination);
    dictionary::Item* source =
        dictionary->createItem(nullptr, "source", dictionary::ItemType::eDictionary);
    for (size_t i = 0; i < paths.size(); ++i) {
        dictionary->makeInt64AtPath(source, paths[i] + 1, valueAt(i));
    }
    timeMerges(
        state,
        [&] {
            settings->destroyItem(kDestination);
            for (size_t i = 0; i < destinationPaths.size(); i += 2) {
                settings->setInt64(destinationPaths[i], oldValueAt(i));
            }
        },
        [&] {
            settings->update(kDestination, source, nullptr,
                             dictionary::kUpdateItemOverwriteOriginal, nullptr);
        });
    requireMerged("vorn", [&](const std::string& path) {
        return settings->getAsInt64((kDestination + path).c_str());
    });
    settings->destroyItem(kDestination);
    dictionary->destroyItem(source);
}

// Source and half destination of a JSON side.
template <class Side>
struct Halves {
    Halves() {
        const Paths paths(mergedTree());
        for (size_t i = 0; i < paths.size(); ++i) {
            source.create(paths[i], valueAt(i));
            if (i % 2 == 0) {
                half.create(paths[i], oldValueAt(i));
            }
        }
    }
    Side source;
    Side half;
};

void mergeRapidJson(benchmark::State& state) {
    Halves<RapidJson> halves;
    std::unique_ptr<rapidjson::Document> destination;
    timeMerges(
        state,
        [&] {
            destination = std::make_unique<rapidjson::Document>();
            destination->CopyFrom(halves.half.document(), destination->GetAllocator());
        },
        [&] { merge(*destination, halves.source.document(), destination->GetAllocator()); });
    requireMerged("rapidjson", [&](const std::string& path) {
        return rapidjson::Pointer(path.c_str()).Get(*destination)->GetInt64();
    });
}

void mergeNlohmann(benchmark::State& state) {
    Halves<NlohmannJson> halves;
    nlohmann::json destination;
    timeMerges(
        state, [&] { destination = halves.half.root(); },
        [&] { destination.update(halves.source.root(), true); });
    requireMerged("nlohmann", [&](const std::string& path) {
        return destination.at(NlohmannJson::Pointer(path)).get<int64_t>();
    });
}

// Runs write(paths, value) as the body of the loop and looks whether it wrote.
template <class Write>
void timeHundredWrites(benchmark::State& state, const Tree& tree, Write write) {
    Loaded<VornStore>& subject = Loaded<VornStore>::instance(tree);
    const ISettings* settings = subject.side().settings();
    std::vector<const char*> paths;
    for (size_t i = 0; i < 100; ++i) {
        paths.push_back(pathsOf(tree)[i * (tree.size() / 100)]);
    }
    int64_t value = 0;
    for (auto _ : state) {
        ++value;
        write(settings, paths, value);
    }
    for (size_t i = 0; i < paths.size(); ++i) {
        require(settings->getAsInt64(paths[i]) == value, std::string("not written: ") + paths[i]);
    }
}

using PathList = std::vector<const char*>;

void writeDirectly(benchmark::State& state, const Tree& tree) {
    timeHundredWrites(state, tree,
                      [](const ISettings* settings, const PathList& paths, int64_t value) {
                          for (const char* path : paths) {
                              settings->setInt64(path, value);
                          }
                      });
}

void collectAndCommit(const ISettings* settings,
                      Transaction* transaction,
                      const PathList& paths,
                      int64_t value) {
    for (const char* path : paths) {
        settings->setInt64Async(transaction, path, value);
    }
    settings->commitTransaction(transaction);
}

void writeByKeptTransaction(benchmark::State& state, const Tree& tree) {
    const ISettings* store = Loaded<VornStore>::instance(tree).side().settings();
    Transaction* transaction = store->createTransaction();
    timeHundredWrites(state, tree,
                      [&](const ISettings* settings, const PathList& paths, int64_t value) {
                          collectAndCommit(settings, transaction, paths, value);
                      });
    store->destroyTransaction(transaction);
}

void writeByFreshTransaction(benchmark::State& state, const Tree& tree) {
    timeHundredWrites(state, tree,
                      [](const ISettings* settings, const PathList& paths, int64_t value) {
                          Transaction* transaction = settings->createTransaction();
                          collectAndCommit(settings, transaction, paths, value);
                          settings->destroyTransaction(transaction);
                      });
}

} // namespace

void registerWorkloads(const Options& options) {
    const Tree& tree = chosenTree(options, "100k");
    const auto with = [&tree](auto run) {
        return [&tree, run](benchmark::State& state) { run(state, tree); };
    };
    addWorkload("merge", "vorn", with(mergeVorn))->UseManualTime();
    addWorkload("merge", "rapidjson", mergeRapidJson)->UseManualTime();
    addWorkload("merge", "nlohmann", mergeNlohmann)->UseManualTime();
    addWorkload("transaction", "direct", with(writeDirectly));
    addWorkload("transaction", "kept", with(writeByKeptTransaction));
    addWorkload("transaction", "fresh", with(writeByFreshTransaction));
}

} // namespace vorn::bench
