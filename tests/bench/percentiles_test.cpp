#include "bench/Percentiles.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

using kvbench::Nanoseconds;
using kvbench::Percentiles;
using kvbench::percentilesOf;

// Returns the numbers from `most` down to 1.
std::vector<Nanoseconds> descendingFrom(Nanoseconds most) {
    std::vector<Nanoseconds> samples;
    for (Nanoseconds sample = most; sample > 0; --sample)
        samples.push_back(sample);
    return samples;
}

TEST(Percentiles, AreTheSamplesBelowOrAtWhichThatPartOfThemIs) {
    const Percentiles found = percentilesOf(descendingFrom(100000));
    EXPECT_EQ(found.p50, 50000u);
    EXPECT_EQ(found.p99, 99000u);
    EXPECT_EQ(found.p9999, 99990u);
    EXPECT_EQ(found.most, 100000u);
}

TEST(Percentiles, AreRoundedUpToTheNextSample) {
    const Percentiles found = percentilesOf(descendingFrom(3));
    EXPECT_EQ(found.p50, 2u);
    EXPECT_EQ(found.p99, 3u);
}

TEST(Percentiles, AreAllTheSameOfOneSample) {
    const Percentiles found = percentilesOf({7});
    EXPECT_EQ(found.p50, 7u);
    EXPECT_EQ(found.most, 7u);
}

} // namespace
