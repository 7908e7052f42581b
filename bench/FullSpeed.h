// Checks whether the core runs at full speed. On a shared host, other virtual machines may take half of a
// core's speed for seconds. That loss is greater than most of the differences that the benchmark measures.
// The check does not notice the load of other machines on the shared cache and on the memory.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <thread>

namespace kvbench {

inline double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Returns the time of a probe: additions that take about a tenth of a millisecond. The core can do several of
// these additions at once. So a second thread on the same core makes the probe slower.
inline double secondsOfProbe() {
    constexpr std::uint64_t kSteps = 60000;
    std::uint64_t a = 1;
    std::uint64_t b = 2;
    std::uint64_t c = 3;
    std::uint64_t d = 4;
    const auto start = std::chrono::steady_clock::now();
    for (std::uint64_t i = 0; i < kSteps; ++i) {
        a += i ^ b;
        b += i ^ c;
        c += i ^ d;
        d += i ^ a;
        asm volatile("" : : "r"(a), "r"(b), "r"(c), "r"(d));
    }
    return secondsSince(start);
}

// Holds the time of an undisturbed probe, in seconds. learnFullSpeed() measures that time once, and the child
// process of each measurement inherits the value.
inline double& undisturbedProbe() {
    static double seconds = 1;
    return seconds;
}

inline void learnFullSpeed() {
    constexpr double kLearningSeconds = 3;
    const auto start = std::chrono::steady_clock::now();
    while (secondsSince(start) < kLearningSeconds)
        undisturbedProbe() = std::min(undisturbedProbe(), secondsOfProbe());
}

inline bool isAtFullSpeed() {
    constexpr double kTolerance = 1.15;
    return secondsOfProbe() < kTolerance * undisturbedProbe();
}

// Waits until the core is at full speed, for at most a tenth of a second.
inline void awaitFullSpeed() {
    constexpr double kMostSeconds = 0.1;
    const auto start = std::chrono::steady_clock::now();
    while (!isAtFullSpeed() && secondsSince(start) < kMostSeconds)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

} // namespace kvbench
