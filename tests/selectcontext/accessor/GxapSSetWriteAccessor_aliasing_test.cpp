// Tests look-ups that copy shared data. Their arguments are references into the old data, which is destroyed
// during the look-up.

#include "tests/selectcontext/support/EditTestSupport.h"

#include <gtest/gtest.h>

namespace {

using kvtest::at;
using kvtest::edit;
using kvtest::FleetingSharer;
using kvtest::id;
using kvtest::record;
using kvtest::SetOf;

using Iterator = GxapSelectSet::Iterator;

class AccessorAliasing : public kvtest::EditTest {};

// Has a set of three items. The keys are references into the record of the second item.
struct Held {
    SetOf s{{1}, {2, 3, 4}, {5}};
    const GxDbObjectId& mainKey = record(s.set, 1)->mainEntId;
    const GxDbObjectId& subKey = record(s.set, 1)->subEntId;
    const FleetingSharer sharer{s.set};

    GxapSSetWriteAccessor& accessor() { return edit(s.set); }

    // Expects that the iterator is on the second item, and that the set is the only owner of its data.
    void expectFound(Iterator it) const {
        EXPECT_TRUE(sharer.isGone());
        EXPECT_EQ(at(it), 2u);
        EXPECT_EQ(it.get(), record(s.set, 1));
        EXPECT_EQ(kvtest::owners(s.set), 1u);
    }
};

TEST_F(AccessorAliasing, FindsByAMainIdOfItsOwnRecord) {
    Held held;
    held.expectFound(held.accessor().findItr(held.mainKey));
}

TEST_F(AccessorAliasing, FindsByTheKeyOfItsOwnIndex) {
    Held held;
    const GxDbObjectId& key = held.s.set.findInMap(id(2))->first;
    held.expectFound(held.accessor().findItr(key));
}

TEST_F(AccessorAliasing, FindsByTwoIdsOfItsOwnRecord) {
    Held held;
    held.expectFound(held.accessor().findItr(held.mainKey, held.subKey));
}

TEST_F(AccessorAliasing, FindsByThreeKeysOfItsOwnRecord) {
    Held held;
    held.expectFound(held.accessor().findItr(held.mainKey, held.subKey, 4));
}

TEST_F(AccessorAliasing, FindsMainByAMainIdOfItsOwnRecord) {
    Held held;
    held.expectFound(held.accessor().findMain(held.mainKey));
}

TEST_F(AccessorAliasing, FindsNothingByKeysOfTwoOfItsRecords) {
    Held held;
    const GxDbObjectId& otherMain = record(held.s.set, 0)->mainEntId;
    EXPECT_TRUE(held.accessor().findItr(otherMain, held.subKey).isDone());
    EXPECT_TRUE(held.sharer.isGone());
}

} // namespace
