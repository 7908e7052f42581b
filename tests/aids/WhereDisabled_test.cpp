// Runs with a library that is built with KV_TRACE_ITERATORS.
#include "aids/Inspect.h"

#include "selectcontext/IteratorTrace.h"
#include "tests/selectcontext/support/SetTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace {

using ConstIterator = GxapSelectSet::ConstIterator;

using WhereDisabled = kvtest::SetTest;

bool namesCall(const std::vector<std::string>& places, const std::string& function) {
    return std::any_of(places.begin(), places.end(),
                       [&](const std::string& place) { return place.find(function) != std::string::npos; });
}

TEST_F(WhereDisabled, NamesTheOperationOfTheSet) {
    GxapSelectSet set;
    const ConstIterator it = set.iteratorAt(0);
    set.createData();
    EXPECT_EQ(kv::whyDone(it), kv::IteratorState::kDisabled);
    EXPECT_TRUE(namesCall(kv::whereDisabled(it), "GxapSelectSet::createData"));
}

TEST_F(WhereDisabled, NamesTheLastOfSeveralOperations) {
    GxapSelectSet set;
    GxapSelectSet other;
    ConstIterator it = set.iteratorAt(0);
    set.createData();
    it = other.iteratorAt(0);
    other.assignData(nullptr);
    EXPECT_TRUE(namesCall(kv::whereDisabled(it), "GxapSelectSet::assignData"));
    EXPECT_FALSE(namesCall(kv::whereDisabled(it), "GxapSelectSet::createData"));
}

TEST_F(WhereDisabled, IsNowhereWhileTheIteratorIsNotDisabled) {
    GxapSelectSet set;
    const ConstIterator disabled = set.iteratorAt(0);
    set.createData();
    const ConstIterator it = set.iteratorAt(0);
    EXPECT_TRUE(kv::whereDisabled(it).empty());
}

TEST_F(WhereDisabled, IsForgottenAfter256OtherIterators) {
    GxapSelectSet set;
    GxapSelectSet other;
    const ConstIterator it = set.iteratorAt(0);
    set.createData();
    for (std::size_t i = 1; i < kvtrace::kRemembered; ++i) {
        const ConstIterator fresh = other.iteratorAt(0);
        other.createData();
    }
    EXPECT_FALSE(kv::whereDisabled(it).empty());
    const ConstIterator last = other.iteratorAt(0);
    other.createData();
    EXPECT_TRUE(kv::whereDisabled(it).empty());
}

} // namespace
