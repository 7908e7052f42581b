// Runs whole scenarios on several sets while each of their allocations fails in turn. After a failure, every
// set is whole, and the contents are those before the failed step. The step then succeeds with memory, and
// the scenario ends as it does without failures.
//
// Builds with sanitizers, and builds without the shortcuts, make only some of the allocations fail. The
// environment variable KV_FAILURE_POINTS=all makes all of them fail in every build.
#include "base/detail/Sanitizers.h"
#include "base/detail/Shortcuts.h"
#include "tests/selectcontext/scenarios/Scenarios.h"
#include "tests/selectcontext/scenarios/World.h"
#include "tests/selectcontext/support/EditTestSupport.h"
#include "tests/selectcontext/support/LongRunTestSupport.h"
#include "tests/support/AllocationFailure.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <memory>
#include <string_view>
#include <vector>

namespace {

using kvscenario::Drawing;
using kvscenario::Left;
using kvscenario::Numbers;
using kvscenario::Scenario;
using kvscenario::Step;
using kvscenario::World;
using kvtest::Allocation;
using kvtest::AllocationCount;
using kvtest::Failing;
using kvtest::FailurePoint;
using kvtest::IndexState;
using kvtest::RecordTracker;

constexpr bool kHasSanitizer = KV_ADDRESS_SANITIZER || KV_THREAD_SANITIZER;
constexpr long kFewestPoints = 5000; // of all scenarios together

// Returns the largest number of allocations of one kind that are to fail in one scenario. Without the node
// pool, the scenarios allocate each entry of an index, which is far more often.
long mostFailures() {
    const char* const wanted = std::getenv("KV_FAILURE_POINTS");
    if (wanted && std::string_view(wanted) == "all")
        return std::numeric_limits<long>::max();
    if (kHasSanitizer)
        return 40;
    return kvdetail::kHasNodePool ? std::numeric_limits<long>::max() : 500;
}

// What a run without failures did.
struct Reference {
    std::vector<Numbers> contents; // [0]: at the start; [i]: after i steps
    Numbers answers;
    std::size_t leftRecords = 0;
    long news = 0;    // calls of operator new, of all steps together
    long mallocs = 0; // calls of _kvMalloc
    long paths = 0;   // the live paths at the end, also those that the library leaves without an owner
};

// Deletes what the steps leave to the caller. Between the runs of a test, nothing else is left.
class ScenarioFailure : public kvtest::EditTest, public ::testing::WithParamInterface<Scenario> {
protected:
    void SetUp() override {
        EditTest::SetUp();
        mPause = std::make_unique<RecordTracker::Recording>(RecordTracker::current(), false);
        kvinmemory::setLogging(false);
        mDrawing = std::make_unique<Drawing>();
        if (GetParam().hasTwins)
            kvtest::makeTwins();
        perform();
        mReference = perform();
    }

    void TearDown() override {
        mReference = Reference();
        mDrawing.reset();
        mPause.reset();
        EditTest::TearDown();
    }

    const Reference& reference() const { return mReference; }
    static const std::vector<Step>& steps() { return GetParam().steps; }

    // Runs the scenario without failures.
    Reference perform() const {
        Reference done;
        const long paths = kvinmemory::livePaths();
        {
            const std::unique_ptr<World> world = makeWorld();
            done.contents.push_back(contentsOf(*world));
            for (const Step& step : steps()) {
                const AllocationCount before;
                run(step, *world);
                done.news += before.newCalls();
                done.mallocs += before.mallocCalls();
                expectWhole(*world, IndexState::kComplete, step);
                done.contents.push_back(contentsOf(*world));
            }
            done.answers = answersOf(*world);
            done.paths = kvinmemory::livePaths() - paths;
        }
        done.leftRecords = kvtest::liveRecords().size();
        freeLeftRecords();
        return done;
    }

