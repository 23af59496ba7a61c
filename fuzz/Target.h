// What every target shares: the count of its operations, and how it ends when something is wrong.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace vorn::fuzz {

// Counted up by the targets, printed when the process ends.
struct Operations {
    uint64_t count = 0;
    ~Operations() {
        fprintf(stderr, "operations: %llu\n", static_cast<unsigned long long>(count));
    }
};
inline Operations g_operations;

// Ends the process: what was found is a fault.
[[noreturn]] inline void diverge(const std::string& report) {
    fprintf(stderr, "DIVERGENCE\n%s\n", report.c_str());
    abort();
}

} // namespace vorn::fuzz
