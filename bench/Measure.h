// How an operation is timed: on several sets where they are small, and several times where that is cheap.
#pragma once

#include "bench/FullSpeed.h"
#include "bench/Operations.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <malloc.h>
#include <memory>
#include <vector>

namespace kvbench {

constexpr std::size_t kItemsPerRegion = 16000; // in as many sets as that takes: one of 10^6, 1600 of 10
constexpr std::size_t kItemsPerReading = 100;  // at least, between two readings of the clock
constexpr std::size_t kRegions = 3;            // at most, for one figure
constexpr double kEnoughSeconds = 0.2;         // of a figure, after which no further region is begun
constexpr double kLongRegionSeconds = 2e-3;    // what the rounds of a repeatable operation are to add up to
constexpr double kMostRounds = 10000;
constexpr std::size_t kMostDisturbed = 3; // regions that are measured again

struct Timing {
    double nsPerItem;
    double shortestRegionUs;
};

// What a region took, and whether the machine was at full speed to its end.
struct Region {
    double seconds = 0;
    bool isUndisturbed = true;
};

inline bool isSmall(std::size_t count) {
    return count <= kItemsPerRegion;
}

inline std::size_t setsOf(std::size_t count) {
    return std::max<std::size_t>((kItemsPerRegion + count - 1) / count, 1);
}

// Reading the clock takes as long as selecting an item: sets of ten are timed ten at a time.
inline std::size_t setsPerReading(std::size_t count) {
    return std::max<std::size_t>(kItemsPerReading / count, 1);
}

// Sets on which an operation is repeated.
template <class Operation>
class Batch {
public:
    Batch(std::size_t count, Order order) {
        while (mOperations.size() < setsOf(count))
            mOperations.push_back(std::make_unique<Operation>(count, order));
    }

    Region region(std::size_t rounds) {
        const auto start = std::chrono::steady_clock::now();
        for (std::size_t round = 0; round < rounds; ++round) {
            for (const auto& operation : mOperations)
                operation->run();
        }
        const Region result{secondsSince(start), isAtFullSpeed()};
        for (const auto& operation : mOperations)
            operation->check();
        return result;
    }

    double itemsDealtWith() const {
        return static_cast<double>(mOperations.size()) *
               static_cast<double>(mOperations.front()->itemsDealtWith());
    }

private:
    std::vector<std::unique_ptr<Operation>> mOperations;
};

inline std::size_t roundsFor(double secondsOfOne) {
    const double rounds = std::ceil(kLongRegionSeconds / std::max(secondsOfOne, 1e-9));
    return static_cast<std::size_t>(std::clamp(rounds, 1.0, kMostRounds));
}

// The median of a few regions, which `next` times; no further one is begun once they add up to enough. One
// that was disturbed, as far as a probe behind it can tell, is taken again a few times.
template <class Next>
double medianOf(Next next) {
    std::vector<double> regions;
    std::size_t disturbed = 0;
    double sum = 0;
    do {
        const Region region = next();
        if (!region.isUndisturbed && ++disturbed <= kMostDisturbed)
            continue;
        regions.push_back(region.seconds);
        sum += region.seconds;
    } while (regions.empty() || (regions.size() < kRegions && sum < kEnoughSeconds));
    std::sort(regions.begin(), regions.end());
    return regions[regions.size() / 2];
}

// An operation that leaves its sets as they were, after a first round that is not counted. Leaves the sets to
// the end of the process, as releasing them would take as long as many an operation. A long run needs no
// other one before it.
template <class Operation>
Timing timingOfRepeatable(std::size_t count, Order order) {
    auto& batch = *new Batch<Operation>(count, order);
    const double secondsOfFirst = batch.region(1).seconds;
    const bool isLong = secondsOfFirst >= kEnoughSeconds;
    const std::size_t rounds = roundsFor(secondsOfFirst);
    const double seconds = medianOf([&] {
        awaitFullSpeed();
        if (isSmall(count) && !isLong)
            batch.region(1); // waiting has emptied the caches
        return batch.region(rounds);
    });
    return {seconds * 1e9 / batch.itemsDealtWith() / static_cast<double>(rounds), seconds * 1e6};
}

// An operation that needs a fresh set each time: small ones one after the other in memory that the one before
// has given back, the first of them not counted; large ones are left to the end of the process. One small set
// is enough for a long run.
template <class Operation>
Timing timingOfFresh(std::size_t count, Order order) {
    double items = 0; // per reading
    const auto regionOfOne = [&] {
        std::vector<std::unique_ptr<Operation>> operations;
        while (operations.size() < setsPerReading(count))
            operations.push_back(std::make_unique<Operation>(count, order));
        if (!isSmall(count))
            awaitFullSpeed();
        const auto start = std::chrono::steady_clock::now();
        for (const auto& operation : operations)
            operation->run();
        const double seconds = secondsSince(start);
        const Region result{seconds, isSmall(count) || isAtFullSpeed()};
        for (const auto& operation : operations)
            operation->check();
        items = static_cast<double>(operations.size() * operations.front()->itemsDealtWith());
        if (!isSmall(count))
            operations.front().release();
        return result;
    };
    const bool isLong = isSmall(count) && regionOfOne().seconds >= kEnoughSeconds;
    const std::size_t readings = isLong ? 1 : setsOf(count) / setsPerReading(count);
    const double seconds = medianOf([&] {
        if (!isSmall(count))
            return regionOfOne();
        awaitFullSpeed();
        if (!isLong)
            regionOfOne();
        Region region;
        for (std::size_t i = 0; i < readings; ++i)
            region.seconds += regionOfOne().seconds;
        region.isUndisturbed = isAtFullSpeed();
        return region;
    });
    return {seconds * 1e9 / items / static_cast<double>(readings), seconds * 1e6};
}

template <class Operation>
Timing timingOf(std::size_t count, Order order) {
    if constexpr (Operation::kIsRepeatable)
        return timingOfRepeatable<Operation>(count, order);
    else
        return timingOfFresh<Operation>(count, order);
}

inline std::size_t allocatedBytes() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// Everything that sets of `count` items take from the heap, as the allocator accounts for it. Leaves them to
// the end of the process.
template <class Set>
double bytesPerItem(std::size_t count, Order order) {
    const Picks items = picks(count, order);
    auto& sets = *new std::vector<std::unique_ptr<Set>>(setsOf(count));
    const std::size_t before = allocatedBytes();
    for (std::unique_ptr<Set>& set : sets) {
        set = std::make_unique<Set>();
        fill(*set, items);
        for (const Pick& pick : items) // an index that is built when first asked is part of the set
            require(set->has(pick.mainId));
    }
    return static_cast<double>(allocatedBytes() - before) / static_cast<double>(count * sets.size());
}

} // namespace kvbench
