// Edits the list of named sets while each allocation fails in turn. Nothing leaks, and a failed edit leaves
// the list unchanged.
#include "platform/inmemory/InMemoryDatabase.h"
#include "platform/inmemory/InMemoryOsBase.h"
#include "tests/selectcontext/support/SetTestSupport.h"
#include "tests/support/AllocationFailure.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <list>
#include <memory>

namespace {

using kvtest::Expect;
using kvtest::FailurePoint;
using kvtest::Filled;
using kvtest::forEachAllocationFailure;
using kvtest::owners;
using Sets = std::list<GxapSelectSet*>;

class FailingList : public kvtest::SetTest {};

TEST_F(FailingList, AnswersNullAndChangesNothingWithoutMemoryForTheSet) {
    GxapSelectSetList list;
    long first[2] = {};
    GxapSelectSet* const listed = list.newSelectSet(first);
    for (const bool add : {false, true}) {
        long name[2] = {-7, -8};
        const std::size_t completed = kvinmemory::nameKeyCalls().size();
        kvinmemory::failMalloc(1, kvinmemory::FailureMode::Once);
        EXPECT_EQ(add ? list.addSelectSet(*listed, name) : list.newSelectSet(name), nullptr);
        kvinmemory::allowMalloc();
        EXPECT_EQ(list.sets, Sets({listed}));
        EXPECT_EQ(name[0], -7);
        EXPECT_EQ(name[1], -8);
        EXPECT_EQ(owners(*listed), 1u);
        EXPECT_EQ(kvinmemory::nameKeyCalls().size(), completed);
    }
}

TEST_F(FailingList, IsAsItWasWhenANewSetFails) {
    forEachAllocationFailure([](FailurePoint& point) {
        GxapSelectSetList list;
        long first[2] = {};
        long name[2] = {-7, -8};
        GxapSelectSet* const listed = list.newSelectSet(first);
        GxapSelectSet* made = nullptr;
        point.run([&] { made = list.newSelectSet(name); });
        EXPECT_EQ(made != nullptr, !point.outcome().injected);
        if (made) {
            EXPECT_EQ(list.sets, Sets({made, listed}));
            return;
        }
        EXPECT_EQ(list.sets, Sets({listed}));
        EXPECT_EQ(name[0], -7);
        EXPECT_EQ(name[1], -8);
        EXPECT_EQ(point.outcome().failed, point.allocation() == kvtest::Allocation::New);
    });
}

TEST_F(FailingList, IsAsItWasWhenAnAddedSetFails) {
    forEachAllocationFailure([](FailurePoint& point) {
        GxapSelectSetList list;
        Filled filled(2);
        long name[2] = {-7, -8};
        GxapSelectSet* made = nullptr;
        point.run([&] { made = list.addSelectSet(filled.set, name); });
        EXPECT_EQ(made != nullptr, !point.outcome().injected);
        EXPECT_EQ(list.sets, made ? Sets({made}) : Sets());
        EXPECT_EQ(owners(filled.set), made ? 2u : 1u);
        EXPECT_EQ(name[0] == -7, made == nullptr);
    });
}

TEST_F(FailingList, DeletesAndDestroysWithoutMemory) {
    forEachAllocationFailure(
        [](FailurePoint& point) {
            auto list = std::make_unique<GxapSelectSetList>();
            long first[2] = {};
            long second[2] = {};
            kvtest::appendIds(*list->newSelectSet(first), 1, 2);
            list->newSelectSet(second);
            point.run([&] {
                list->delSelectSet(second);
                list->getSSetByName(first);
                list.reset();
            });
        },
        Expect::None);
}

} // namespace
