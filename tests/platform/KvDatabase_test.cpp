#include "platform/KvDatabase.h"

#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/support/Ids.h"
#include "tests/support/KvTest.h"

#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <type_traits>

namespace {

using kvinmemory::Database;
using kvtest::id;
using kvtest::subentPath;

using ObjectId = kvtest::KvTest;
using SubentPath = kvtest::KvTest;
using OpenObject = kvtest::KvTest;
using NameKey = kvtest::KvTest;

static_assert(sizeof(GxDbObjectId) == sizeof(void*) && std::is_trivially_copyable_v<GxDbObjectId>,
              "a plain value");
static_assert(sizeof(GxDbSubentId) == 24, "type, index and one member more");
static_assert(!std::is_copy_constructible_v<GxDbObject>, "objects have an identity");

// ---- Ids

TEST_F(ObjectId, TheDefaultOneIsNull) {
    EXPECT_TRUE(GxDbObjectId().isNull());
    EXPECT_TRUE(GxDbObjectId::kNull.isNull());
    EXPECT_EQ(GxDbObjectId(), GxDbObjectId::kNull);
}

TEST_F(ObjectId, OneWithAStubIsNotNull) {
    EXPECT_FALSE(id(1).isNull());
    EXPECT_NE(id(1), GxDbObjectId::kNull);
}

TEST_F(ObjectId, OnesOfTheSameStubAreEqualAndNeitherIsLess) {
    EXPECT_TRUE(id(7) == id(7));
    EXPECT_FALSE(id(7) != id(7));
    EXPECT_FALSE(id(7) < id(7));
}

TEST_F(ObjectId, TheOrderIsThatOfAddresses) {
    EXPECT_TRUE(id(1) < id(2));
    EXPECT_FALSE(id(2) < id(1));
    EXPECT_TRUE(GxDbObjectId::kNull < id(1));
}

TEST_F(ObjectId, OneThatNoDatabaseIssuedIsNotValid) {
    EXPECT_FALSE(GxDbObjectId::kNull.isValid());
    EXPECT_FALSE(id(5).isValid());
}

TEST_F(ObjectId, OneOfADatabaseIsValidAlsoWhenItsObjectIsErased) {
    Database database;
    const GxDbObjectId entity = database.addEntity();
    EXPECT_TRUE(entity.isValid());
    database.erase(entity);
    EXPECT_TRUE(entity.isValid());
}

TEST_F(ObjectId, AnAddressBetweenStubsIsNotValid) {
    Database database;
    database.addEntity();
    database.addEntity();
    char* const address = reinterpret_cast<char*>(database.idAt(0).stub());
    EXPECT_FALSE(GxDbObjectId(reinterpret_cast<GxDbStub*>(address + 1)).isValid());
}

TEST_F(ObjectId, OneOfADatabaseThatIsGoneIsNotValid) {
    GxDbObjectId stale;
    {
        Database database;
        stale = database.addEntity();
    }
    EXPECT_FALSE(stale.isValid());
}

// ---- Sub-entity paths

TEST_F(SubentPath, ANewOneIsEmpty) {
    const GxDbFullSubentPath path;
    EXPECT_EQ(path.objectIds().logicalLength(), 0);
    EXPECT_EQ(path.subentId().type, 0);
    EXPECT_EQ(path.subentId().index, 0);
    EXPECT_EQ(path.subentId().extra, nullptr);
}

TEST_F(SubentPath, ACopyEqualsItsSourceAndSharesNothingWithIt) {
    GxDbFullSubentPath source = subentPath({1, 2}, 3, 4);
    const GxDbFullSubentPath copy = source;
    EXPECT_TRUE(copy == source);
    source.objectIds()[1] = id(9);
    source.subentId().index = 5;
    EXPECT_EQ(copy.objectIds()[1], id(2));
    EXPECT_EQ(copy.subentId().index, 4);
}

TEST_F(SubentPath, AssignmentReplacesIdsAndPart) {
    GxDbFullSubentPath path = subentPath({1, 2, 3}, 1, 1);
    path = subentPath({4}, 3, 8);
    EXPECT_TRUE(path == subentPath({4}, 3, 8));
}

TEST_F(SubentPath, AssignmentToItselfChangesNothing) {
    GxDbFullSubentPath path = subentPath({1, 2}, 1, 1);
    const GxDbFullSubentPath& self = path;
    path = self;
    EXPECT_TRUE(path == subentPath({1, 2}, 1, 1));
}

TEST_F(SubentPath, IdsLengthAndEveryFieldOfThePartTellPathsApart) {
    const GxDbFullSubentPath path = subentPath({1, 2}, 3, 4);
    EXPECT_FALSE(path == subentPath({1, 5}, 3, 4));
    EXPECT_FALSE(path == subentPath({1}, 3, 4));
    EXPECT_FALSE(subentPath({1}, 3, 4) == path);
    EXPECT_FALSE(path == subentPath({1, 2}, 0, 4));
    EXPECT_FALSE(path == subentPath({1, 2}, 3, 0));
    GxDbFullSubentPath other = path;
    other.subentId().extra = &other;
    EXPECT_FALSE(path == other);
}

TEST_F(SubentPath, IdsAreComparedAsIds) {
    kvinmemory::makeEqual(id(2), id(5));
    EXPECT_TRUE(subentPath({1, 2}) == subentPath({1, 5}));
}

TEST_F(SubentPath, PathsLeaveNothingBehind) {
    expectNothingLeft();
    const GxDbFullSubentPath path = subentPath({1, 2, 3});
    GxDbFullSubentPath copy = path;
    copy = subentPath({4, 5, 6, 7, 8, 9, 10});
    EXPECT_EQ(kvinmemory::livePaths(), 2);
}

// ---- Opening

// The result of one call of gxdbOpenObject.
struct Opened {
    GxErrorStatus status;
    GxDbEntity* entity;
};

// Opens an id, and closes the entity again.
Opened openAndClose(GxDbObjectId id, GxDb::OpenMode mode = GxDb::kForRead, bool openErased = false) {
    GxDbEntity* entity = nullptr;
    const GxErrorStatus status = gxdbOpenObject(entity, id, mode, openErased);
    if (entity != nullptr)
        entity->close();
    return {status, entity};
}

TEST_F(OpenObject, YieldsTheVeryEntity) {
    Database database;
    const GxDbObjectId id = database.addEntity();
    const Opened opened = openAndClose(id);
    EXPECT_EQ(opened.status, eOk);
    EXPECT_EQ(opened.entity, database.entity(id));
    EXPECT_EQ(opened.entity->objectId(), id);
}

TEST_F(OpenObject, FailsForNullUnknownAndInvalidIds) {
    Database database;
    const std::array<GxDbObjectId, 3> ids{GxDbObjectId::kNull, id(3), database.addInvalid()};
    for (const GxDbObjectId& each : ids) {
        GxDbEntity* entity = reinterpret_cast<GxDbEntity*>(&database);
        EXPECT_EQ(gxdbOpenObject(entity, each, GxDb::kForRead, true), kvinmemory::kInvalidId);
        EXPECT_EQ(entity, nullptr);
    }
}

TEST_F(OpenObject, FailsForWhatIsNotAnEntity) {
    Database database;
    const GxDbObjectId layer = database.add(std::make_unique<kvinmemory::NonEntity>());
    const Opened opened = openAndClose(layer);
    EXPECT_EQ(opened.status, kvinmemory::kNotAnEntity);
    EXPECT_EQ(opened.entity, nullptr);
}

TEST_F(OpenObject, OpensErasedObjectsOnlyOnRequest) {
    Database database;
    const GxDbObjectId id = database.addEntity();
    database.erase(id);
    EXPECT_EQ(openAndClose(id).status, kvinmemory::kErasedObject);
    EXPECT_EQ(openAndClose(id).entity, nullptr);
    EXPECT_EQ(openAndClose(id, GxDb::kForRead, true).status, eOk);
    database.unerase(id);
    EXPECT_EQ(openAndClose(id).status, eOk);
}

TEST_F(OpenObject, ReadersShareAnObject) {
    Database database;
    const GxDbObjectId id = database.addEntity();
    GxDbEntity* first = nullptr;
    GxDbEntity* second = nullptr;
    EXPECT_EQ(gxdbOpenObject(first, id, GxDb::kForRead, false), eOk);
    EXPECT_EQ(gxdbOpenObject(second, id, GxDb::kForRead, false), eOk);
    EXPECT_EQ(database.openCount(id), 2);
    EXPECT_EQ(first->close(), eOk);
    EXPECT_EQ(database.openCount(id), 1);
    EXPECT_EQ(second->close(), eOk);
    EXPECT_EQ(database.openCount(id), 0);
}

TEST_F(OpenObject, AWriterIsAlone) {
    Database database;
    const GxDbObjectId id = database.addEntity();
    GxDbEntity* entity = nullptr;
    ASSERT_EQ(gxdbOpenObject(entity, id, GxDb::kForWrite, false), eOk);
    EXPECT_EQ(openAndClose(id, GxDb::kForRead).status, kvinmemory::kOpenOtherwise);
    EXPECT_EQ(openAndClose(id, GxDb::kForWrite).status, kvinmemory::kOpenOtherwise);
    EXPECT_EQ(database.openCount(id), 1);
    entity->close();
    EXPECT_EQ(openAndClose(id, GxDb::kForWrite).status, eOk);
}

TEST_F(OpenObject, AWriterWaitsForNoReader) {
    Database database;
    const GxDbObjectId id = database.addEntity();
    GxDbEntity* entity = nullptr;
    ASSERT_EQ(gxdbOpenObject(entity, id, GxDb::kForRead, false), eOk);
    EXPECT_EQ(openAndClose(id, GxDb::kForWrite).status, kvinmemory::kOpenOtherwise);
    entity->close();
}

TEST_F(OpenObject, ClosingWhatIsNotOpenSaysSo) {
    Database database;
    const GxDbObjectId id = database.addEntity();
    EXPECT_EQ(database.entity(id)->close(), eNotOpen);
    kvinmemory::Entity alone;
    EXPECT_EQ(alone.close(), eNotOpen);
}

TEST_F(OpenObject, ANonResidentEntityIsFreshEachTimeAndHasNoId) {
    Database database;
    const GxDbObjectId id = database.addNonResident();
    GxDbEntity* first = nullptr;
    GxDbEntity* second = nullptr;
    ASSERT_EQ(gxdbOpenObject(first, id, GxDb::kForRead, false), eOk);
    ASSERT_EQ(gxdbOpenObject(second, id, GxDb::kForRead, false), eOk);
    EXPECT_NE(first, second);
    EXPECT_TRUE(first->objectId().isNull());
    delete first;
    delete second;
}

// ---- Names of sets

TEST_F(NameKey, EachNameGetsAKeyOfItsOwnBehindTheAddress) {
    std::array<long, 2> first{4711, 0};
    std::array<long, 2> second{4711, 0};
    gxdbInitGdsNameKey(first.data());
    gxdbInitGdsNameKey(second.data());
    EXPECT_THAT(first, testing::ElementsAre(4711, 1));
    EXPECT_THAT(second, testing::ElementsAre(4711, 2));
}

} // namespace
