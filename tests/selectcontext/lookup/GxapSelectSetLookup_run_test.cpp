#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/selectcontext/support/SetTestSupport.h"

#include <gtest/gtest.h>

// Tests look-ups among many items of one main id.

namespace {

using kvtest::edit;
using kvtest::id;
using kvtest::idVector;

constexpr long kItems = 100;

// Has a set of items that differ only in their markers: main id 1, sub id 2, nested path {1}, and markers
// from 1 on. The constructor looks for an absent item. That look-up passes all items, and makes a hash of
// them.
class ManyItems {
public:
    ManyItems() {
        for (long marker = 1; marker <= kItems; ++marker)
            edit(set).select(id(1), id(2), marker, nullptr, &path);
        EXPECT_EQ(set.find(id(1), id(2), kItems + 1, &path), -1);
    }

    const KvVector<GxDbObjectId> path = idVector({1ul});
    GxapSelectSet set;
};

class LongRun : public kvtest::SetTest {};

TEST_F(LongRun, FindsAnItemByThePathThatAnIteratorHasSet) {
    ManyItems run;
    const KvVector<GxDbObjectId> other = idVector({3ul, 1ul});
    edit(run.set).iteratorAt(80).setNestedEntFullPath(other);
    EXPECT_EQ(run.set.find(id(1), id(2), 81, &other), 80);
    EXPECT_EQ(run.set.find(id(1), id(2), 81, &run.path), -1);
}

// id(7) is made equal to id(5) after the items were hashed. No item has id(7).
TEST_F(LongRun, FindsASubIdByAnIdThatIsMadeEqualToItLater) {
    GxapSelectSet set;
    for (long marker = 1; marker <= kItems; ++marker)
        edit(set).select(id(1), id(marker % 2 == 0 ? 5 : 3), marker, nullptr, nullptr);
    EXPECT_EQ(set.find(id(1), id(5), kItems + 1), -1);
    kvinmemory::makeEqual(id(5), id(7));
    EXPECT_EQ(set.find(id(1), id(7), 80), 79);
}

} // namespace
