// Percentiles of the times of single calls, from the median to the longest time.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace kvbench {

using Nanoseconds = std::uint32_t; // up to four seconds

struct Percentiles {
    Nanoseconds p50;
    Nanoseconds p99;
    Nanoseconds p9999;
    Nanoseconds most;
};

// Returns a percentile: at least `ofTenThousand` of 10,000 samples are less than or equal to the returned
// sample. Returns the smallest such sample. The samples must be in ascending order, and there must be at
// least one.
inline Nanoseconds sampleAt(const std::vector<Nanoseconds>& sorted, std::size_t ofTenThousand) {
    constexpr std::size_t kAll = 10000;
    return sorted[(sorted.size() * ofTenThousand + kAll - 1) / kAll - 1];
}

inline Percentiles percentilesOf(std::vector<Nanoseconds> samples) {
    std::sort(samples.begin(), samples.end());
    return {sampleAt(samples, 5000), sampleAt(samples, 9900), sampleAt(samples, 9999), samples.back()};
}

} // namespace kvbench
