#include "platform/KvDatabase.h"
#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/support/KvTest.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

using kvinmemory::Database;
using kvinmemory::DatabaseCall;
using EntityPointer = GxDbObjectPointerBase<GxDbEntity>;

static_assert(sizeof(EntityPointer) == 16, "an object and a status");

class ObjectPointer : public kvtest::KvTest {
protected:
    void TearDown() override {
        EXPECT_EQ(kvinmemory::openObjects(), 0);
        KvTest::TearDown();
    }

    static std::size_t count(DatabaseCall call) { return kvinmemory::databaseEvents(call).size(); }
};

TEST_F(ObjectPointer, ANewOneHoldsNothing) {
    const EntityPointer pointer;
    EXPECT_EQ(pointer.mObject, nullptr);
    EXPECT_EQ(pointer.mStatus, eNotOpen);
}

TEST_F(ObjectPointer, OpeningHoldsTheObjectAndItsStatus) {
    Database database;
    const GxDbObjectId id = database.addEntity();
    EntityPointer pointer;
    EXPECT_EQ(pointer.open(id, GxDb::kForRead), eOk);
    EXPECT_EQ(pointer.mObject, database.entity(id));
    EXPECT_EQ(pointer.mStatus, eOk);
    EXPECT_EQ(database.openCount(id), 1);
}

TEST_F(ObjectPointer, ModeAndWishForErasedObjectsAreHandedOn) {
    Database database;
    const GxDbObjectId id = database.addEntity();
    EntityPointer pointer;
    pointer.open(id, GxDb::kForWrite, true);
    pointer.open(id, GxDb::kForRead);
    const auto opens = kvinmemory::databaseEvents(DatabaseCall::Open);
    ASSERT_EQ(opens.size(), 2u);
    EXPECT_EQ(opens[0].mode, GxDb::kForWrite);
    EXPECT_TRUE(opens[0].openErased);
    EXPECT_EQ(opens[1].mode, GxDb::kForRead);
    EXPECT_FALSE(opens[1].openErased);
}

TEST_F(ObjectPointer, AFailedOpeningHoldsItsStatusOnly) {
    Database database;
    EntityPointer pointer;
    EXPECT_EQ(pointer.open(database.addInvalid(), GxDb::kForRead), kvinmemory::kInvalidId);
    EXPECT_EQ(pointer.mObject, nullptr);
    EXPECT_EQ(pointer.mStatus, kvinmemory::kInvalidId);
}

TEST_F(ObjectPointer, AnObjectThatComesWithABadStatusIsHeldAndClosed) {
    Database database;
    const GxDbObjectId id = database.addEntity();
    database.forceOpenStatus(id, kvinmemory::kErasedObject, true);
    {
        EntityPointer pointer;
        EXPECT_EQ(pointer.open(id, GxDb::kForRead), kvinmemory::kErasedObject);
        EXPECT_EQ(pointer.mObject, database.entity(id));
    }
    EXPECT_EQ(count(DatabaseCall::Close), 1u);
}

TEST_F(ObjectPointer, OpeningAnotherClosesTheFirst) {
    Database database;
    const GxDbObjectId first = database.addEntity();
    const GxDbObjectId second = database.addEntity();
    EntityPointer pointer;
    pointer.open(first, GxDb::kForRead);
    pointer.open(second, GxDb::kForRead);
    EXPECT_EQ(database.openCount(first), 0);
    EXPECT_EQ(database.openCount(second), 1);
}

TEST_F(ObjectPointer, ClosingForgetsTheObject) {
    Database database;
    const GxDbObjectId id = database.addEntity();
    EntityPointer pointer;
    pointer.open(id, GxDb::kForRead);
    EXPECT_EQ(pointer.closeInternal(), eOk);
    EXPECT_EQ(pointer.mObject, nullptr);
    EXPECT_EQ(pointer.mStatus, eNotOpen);
    EXPECT_EQ(database.openCount(id), 0);
}

TEST_F(ObjectPointer, ClosingWithoutAnObjectForgetsTheStatus) {
    EntityPointer pointer;
    pointer.mStatus = kvinmemory::kInvalidId;
    EXPECT_EQ(pointer.closeInternal(), eOk);
    EXPECT_EQ(pointer.mStatus, eNotOpen);
    EXPECT_EQ(count(DatabaseCall::Close), 0u);
}

TEST_F(ObjectPointer, AResidentObjectIsClosedOnceAndNotDeleted) {
    Database database;
    const GxDbObjectId id = database.addEntity();
    {
        EntityPointer pointer;
        pointer.open(id, GxDb::kForRead);
    }
    EXPECT_EQ(count(DatabaseCall::Close), 1u);
    EXPECT_EQ(count(DatabaseCall::Delete), 0u);
}

TEST_F(ObjectPointer, ANonResidentObjectIsDeletedAndNotClosed) {
    Database database;
    const GxDbObjectId id = database.addNonResident();
    {
        EntityPointer pointer;
        EXPECT_EQ(pointer.open(id, GxDb::kForRead), eOk);
        EXPECT_EQ(kvinmemory::liveObjects(), 1);
    }
    EXPECT_EQ(kvinmemory::liveObjects(), 0);
    EXPECT_EQ(count(DatabaseCall::Delete), 1u);
    EXPECT_EQ(count(DatabaseCall::Close), 0u);
}

TEST_F(ObjectPointer, AnExceptionThatPassesReleasesTheObject) {
    Database database;
    const GxDbObjectId id = database.addEntity();
    EXPECT_THROW(
        {
            EntityPointer pointer;
            pointer.open(id, GxDb::kForRead);
            throw std::runtime_error("while open");
        },
        std::runtime_error);
    EXPECT_EQ(database.openCount(id), 0);
}

} // namespace
