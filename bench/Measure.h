// Times operations.
//
// A region is one timed run of an operation, on one large set or on many small sets. A figure of the report
// is the median time of a few regions.
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

// The fewest items in all sets of a region together. A region has 1600 sets of 10 items, but only one set of
// a million items.
constexpr std::size_t kItemsPerRegion = 16000;
constexpr std::size_t kItemsPerReading = 100; // fewest items between two readings of the clock
constexpr std::size_t kRegions = 3;           // most regions for one figure
constexpr double kEnoughSeconds = 0.2;        // no further region begins after this time
constexpr double kLongRegionSeconds = 2e-3;   // an operation is repeated until a region takes about this long
constexpr double kMostRounds = 10000;
constexpr std::size_t kMostDisturbed = 3; // most regions that are measured again

struct Timing {
    double nsPerItem;
    double shortestRegionUs;
};

// The time of a region. `isUndisturbed` tells whether the core was at full speed at the end of the region.
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

// Returns how many sets an operation handles between two readings of the clock: ten sets if a set has ten
// items. Reading the clock takes as long as selecting one item, so each reading must cover many items.
inline std::size_t setsPerReading(std::size_t count) {
    return std::max<std::size_t>(kItemsPerReading / count, 1);
}

// The sets of a region, each with an operation that can be repeated. A round runs each operation once.
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

// Returns the median time of at most kRegions regions. `next` times one region. No further region begins when
// the counted regions have taken kEnoughSeconds. The first kMostDisturbed disturbed regions are not counted,
// but measured again.
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

// Times an operation that leaves its sets unchanged. The first round is not counted. If that round was short
// and the sets are small, each region begins with another round that is not counted. The sets are never
// freed: that would take as long as some operations.
template <class Operation>
Timing timingOfRepeatable(std::size_t count, Order order) {
    auto& batch = *new Batch<Operation>(count, order);
    const double secondsOfFirst = batch.region(1).seconds;
    const bool isLong = secondsOfFirst >= kEnoughSeconds;
    const std::size_t rounds = roundsFor(secondsOfFirst);
    const double seconds = medianOf([&] {
        awaitFullSpeed();
        if (isSmall(count) && !isLong)
            batch.region(1); // fills the caches, which may be empty after the wait
        return batch.region(rounds);
    });
    return {seconds * 1e9 / batch.itemsDealtWith() / static_cast<double>(rounds), seconds * 1e6};
}

// Times an operation that needs new sets each time.
//
// The time of a region on small sets is the sum of several readings. New sets are made for each reading. They
// are freed after the reading, so the next sets reuse their memory. A region begins with a reading that is
// not counted. If a reading takes kEnoughSeconds, a region is a single reading.
//
// A region on a large set is one reading. A large set is never freed.
template <class Operation>
Timing timingOfFresh(std::size_t count, Order order) {
    double items = 0; // in one reading
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

// Returns how many bytes of the heap a set of `count` items uses for each item, as the allocator counts them.
// The sets are not freed.
template <class Set>
double bytesPerItem(std::size_t count, Order order) {
    const Picks items = picks(count, order);
    auto& sets = *new std::vector<std::unique_ptr<Set>>(setsOf(count));
    const std::size_t before = allocatedBytes();
    for (std::unique_ptr<Set>& set : sets) {
        set = std::make_unique<Set>();
        fill(*set, items);
        for (const Pick& pick : items) // a look-up may make an index, which counts, too
            require(set->has(pick.mainId));
    }
    return static_cast<double>(allocatedBytes() - before) / static_cast<double>(count * sets.size());
}

} // namespace kvbench
