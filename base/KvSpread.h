// Where hash tables put addresses.
#pragma once

#include <cstdint>

namespace kvdetail {

// Numbers that follow each other, as those of addresses in one heap do, come out far apart: the multiplier is
// 2^64 divided by the golden ratio. Its upper bits depend on all bits of the number, so a table takes its
// places from those.
constexpr std::uintptr_t spread(std::uintptr_t number) noexcept {
    return number * std::uintptr_t{0x9E3779B97F4A7C15u};
}

} // namespace kvdetail
