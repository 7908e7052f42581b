// Fibonacci hashing: where hash tables put addresses.
#pragma once

#include <cstdint>

namespace kvdetail {

// Multiplies by 2^64 divided by the golden ratio. Consecutive numbers, as addresses in one heap are, come out
// far apart. The upper bits of the product depend on all bits of the number, so a table takes its buckets
// from those.
constexpr std::uintptr_t fibonacciHash(std::uintptr_t number) noexcept {
    return number * std::uintptr_t{0x9E3779B97F4A7C15u};
}

} // namespace kvdetail
