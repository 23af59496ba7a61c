// The frame of the benchmark programs.
//
// A program registers its workloads as rows, each with several sides: our own and the peers'.
// Started plainly it is an ordinary Google Benchmark program. With --rounds=N it measures every
// side of every row N times, neighbours in a row right after one another and every second round
// backwards, so that what disturbs the machine disturbs both sides of a ratio alike; --record=FILE
// keeps each single measurement as one line of JSON.
#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace vorn::bench {

struct Options {
    size_t rounds = 0;         // 0: run as Google Benchmark runs
    double minTime = 0.1;      // seconds per measurement
    std::string record;        // file to append to; empty: none
    std::string tree;          // name of the tree; empty: the program's own choice
    std::string child;         // set in a process that a program started of itself
    const char* program = "?"; // path of this program
};

// Each program's own: registers its rows.
void registerWorkloads(const Options& options);

// Registers one side of a row: as many iterations as fill the time of a measurement, or as many as
// are given. The caller may set more on the result. A row whose iterations are of many operations
// says how many in the counter operations; its records are per operation.
benchmark::internal::Benchmark* addWorkload(const std::string& row,
                                            const std::string& side,
                                            std::function<void(benchmark::State&)> run,
                                            int64_t iterations = 0);

// Ends the program with a message when a result is not what it must be.
inline void require(bool isFulfilled, const std::string& what) {
    if (!isFulfilled) {
        std::fprintf(stderr, "%s\n", what.c_str());
        std::exit(1);
    }
}

// Adds a line to the record; nothing when no record is kept. ns is the time of one operation.
using Counters = std::vector<std::pair<std::string, double>>;
void recordMeasurement(const Options& options,
                       size_t round,
                       const std::string& row,
                       const std::string& side,
                       double ns,
                       const Counters& counters);

// Takes what it knows out of the arguments.
Options takeOptions(int* argc, char** argv);

} // namespace vorn::bench
