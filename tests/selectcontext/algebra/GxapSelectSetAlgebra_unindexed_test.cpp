#include "tests/selectcontext/support/EditTestSupport.h"

#include <gtest/gtest.h>

// Tests minus() with one set as both operands. The index of the set lacks an entry.

namespace {

using kvtest::edit;
using kvtest::id;
using kvtest::mainIds;

class Unindexed : public kvtest::EditTest {};

// The first item in store order is (1, 3), which has no index entry. minus() looks this item up while the
// data is still shared, and does not find it. So the item stays.
TEST_F(Unindexed, ItemStaysInTheDifferenceOfTheSetFromItself) {
    GxapSelectSet set;
    edit(set).append(id(1), id(2));
    edit(set).append(id(1), id(3));
    kvtest::appendIds(set, 2, 20);
    edit(set).remove(id(1), id(2)); // also erases the entry of (1, 3)
    GxapSelectSet result;
    edit(result).minus(&set, &set);
    EXPECT_EQ(mainIds(result), kvtest::idRange(1, 1));
}

} // namespace
