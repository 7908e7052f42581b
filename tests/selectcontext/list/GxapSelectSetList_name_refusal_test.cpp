// Tests named sets on a platform whose gxdbInitGdsNameKey() throws. This function sets word 1 of the name of
// a set.

#include "tests/selectcontext/support/SetTestSupport.h"

#include <functional>
#include <gtest/gtest.h>
#include <list>

namespace {

struct Refusal {};

// Runs when the platform sets word 1 of a name.
std::function<void(const long*)> gAtCompletion;

} // namespace

// Replaces the platform's function that sets word 1 of a name.
void gxdbInitGdsNameKey(long* name) {
    name[1] = 77;
    if (gAtCompletion)
        gAtCompletion(name);
}

namespace {

using kvtest::appendIds;
using kvtest::mainIds;
using kvtest::owners;
using Sets = std::list<GxapSelectSet*>;

class RefusedName : public kvtest::SetTest {
protected:
    void TearDown() override {
        gAtCompletion = nullptr;
        SetTest::TearDown();
    }

    static void refuse() {
        gAtCompletion = [](const long*) { throw Refusal(); };
    }
};

TEST_F(RefusedName, IsGivenToASetThatIsListedAlready) {
    GxapSelectSetList list;
    long name[2] = {};
    bool isListed = false;
    gAtCompletion = [&](const long* completed) {
        isListed = completed == name && list.sets.size() == 1 && list.getSSetByName(completed);
    };
    GxapSelectSet* const made = list.newSelectSet(name);
    EXPECT_TRUE(isListed);
    EXPECT_EQ(list.sets, Sets({made}));
    EXPECT_EQ(name[1], 77);
}

TEST_F(RefusedName, LeavesTheListAsItWas) {
    GxapSelectSetList list;
    long first[2] = {}, name[2] = {-7, -8};
    GxapSelectSet* const listed = list.newSelectSet(first);
    refuse();
    EXPECT_THROW(list.newSelectSet(name), Refusal);
    EXPECT_EQ(list.sets, Sets({listed}));
    EXPECT_EQ(name[0], -7);
    EXPECT_EQ(list.getSSetByName(first), listed);
}

TEST_F(RefusedName, LeavesTheListAndTheSourceOfAnAddedSetAsTheyWere) {
    GxapSelectSetList list;
    GxapSelectSet source;
    appendIds(source, 1, 2);
    long name[2] = {-7, -8};
    refuse();
    EXPECT_THROW(list.addSelectSet(source, name), Refusal);
    EXPECT_TRUE(list.sets.empty());
    EXPECT_EQ(name[0], -7);
    EXPECT_EQ(owners(source), 1u);
    EXPECT_EQ(mainIds(source), kvtest::idRange(1, 2));
}

TEST_F(RefusedName, OfAListedSetStillNamesIt) {
    GxapSelectSetList list;
    long name[2] = {};
    GxapSelectSet* const listed = list.newSelectSet(name);
    refuse();
    EXPECT_THROW(list.newSelectSet(name), Refusal);
    EXPECT_EQ(list.getSSetByName(name), listed);
    list.delSelectSet(name);
    EXPECT_TRUE(list.sets.empty());
}

TEST_F(RefusedName, DoesNotKeepTheNextSetOut) {
    GxapSelectSetList list;
    long name[2] = {};
    refuse();
    EXPECT_THROW(list.newSelectSet(name), Refusal);
    gAtCompletion = nullptr;
    GxapSelectSet* const made = list.newSelectSet(name);
    EXPECT_EQ(list.sets, Sets({made}));
    EXPECT_EQ(list.getSSetByName(name), made);
}

} // namespace
