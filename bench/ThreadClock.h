// The processor time of the calling thread. Other programs on the machine do not count in it.
#pragma once

#include <cstdint>
#include <ctime>

namespace kvbench {

inline std::uint64_t threadNanoseconds() {
    std::timespec now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000000000u + static_cast<std::uint64_t>(now.tv_nsec);
}

} // namespace kvbench
