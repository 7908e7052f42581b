// Uses iterators while each allocation fails in turn.
#include "tests/selectcontext/support/SetTestSupport.h"
#include "tests/support/AllocationFailure.h"

#include <gtest/gtest.h>

#include <list>
#include <optional>

namespace {

using kvtest::at;
using kvtest::edit;
using kvtest::FailurePoint;
using kvtest::Filled;
using kvtest::forEachAllocationFailure;
using kvtest::id;
using kvtest::invariants;
using kvtest::isRegistered;
using kvtest::kNoId;
using kvtest::mainIds;
using kvtest::Outcome;
using kvtest::registrations;

using ConstIterator = GxapSelectSet::ConstIterator;
using Iterator = GxapSelectSet::Iterator;

class IteratorFailure : public kvtest::SetTest {};
class FactoryFailure : public kvtest::SetTest {};
class AccessorFactoryFailure : public kvtest::SetTest {};

// Has a set whose registry of iterators is full.
class FullRegistry : public Filled {
public:
    explicit FullRegistry(unsigned long count) : Filled(count) {
        for (int i = 0; i < 8; ++i)
            its.emplace_back(&set, 1);
    }

    std::list<ConstIterator> its;
};

void expectRegistered(const GxapSelectSet& set, const std::list<ConstIterator>& its) {
    ASSERT_GE(registrations(set), static_cast<int>(its.size()));
    int i = 0;
    for (const ConstIterator& it : its) {
        EXPECT_EQ(set.iterators.at(i++), &it);
        EXPECT_EQ(at(it), 2u);
    }
}

TEST_F(IteratorFailure, OfAConstructionLeavesNoRegistration) {
    for (const int index : {0, 2, 3, -1}) {
        forEachAllocationFailure([index](FailurePoint& point) {
            Filled three(3);
            std::optional<ConstIterator> it;
            const Outcome outcome = point.run([&] { it.emplace(&three.set, index); });
            EXPECT_EQ(registrations(three.set), outcome.failed ? 0 : 1);
            EXPECT_TRUE(invariants(three.set));
        });
    }
}

TEST_F(IteratorFailure, OfAConstructionLeavesAFullRegistryAsItWas) {
    forEachAllocationFailure([](FailurePoint& point) {
        const FullRegistry three(3);
        std::optional<ConstIterator> it;
        const Outcome outcome = point.run([&] { it.emplace(&three.set, 2); });
        EXPECT_EQ(registrations(three.set), outcome.failed ? 8 : 9);
        expectRegistered(three.set, three.its);
        EXPECT_TRUE(invariants(three.set));
    });
}

TEST_F(IteratorFailure, OfAWritableIteratorsConstructionLeavesNoRegistration) {
    forEachAllocationFailure([](FailurePoint& point) {
        Filled three(3);
        std::optional<Iterator> it;
        const Outcome outcome = point.run([&] { it.emplace(&three.set, 1); });
        EXPECT_EQ(registrations(three.set), outcome.failed ? 0 : 1);
        EXPECT_TRUE(invariants(three.set));
    });
}

TEST_F(IteratorFailure, OfACopyLeavesTheOriginalAlone) {
    forEachAllocationFailure([](FailurePoint& point) {
        const FullRegistry three(3);
        std::optional<ConstIterator> it;
        const Outcome outcome = point.run([&] { it.emplace(three.its.front()); });
        EXPECT_EQ(registrations(three.set), outcome.failed ? 8 : 9);
        expectRegistered(three.set, three.its);
        EXPECT_TRUE(invariants(three.set));
    });
}

TEST_F(IteratorFailure, OfAConstructionThatIsDisabledCannotHappen) {
    forEachAllocationFailure(
        [](FailurePoint& point) {
            GxapSelectSet set;
            set.releaseData();
            point.run([&] {
                const ConstIterator a(&set, 0), b(nullptr, 0), c(a);
                EXPECT_TRUE(a.isDone() && b.isDone() && c.isDone());
            });
        },
        kvtest::Expect::None);
}

// Expects the state after a failed assignment: both sets are sound, and an iterator with a position is
// registered with its set.
void expectSound(const ConstIterator& it, const GxapSelectSet& from, const GxapSelectSet& to) {
    EXPECT_TRUE(invariants(from));
    EXPECT_TRUE(invariants(to));
    EXPECT_TRUE(it.set == &from || it.set == &to || it.set == nullptr);
    EXPECT_EQ(it.isDone(), it.truckerIterator == nullptr);
    EXPECT_EQ(it.get() == nullptr, it.truckerIterator == nullptr);
    EXPECT_TRUE(!it.truckerIterator || isRegistered(*it.set, it));
}

TEST_F(IteratorFailure, OfAnAssignmentFromAnotherSetLeavesBothRegistriesSound) {
    forEachAllocationFailure([](FailurePoint& point) {
        Filled from(2);
        const FullRegistry to(3);
        ConstIterator it = from.set.begin();
        const Outcome outcome = point.run([&] { it = to.its.front(); });
        expectSound(it, from.set, to.set);
        expectRegistered(to.set, to.its);
        if (outcome.completed) {
            EXPECT_TRUE(it == to.its.front());
            EXPECT_TRUE(isRegistered(to.set, it));
        }
        it = from.set.begin();
        EXPECT_EQ(at(it), 1u);
    });
}

TEST_F(IteratorFailure, OfAnAssignmentWithinTheSetKeepsTheRegistration) {
    forEachAllocationFailure([](FailurePoint& point) {
        Filled three(3);
        ConstIterator it = three.set.begin();
        const ConstIterator other = three.set.iteratorAt(2);
        const Outcome outcome = point.run([&] { it = other; });
        expectSound(it, three.set, three.set);
        EXPECT_TRUE(isRegistered(three.set, it));
        EXPECT_EQ(registrations(three.set), 2);
        EXPECT_EQ(at(other), 3u);
        if (outcome.completed) {
            EXPECT_TRUE(it == other);
        }
    });
}

TEST_F(IteratorFailure, OfAnAssignmentToAnIteratorWithoutASetLeavesTheRegistrySound) {
    forEachAllocationFailure([](FailurePoint& point) {
        const FullRegistry to(3);
        ConstIterator it(nullptr, 0);
        const Outcome outcome = point.run([&] { it = to.its.front(); });
        expectSound(it, to.set, to.set);
        expectRegistered(to.set, to.its);
        if (outcome.completed) {
            EXPECT_TRUE(isRegistered(to.set, it));
        }
    });
}

TEST_F(IteratorFailure, OfAStepBackLeavesTheIteratorAloneAndItsArgumentSound) {
    forEachAllocationFailure([](FailurePoint& point) {
        Filled from(2);
        const FullRegistry to(3);
        ConstIterator prev = from.set.begin();
        bool found = false;
        const Outcome outcome = point.run([&] { found = to.its.front().getPrevIterator(prev); });
        expectSound(prev, from.set, to.set);
        expectRegistered(to.set, to.its);
        if (outcome.completed) {
            EXPECT_TRUE(found);
            EXPECT_EQ(at(prev), 1u);
        }
    });
}

TEST_F(IteratorFailure, OfWalkingCannotHappen) {
    forEachAllocationFailure(
        [](FailurePoint& point) {
            Filled three(3);
            ConstIterator it = three.set.begin();
            point.run([&] {
                while (!it.isDone())
                    it.step();
                EXPECT_TRUE(it == it);
                it.disable();
            });
            EXPECT_EQ(it.index, 3);
        },
        kvtest::Expect::None);
}

// --- factories

template <class Factory>
void expectFactorySurvives(Factory factory) {
    forEachAllocationFailure([&factory](FailurePoint& point) {
        Filled three(3);
        const GxapSelectSet::SSetData* data = three.set.sharedData;
        const Outcome outcome = point.run([&] {
            const ConstIterator it = factory(three.set);
            EXPECT_EQ(registrations(three.set), 1);
        });
        EXPECT_TRUE(outcome.completed || outcome.failed);
        EXPECT_EQ(registrations(three.set), 0);
        EXPECT_EQ(three.set.sharedData, data);
        EXPECT_EQ(mainIds(three.set), (std::vector<unsigned long>{1, 2, 3}));
        EXPECT_TRUE(invariants(three.set));
    });
}

template <class Factory>
void expectFactorySurvivesWithoutData(Factory factory) {
    forEachAllocationFailure([&factory](FailurePoint& point) {
        GxapSelectSet set;
        set.releaseData();
        point.run([&] { const ConstIterator it = factory(set); });
        EXPECT_EQ(registrations(set), 0);
        EXPECT_TRUE(invariants(set));
        EXPECT_TRUE(factory(set).isDone());
        EXPECT_NE(set.sharedData, nullptr);
    });
}

TEST_F(FactoryFailure, LeavesSetAndRegistryAsTheyWere) {
    expectFactorySurvives([](const GxapSelectSet& set) { return set.begin(); });
    expectFactorySurvives([](const GxapSelectSet& set) { return set.end(); });
    expectFactorySurvives([](GxapSelectSet& set) { return set.cbegin(); });
    expectFactorySurvives([](GxapSelectSet& set) { return set.cend(); });
    expectFactorySurvives([](const GxapSelectSet& set) { return set.iteratorAt(1); });
    expectFactorySurvives([](const GxapSelectSet& set) { return set.findItr(id(2)); });
    expectFactorySurvives([](const GxapSelectSet& set) { return set.findItr(id(9)); });
    expectFactorySurvives([](const GxapSelectSet& set) { return set.findItr(id(2), kNoId, -1); });
    expectFactorySurvives([](const GxapSelectSet& set) { return set.findMain(id(2)); });
}

TEST_F(FactoryFailure, LeavesASetWithoutDataWithoutItOrWithAWholeOne) {
    expectFactorySurvivesWithoutData([](const GxapSelectSet& set) { return set.begin(); });
    expectFactorySurvivesWithoutData([](const GxapSelectSet& set) { return set.end(); });
    expectFactorySurvivesWithoutData([](GxapSelectSet& set) { return set.cbegin(); });
    expectFactorySurvivesWithoutData([](GxapSelectSet& set) { return set.cend(); });
    expectFactorySurvivesWithoutData([](const GxapSelectSet& set) { return set.iteratorAt(3); });
    expectFactorySurvivesWithoutData([](const GxapSelectSet& set) { return set.findItr(id(9)); });
    expectFactorySurvivesWithoutData([](GxapSelectSet& set) { return edit(set).begin(); });
    expectFactorySurvivesWithoutData([](GxapSelectSet& set) { return edit(set).end(); });
    expectFactorySurvivesWithoutData([](GxapSelectSet& set) { return edit(set).iteratorAt(3); });
    expectFactorySurvivesWithoutData([](GxapSelectSet& set) { return edit(set).findItr(id(9)); });
}

// Making the iterator may fail after the shared data was copied. Expects that both sets still have their
// items.
template <class Factory>
void expectAccessorFactorySurvives(Factory factory) {
    forEachAllocationFailure([&factory](FailurePoint& point) {
        Filled three(3);
        const GxapSelectSet sharer(three.set);
        const ConstIterator theirs = sharer.iteratorAt(1);
        const Outcome outcome = point.run([&] { const Iterator it = factory(edit(three.set)); });
        EXPECT_EQ(registrations(three.set), 0);
        EXPECT_EQ(mainIds(three.set), (std::vector<unsigned long>{1, 2, 3}));
        EXPECT_EQ(mainIds(sharer), (std::vector<unsigned long>{1, 2, 3}));
        EXPECT_EQ(at(theirs), 2u);
        EXPECT_TRUE(invariants(three.set));
        EXPECT_TRUE(invariants(sharer));
        if (outcome.completed) {
            EXPECT_EQ(factory(edit(three.set)).set, &three.set);
        }
    });
}

TEST_F(AccessorFactoryFailure, LeavesBothSetsWithTheirItems) {
    expectAccessorFactorySurvives([](GxapSSetWriteAccessor& accessor) { return accessor.begin(); });
    expectAccessorFactorySurvives([](GxapSSetWriteAccessor& accessor) { return accessor.end(); });
    expectAccessorFactorySurvives([](GxapSSetWriteAccessor& accessor) { return accessor.iteratorAt(1); });
    expectAccessorFactorySurvives([](GxapSSetWriteAccessor& accessor) { return accessor.findItr(id(2)); });
    expectAccessorFactorySurvives(
        [](GxapSSetWriteAccessor& accessor) { return accessor.findItr(id(2), kNoId); });
    expectAccessorFactorySurvives(
        [](GxapSSetWriteAccessor& accessor) { return accessor.findItr(id(2), kNoId, -1); });
    expectAccessorFactorySurvives([](GxapSSetWriteAccessor& accessor) { return accessor.findMain(id(9)); });
}

} // namespace