    // Runs the scenario with a failure. Expects that the scenario ends as it does without.
    void disturb(FailurePoint& point) const {
        const AllocationCount before;
        const long paths = kvinmemory::livePaths();
        {
            const std::unique_ptr<World> world = makeWorld();
            std::size_t done = 0;
            point.run([&] { runFrom(done, *world); });
            EXPECT_TRUE(point.outcome().injected) << "the scenario allocates less often than before";
            if (point.outcome().failed)
                recover(*world, done, point);
            EXPECT_EQ(done, steps().size());
            EXPECT_EQ(contentsOf(*world), reference().contents.back());
            EXPECT_EQ(answersOf(*world), reference().answers);
            EXPECT_EQ(kvinmemory::livePaths() - paths, reference().paths);
            expectWhole(*world, IndexState::kComplete, steps().back());
        }
        EXPECT_EQ(kvtest::liveRecords().size(), reference().leftRecords);
        freeLeftRecords();
        EXPECT_EQ(before.liveNew(), 0);
        EXPECT_EQ(before.liveMalloc(), 0);
        EXPECT_EQ(kvinmemory::livePaths(), paths);
    }

private:
    std::unique_ptr<World> makeWorld() const {
        const RecordTracker::Recording recording(RecordTracker::current(), true);
        auto world = std::make_unique<World>(*mDrawing);
        GetParam().setUp(*world);
        return world;
    }

    // Runs a step. If the step throws, takes its answers back.
    static void run(const Step& step, World& world) {
        const RecordTracker::Recording recording(RecordTracker::current(), true);
        const std::size_t answers = world.answers.size();
        try {
            step.run(world);
        } catch (...) {
            world.answers.resize(answers);
            throw;
        }
    }

    static void runFrom(std::size_t& done, World& world) {
        for (; done < steps().size(); ++done)
            run(steps()[done], world);
    }

    // Goes on after a failed step. If memory stays short, first attempts the step once more.
    void recover(World& world, std::size_t& done, const FailurePoint& point) const {
        expectSurvival(world, done);
        if (point.failing() == Failing::FromThenOn) {
            FailurePoint again(point.allocation(), Failing::FromThenOn, 1);
            const Step& step = steps()[done];
            if (again.run([&] { run(step, world); }).completed)
                ++done;
            else
                expectSurvival(world, done);
        }
        runFrom(done, world);
    }

    // Expects what a step leaves that has failed. `done` is the number of steps before it.
    void expectSurvival(const World& world, std::size_t done) const {
        const Step& step = steps()[done];
        const Left left = step.left;
        expectWhole(world, left == Left::kPartOfIndex ? IndexState::kMayLackEntries : IndexState::kComplete,
                    step);
        if (left == Left::kAsBefore) {
            EXPECT_EQ(contentsOf(world), reference().contents[done])
                << "after the failed step: " << step.name;
        }
    }

    static void expectWhole(const World& world, IndexState index, const Step& step) {
        forEachSet(world, [&](const GxapSelectSet& set) {
            EXPECT_TRUE(kvtest::invariants(set, index)) << "after the step: " << step.name;
            EXPECT_EQ(kvtest::registrations(set), 0) << "after the step: " << step.name;
        });
    }

    std::unique_ptr<RecordTracker::Recording> mPause; // records only what the steps allocate
    std::unique_ptr<Drawing> mDrawing;
    Reference mReference;
};

TEST_P(ScenarioFailure, OfEachAllocationIsSurvived) {
    const Reference& counted = reference();
    long points = 0;
    for (const Allocation kind : {Allocation::KvMalloc, Allocation::New}) {
        const long all = kind == Allocation::New ? counted.news : counted.mallocs;
        const long stride = 1 + (all - 1) / mostFailures();
        for (const Failing failing : {Failing::Once, Failing::FromThenOn}) {
            for (long nth = 1; nth <= all; nth += stride, ++points) {
                FailurePoint point(kind, failing, nth);
                SCOPED_TRACE(::testing::Message() << point);
                disturb(point);
                if (HasFailure())
                    return;
            }
        }
    }
    std::cout << points << " failing points\n";
    EXPECT_GE(2 * (counted.news + counted.mallocs), GetParam().fewestPoints);
}

INSTANTIATE_TEST_SUITE_P(Scenarios, ScenarioFailure, ::testing::ValuesIn(kvscenario::scenarios()),
                         [](const ::testing::TestParamInfo<Scenario>& scenario) {
                             return scenario.param.name;
                         });

TEST(Scenarios, HaveFiveThousandPointsOfFailureTogether) {
    long points = 0;
    for (const Scenario& scenario : kvscenario::scenarios())
        points += scenario.fewestPoints;
    EXPECT_GE(points, kFewestPoints);
}

} // namespace
