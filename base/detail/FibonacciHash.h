// Fibonacci hashing: spreads addresses over the buckets of a hash table.
#pragma once

#include <cstdint>

namespace kvdetail {

// Multiplies by 2^64 divided by the golden ratio. Addresses in one heap are close together, but their
// products are far apart. The upper bits of the product depend on all bits of the number. So a table must
// take the number of a bucket from the upper bits.
constexpr std::uintptr_t fibonacciHash(std::uintptr_t number) noexcept {
    return number * std::uintptr_t{0x9E3779B97F4A7C15u};
}

} // namespace kvdetail
