#include "tests/selectcontext/support/DrawingTestSupport.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <set>
#include <vector>

// Tests highlight paths that a set shares with its clones. A path must live while any record refers to it,
// and must be deleted only once, in whatever order the sets give it up.

namespace {

using kvinmemory::livePaths;
using kvtest::addSegments;
using kvtest::edit;
using kvtest::id;
using kvtest::recordAt;
using kvtest::SegmentArray;
using kvtest::segmentsAt;
using Indices = std::vector<std::int64_t>;

// A set of one item. The set has its own data, and shares only paths with other sets. `segments` has the part
// indices of the segments that the item should have.
struct Sharer {
    std::unique_ptr<GxapSelectSet> set;
    Indices segments;
};

constexpr std::size_t kSharers = 3;

enum class Action { Add, Clear, WriteThroughAt, Clone, ClearSet, Destroy };
constexpr std::array<Action, 6> kActions = {Action::Add,   Action::Clear,    Action::WriteThroughAt,
                                            Action::Clone, Action::ClearSet, Action::Destroy};

// Has three sharers: a set, a clone of the set, and a clone of that clone. Actions change, replace and
// destroy the three sets.
class Family {
public:
    Family() {
        Sharer& first = mSharers[0];
        first.set = std::make_unique<GxapSelectSet>();
        edit(*first.set).append(id(1), GxDbObjectId());
        add(first);
        add(first);
        for (std::size_t i = 1; i < kSharers; ++i)
            clone(mSharers[i], mSharers[i - 1]);
    }

    // Performs an action with the set of one sharer. Action::Clone replaces the set of the next sharer by a
    // clone of this set. If this set has no item, every other action does nothing. If this set was destroyed,
    // every action does nothing.
    void act(Action action, std::size_t actor) {
        Sharer& sharer = mSharers[actor];
        if (action == Action::Clone)
            return clone(mSharers[(actor + 1) % kSharers], sharer);
        if (!sharer.set || sharer.set->sharedData->entityCount == 0)
            return;
        if (action == Action::Add)
            return add(sharer);
        if (action == Action::WriteThroughAt)
            return writeThroughAt(sharer);
        if (action == Action::Clear)
            edit(*sharer.set).begin().setHighlightSegment(nullptr);
        else if (action == Action::ClearSet)
            edit(*sharer.set).clear();
        else
            sharer.set.reset();
        sharer.segments.clear();
    }

    ::testing::AssertionResult isAsExpected() const {
        std::set<std::int64_t> alive;
        for (const Sharer& sharer : mSharers) {
            if (!sharer.set)
                continue;
            alive.insert(sharer.segments.begin(), sharer.segments.end());
            if (sharer.set->sharedData->entityCount > 0 && segmentsAt(*sharer.set, 0) != sharer.segments)
                return ::testing::AssertionFailure() << "a set does not see the paths that it should";
        }
        if (livePaths() != static_cast<long>(alive.size()))
            return ::testing::AssertionFailure() << livePaths() << " paths live, not " << alive.size();
        return ::testing::AssertionSuccess();
    }

private:
    void add(Sharer& sharer) {
        const std::int64_t index = mNextIndex++;
        addSegments(*sharer.set, 0, {index});
        sharer.segments.push_back(index);
    }

    static void writeThroughAt(Sharer& sharer) {
        SegmentArray* const list = recordAt(*sharer.set, 0)->highlightSegmentArray;
        for (int i = 0; list && i < list->logicalLength(); ++i) {
            GxDbFullSubentPath* const path = list->at(i);
            list->at(i) = path;
        }
    }

    static void clone(Sharer& to, const Sharer& from) {
        if (!from.set)
            return;
        to.set = std::make_unique<GxapSelectSet>(*from.set);
        edit(*to.set).writeData();
        to.segments = from.segments;
    }

    std::array<Sharer, kSharers> mSharers;
    std::int64_t mNextIndex = 1;
};

class HighlightPaths : public kvtest::SetTest {
protected:
    // Turns off the log, which no test reads. The tests make too many paths for it.
    void SetUp() override {
        SetTest::SetUp();
        kvinmemory::setLogging(false);
    }
};

struct Step {
    Action action;
    std::size_t actor;
};

Step stepNumber(std::size_t n) {
    return {kActions[n % kActions.size()], n / kActions.size()};
}

constexpr std::size_t kSteps = kActions.size() * kSharers;

TEST_F(HighlightPaths, AreTheSameObjectsInACloneAndItsClone) {
    GxapSelectSet source;
    edit(source).append(id(1), GxDbObjectId());
    addSegments(source, 0, {1, 2});
    const auto clone = kvtest::cloneOf(source);
    const auto cloneOfClone = kvtest::cloneOf(*clone);
    const SegmentArray& paths = *recordAt(source, 0)->highlightSegmentArray;
    for (const GxapSelectSet* set : {clone.get(), cloneOfClone.get()}) {
        const SegmentArray& seen = *recordAt(*set, 0)->highlightSegmentArray;
        ASSERT_EQ(seen.logicalLength(), 2);
        EXPECT_NE(&seen, &paths);
        EXPECT_EQ(seen.at(0), paths.at(0));
        EXPECT_EQ(seen.at(1), paths.at(1));
    }
    EXPECT_EQ(livePaths(), 2);
}

TEST_F(HighlightPaths, DieOnceInEveryOrderOfThreeDeeds) {
    for (std::size_t n = 0; n < kSteps * kSteps * kSteps; ++n) {
        Family family;
        for (const std::size_t number : {n % kSteps, n / kSteps % kSteps, n / kSteps / kSteps}) {
            const Step step = stepNumber(number);
            family.act(step.action, step.actor);
            ASSERT_TRUE(family.isAsExpected()) << "sequence " << n;
        }
    }
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(HighlightPaths, DieOnceWhicheverSharersDieFirst) {
    std::array<std::size_t, kSharers> order = {0, 1, 2};
    do {
        Family family;
        for (const std::size_t actor : order) {
            family.act(Action::Destroy, actor);
            ASSERT_TRUE(family.isAsExpected());
        }
        EXPECT_EQ(livePaths(), 0);
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(HighlightPaths, DieOnceInLongRandomRuns) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        std::minstd_rand random(seed);
        Family family;
        for (int i = 0; i < 100; ++i) {
            const Step step = stepNumber(random() % kSteps);
            family.act(step.action, step.actor);
            ASSERT_TRUE(family.isAsExpected()) << "seed " << seed << ", step " << i;
        }
    }
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(HighlightPaths, OfOneItemAreGivenUpWithoutThoseOfAnother) {
    GxapSelectSet source;
    kvtest::appendIds(source, 1, 3);
    for (int position = 0; position < 3; ++position)
        addSegments(source, position, {position});
    const auto clone = kvtest::cloneOf(source);
    edit(source).iteratorAt(1).setHighlightSegment(nullptr);
    edit(*clone).iteratorAt(0).setHighlightSegment(nullptr);
    EXPECT_EQ(livePaths(), 3);
    edit(*clone).iteratorAt(1).setHighlightSegment(nullptr);
    EXPECT_EQ(livePaths(), 2);
    EXPECT_EQ(segmentsAt(source, 0), Indices({0}));
    EXPECT_EQ(segmentsAt(*clone, 2), Indices({2}));
}

} // namespace
