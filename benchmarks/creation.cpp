// A million values created one after another by their paths, each time in a process of its own.
//
//   create_TREE   time per value, and memory per value that is left when all are there
//
// The counter resident is the growth of the process's anonymous resident memory, the counter
// malloc what malloc itself says is in use; both in bytes per value, with everything that belongs
// to the values. The tree is chosen with --tree (1M). Peers: the whole-path map behind four calls,
// nested maps, nlohmann::json (walking by names, and by json_pointer), rapidjson, GKeyFile,
// Boost.PropertyTree.
#include "Loaded.h"
#include "peers/AbslMap.h"
#include "peers/KeyFile.h"
#include "peers/NestedMaps.h"
#include "peers/NlohmannJson.h"
#include "peers/PropertyTree.h"
#include "peers/RapidJson.h"

#include <malloc.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstdio>
#include <fstream>
#include <memory>

namespace vorn::bench {

namespace {

struct Measurement {
    double seconds = 0;
    double residentBytes = 0;
    double mallocBytes = 0;
};

double anonymousResidentBytes() {
    std::ifstream file("/proc/self/smaps_rollup");
    std::string word;
    double kilobytes = 0;
    while (file >> word && word != "Anonymous:") {
    }
    require(static_cast<bool>(file >> kilobytes), "no figure of resident memory");
    return kilobytes * 1024;
}

double mallocBytes() {
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks) + static_cast<double>(info.hblkhd);
}

template <class Side>
Measurement createAll(const Tree& tree) {
    const Paths paths(tree);
    const auto side = std::make_unique<Side>();
    malloc_trim(0);
    Measurement before;
    before.residentBytes = anonymousResidentBytes();
    before.mallocBytes = mallocBytes();

    const auto start = std::chrono::steady_clock::now();
    for (size_t i = 0; i < paths.size(); ++i) {
        side->create(paths[i], valueAt(i));
    }
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;

    Measurement result;
    result.seconds = elapsed.count();
    result.residentBytes = anonymousResidentBytes() - before.residentBytes;
    result.mallocBytes = mallocBytes() - before.mallocBytes;
    for (size_t i = 0; i < paths.size(); i += paths.size() / 1000) {
        require(side->read(side->key(paths[i])) == valueAt(i),
                std::string(Side::kName) + " has not created " + paths[i]);
    }
    return result;
}

// What a process that this program starts of itself says.
Measurement measureInOwnProcess(const Tree& tree, const char* sideName) {
    char program[PATH_MAX] = {};
    require(readlink("/proc/self/exe", program, sizeof(program) - 1) > 0, "who am I?");
    const std::string command =
        std::string("exec '") + program + "' --child=" + sideName + " --tree=" + tree.name;
    FILE* child = popen(command.c_str(), "r");
    require(child != nullptr, command + ": cannot be started");
    Measurement result;
    const int read = std::fscanf(child, "%lf %lf %lf", &result.seconds, &result.residentBytes,
                                 &result.mallocBytes);
    require(pclose(child) == 0 && read == 3, command + ": failed");
    return result;
}

template <class Side>
void addCreation(const Tree& tree, const Options& options) {
    if (options.child == Side::kName) {
        const Measurement result = createAll<Side>(tree);
        std::printf("%.9f %.0f %.0f\n", result.seconds, result.residentBytes, result.mallocBytes);
        std::exit(0);
    }
    const auto run = [&tree](benchmark::State& state) {
        const auto count = static_cast<double>(tree.size());
        state.counters["operations"] = count;
        for (auto _ : state) {
            const Measurement result = measureInOwnProcess(tree, Side::kName);
            state.SetIterationTime(result.seconds);
            state.counters["resident"] = result.residentBytes / count;
            state.counters["malloc"] = result.mallocBytes / count;
        }
    };
    addWorkload(std::string("create_") + tree.name, Side::kName, run, 1)->UseManualTime();
}

} // namespace

void registerWorkloads(const Options& options) {
    const Tree& tree = chosenTree(options, "1M");
    addCreation<VornStore>(tree, options);
    addCreation<NlohmannJson>(tree, options);
    addCreation<NlohmannText>(tree, options);
    addCreation<AbslMap>(tree, options);
    addCreation<NestedMaps>(tree, options);
    addCreation<RapidJson>(tree, options);
    addCreation<KeyFile>(tree, options);
    addCreation<PropertyTree>(tree, options);
}

} // namespace vorn::bench
