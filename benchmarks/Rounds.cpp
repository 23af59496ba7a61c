// Options, rounds and records; see Rounds.h.
#include "Rounds.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

namespace vorn::bench {

namespace {

std::vector<std::string> g_workloads; // names, in the order of their registration
double g_minTime = 0.1;

// The value of --name=value, or null.
const char* valueOf(const char* argument, const char* name) {
    const size_t length = std::strlen(name);
    return std::strncmp(argument, name, length) == 0 ? argument + length : nullptr;
}

// Passes measurements on to the record and prints them briefly.
class RecordReporter : public benchmark::BenchmarkReporter {
public:
    RecordReporter(const Options& options, size_t round) : m_options(options), m_round(round) {}

    bool ReportContext(const Context&) override {
        return true;
    }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            const std::string& name = run.run_name.function_name;
            const size_t slash = name.find('/');
            Counters counters;
            double operations = 1;
            for (const auto& [counterName, counter] : run.counters) {
                if (counterName == "operations") {
                    operations = counter.value;
                } else {
                    counters.emplace_back(counterName, counter.value);
                }
            }
            if (run.run_name.time_type.empty()) { // the whole loop is timed, by one thread
                counters.emplace_back("cpu", run.GetAdjustedCPUTime() / operations);
            }
            recordMeasurement(m_options, m_round, name.substr(0, slash), name.substr(slash + 1),
                              run.GetAdjustedRealTime() / operations, counters);
        }
    }

private:
    const Options& m_options;
    const size_t m_round;
};

void runRounds(const Options& options) {
    for (size_t round = 0; round < options.rounds; ++round) {
        RecordReporter reporter(options, round);
        for (size_t i = 0; i < g_workloads.size(); ++i) {
            const size_t place = round % 2 == 0 ? i : g_workloads.size() - 1 - i;
            const std::string exactly = "^" + g_workloads[place] +
                                        "(/(min_time|iterations|"
                                        "manual_time|real_time).*)?$";
            require(benchmark::RunSpecifiedBenchmarks(&reporter, exactly) == 1,
                    g_workloads[place] + " is not one workload");
        }
    }
}

} // namespace

benchmark::internal::Benchmark* addWorkload(const std::string& row,
                                            const std::string& side,
                                            std::function<void(benchmark::State&)> run,
                                            int64_t iterations) {
    g_workloads.push_back(row + "/" + side);
    auto* workload = benchmark::RegisterBenchmark(g_workloads.back().c_str(), std::move(run));
    return iterations > 0 ? workload->Iterations(iterations) : workload->MinTime(g_minTime);
}

void recordMeasurement(const Options& options,
                       size_t round,
                       const std::string& row,
                       const std::string& side,
                       double ns,
                       const Counters& counters) {
    std::printf("%-28s %-24s %14.2f ns", row.c_str(), side.c_str(), ns);
    for (const auto& [name, value] : counters) {
        std::printf("  %s %.2f", name.c_str(), value);
    }
    std::printf("\n");
    std::fflush(stdout);
    if (options.record.empty()) {
        return;
    }
    FILE* record = std::fopen(options.record.c_str(), "a");
    require(record != nullptr, options.record + ": cannot be written");
    std::fprintf(record, "{\"round\": %zu, \"row\": \"%s\", \"side\": \"%s\", \"ns\": %.4f", round,
                 row.c_str(), side.c_str(), ns);
    for (const auto& [name, value] : counters) {
        std::fprintf(record, ", \"%s\": %.4f", name.c_str(), value);
    }
    std::fprintf(record, "}\n");
    std::fclose(record);
}

Options takeOptions(int* argc, char** argv) {
    Options options;
    options.program = argv[0];
    int kept = 1;
    for (int i = 1; i < *argc; ++i) {
        if (const char* rounds = valueOf(argv[i], "--rounds=")) {
            options.rounds = std::strtoul(rounds, nullptr, 10);
        } else if (const char* minTime = valueOf(argv[i], "--min-time=")) {
            options.minTime = std::strtod(minTime, nullptr);
        } else if (const char* record = valueOf(argv[i], "--record=")) {
            options.record = record;
        } else if (const char* tree = valueOf(argv[i], "--tree=")) {
            options.tree = tree;
        } else if (const char* child = valueOf(argv[i], "--child=")) {
            options.child = child;
        } else {
            argv[kept++] = argv[i];
        }
    }
    *argc = kept;
    g_minTime = options.minTime;
    return options;
}

} // namespace vorn::bench

int main(int argc, char** argv) {
    const vorn::bench::Options options = vorn::bench::takeOptions(&argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    vorn::bench::registerWorkloads(options);
    if (options.rounds > 0) {
        vorn::bench::runRounds(options);
    } else {
        benchmark::RunSpecifiedBenchmarks();
    }
}
