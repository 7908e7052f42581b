#include "tests/selectcontext/support/EditTestSupport.h"

#include <gtest/gtest.h>

// Subtracts a set whose index lacks an entry from itself.

namespace {

using kvtest::edit;
using kvtest::id;
using kvtest::mainIds;

class Unindexed : public kvtest::EditTest {};

// The item without an entry is the first of the store. minus() looks this item up while the data is still
// shared. So minus() uses the index that lacks the entry.
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
