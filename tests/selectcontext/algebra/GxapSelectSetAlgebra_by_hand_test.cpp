// Tests minus() with records and slots that a caller has changed by hand. The sets are so large that minus()
// sorts the records by id, if it can.
#include "tests/selectcontext/support/EditTestSupport.h"
#include "tests/selectcontext/support/RecordTestSupport.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

using kvtest::edit;
using kvtest::Filled;
using kvtest::id;
using kvtest::mainIds;
using kvtest::recordAt;

class MinusByHand : public kvtest::EditTest {};

TEST_F(MinusByHand, PassesOverRecordsWhoseMainIdIsNull) {
    const Filled a(40), b(40);
    recordAt(b.set, 0)->mainEntId = GxDbObjectId();
    recordAt(b.set, 5)->mainEntId = GxDbObjectId();
    GxapSelectSet left;
    edit(left).minus(&a.set, &b.set);
    EXPECT_EQ(mainIds(left), (std::vector<unsigned long>{1, 6}));
}

TEST_F(MinusByHand, FromPrivateDataPassesOverRecordsWhoseMainIdIsNull) {
    Filled a(40);
    const Filled b(40);
    recordAt(b.set, 5)->mainEntId = GxDbObjectId();
    edit(a.set).minus(&a.set, &b.set);
    EXPECT_EQ(mainIds(a.set), std::vector<unsigned long>{6});
}

TEST_F(MinusByHand, PassesOverSlotsWithoutARecord) {
    const Filled a(40);
    Filled b(40);
    const std::unique_ptr<selected_entity> taken = kvtest::takeRecordOut(b.set, 3);
    GxapSelectSet left;
    edit(left).minus(&a.set, &b.set);
    EXPECT_EQ(mainIds(left), std::vector<unsigned long>{4});
}

TEST_F(MinusByHand, LeavesARecordThatTheIndexHasUnderAnotherMainId) {
    Filled a(40);
    const Filled b(40);
    recordAt(a.set, 6)->mainEntId = id(100);
    edit(a.set).minus(&a.set, &b.set);
    EXPECT_EQ(mainIds(a.set), std::vector<unsigned long>{100});
    EXPECT_EQ(kvtest::count(a.set), 1u);
}

TEST_F(MinusByHand, LeavesARecordThatTheIndexLacks) {
    Filled a(40);
    const Filled b(40);
    auto record = std::make_unique<selected_entity>();
    record->mainEntId = id(7);
    a.store().append(record.release());
    edit(a.set).minus(&a.set, &b.set);
    EXPECT_EQ(mainIds(a.set), std::vector<unsigned long>{7});
    EXPECT_EQ(kvtest::count(a.set), 0u);
}

} // namespace
