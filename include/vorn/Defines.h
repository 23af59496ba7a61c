// Basic definitions shared by every contract header.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

// Marks a function as an exported C entry point of a plugin.
#define VORN_EXPORT extern "C" __attribute__((visibility("default")))

// Marks a variable as one of its library alone.
#define VORN_HIDDEN __attribute__((visibility("hidden")))

namespace vorn {

// Constants of the 64-bit FNV-1a hash.
constexpr uint64_t kFnvBasis = 0xcbf29ce484222325ull;
constexpr uint64_t kFnvPrime = 0x100000001b3ull;

// Rounds size up to the next multiple of alignment. REQUIRES: alignment > 0.
constexpr size_t alignedSize(size_t size, size_t alignment) {
    return (size + alignment - 1) / alignment * alignment;
}

// The nearest 32-bit value: out-of-range values become the nearest end of the range.
constexpr int32_t saturateToInt32(int64_t value) {
    constexpr int64_t kMin = std::numeric_limits<int32_t>::min();
    constexpr int64_t kMax = std::numeric_limits<int32_t>::max();
    return static_cast<int32_t>(value < kMin ? kMin : (value > kMax ? kMax : value));
}

// The nearest single-precision value: finite values out of range become the largest finite value
// of their sign; infinities and NaN stay what they are.
constexpr float saturateToFloat(double value) {
    constexpr double kMax = std::numeric_limits<float>::max();
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    if (value > kMax && value < kInfinity) {
        return std::numeric_limits<float>::max();
    }
    if (value < -kMax && value > -kInfinity) {
        return std::numeric_limits<float>::lowest();
    }
    return static_cast<float>(value);
}

} // namespace vorn
