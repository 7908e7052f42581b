// Whether the core works at full speed. A virtual machine shares its cores with others, and may for seconds
// have half of what it had before: more than most of the differences that are to be measured. What others
// take of the shared cache and of the memory's speed does not show here.
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

// A tenth of a millisecond of additions, four at a time: what is left of a core shows in how many go at once.
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

// What a probe takes when nothing disturbs it. Learned once; the processes of the measurements inherit it.
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

// Waits for a better moment, but not for long.
inline void awaitFullSpeed() {
    constexpr double kMostSeconds = 0.5;
    const auto start = std::chrono::steady_clock::now();
    while (!isAtFullSpeed() && secondsSince(start) < kMostSeconds)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

} // namespace kvbench
