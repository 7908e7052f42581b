#include "platform/inmemory/InMemoryDatabase.h"

#include "tests/support/Ids.h"
#include "tests/support/KvTest.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <utility>

namespace {

using kvinmemory::Database;
using kvinmemory::Entity;
using kvinmemory::NonEntity;
using kvtest::id;
using kvtest::subentPath;

using InMemoryDatabase = kvtest::KvTest;
using InMemoryEntity = kvtest::KvTest;

// ---- Issuing ids

TEST_F(InMemoryDatabase, IdsAscendAsTheyAreIssued) {
    Database database;
    GxDbObjectId last = database.addEntity();
    for (int i = 0; i < 10; ++i) {
        const GxDbObjectId next = database.addEntity();
        EXPECT_TRUE(last < next);
        last = next;
    }
}

TEST_F(InMemoryDatabase, IdsAscendOverAMillionObjects) {
    Database database;
    GxDbObjectId last = database.addInvalid();
    bool ascending = true;
    for (int i = 0; i < 1000000; ++i) {
        const GxDbObjectId next = database.addInvalid();
        ascending = ascending && last < next;
        last = next;
    }
    EXPECT_TRUE(ascending);
    EXPECT_EQ(database.size(), 1000001u);
}

TEST_F(InMemoryDatabase, AFullOneTakesNothingMore) {
    Database database(2);
    database.addEntity();
    database.addEntity();
    EXPECT_THROW(database.addEntity(), std::length_error);
    EXPECT_EQ(database.size(), 2u);
    EXPECT_EQ(kvinmemory::liveObjects(), 2);
}

TEST_F(InMemoryDatabase, NothingIsNoObject) {
    Database database;
    EXPECT_THROW(database.add(nullptr), std::invalid_argument);
    EXPECT_EQ(database.size(), 0u);
}

TEST_F(InMemoryDatabase, ObjectsGoWithTheirDatabase) {
    {
        Database database;
        database.addEntity();
        database.add(std::make_unique<NonEntity>());
        EXPECT_EQ(kvinmemory::liveObjects(), 2);
    }
    EXPECT_EQ(kvinmemory::liveObjects(), 0);
}

TEST_F(InMemoryDatabase, ObjectsThatAreOpenWhenItGoesAreClosed) {
    {
        Database database;
        GxDbEntity* entity = nullptr;
        gxdbOpenObject(entity, database.addEntity(), GxDb::kForRead, false);
        gxdbOpenObject(entity, database.addEntity(), GxDb::kForWrite, false);
        EXPECT_EQ(kvinmemory::openObjects(), 2);
    }
    EXPECT_EQ(kvinmemory::openObjects(), 0);
}

TEST_F(InMemoryDatabase, SeveralLiveSideBySide) {
    Database first;
    Database second;
    const GxDbObjectId ofFirst = first.addEntity();
    const GxDbObjectId ofSecond = second.addEntity();
    EXPECT_TRUE(ofFirst.isValid());
    EXPECT_TRUE(ofSecond.isValid());
    EXPECT_EQ(first.handleOf(ofSecond), 0u);
    EXPECT_THROW(first.erase(ofSecond), std::invalid_argument);
}

// ---- Finding

TEST_F(InMemoryDatabase, HandlesCountFromOne) {
    Database database;
    const GxDbObjectId first = database.addEntity();
    const GxDbObjectId second = database.addEntity();
    EXPECT_EQ(database.handleOf(first), 1u);
    EXPECT_EQ(database.handleOf(second), 2u);
    EXPECT_EQ(database.findByHandle(2), second);
    EXPECT_TRUE(database.findByHandle(0).isNull());
    EXPECT_TRUE(database.findByHandle(3).isNull());
}

TEST_F(InMemoryDatabase, ForeignIdsHaveNoHandleNameOrObject) {
    const Database database;
    EXPECT_EQ(database.handleOf(GxDbObjectId::kNull), 0u);
    EXPECT_EQ(database.handleOf(id(8)), 0u);
    EXPECT_EQ(database.nameOf(id(8)), "");
    EXPECT_EQ(database.object(id(8)), nullptr);
    EXPECT_EQ(database.entity(id(8)), nullptr);
}

TEST_F(InMemoryDatabase, NamesFindTheirObjects) {
    Database database;
    database.addEntity();
    const GxDbObjectId door = database.addEntity("door");
    EXPECT_EQ(database.findByName("door"), door);
    EXPECT_EQ(database.nameOf(door), "door");
    EXPECT_TRUE(database.findByName("window").isNull());
    EXPECT_TRUE(database.findByName("").isNull());
}

TEST_F(InMemoryDatabase, TheFirstOfANameIsFound) {
    Database database;
    const GxDbObjectId first = database.addEntity("desk");
    const GxDbObjectId second = database.addNonResident("desk");
    EXPECT_EQ(database.findByName("desk"), first);
    EXPECT_EQ(database.nameOf(second), "desk");
}

TEST_F(InMemoryDatabase, IdsAreListedAsTheyWereIssued) {
    Database database;
    const GxDbObjectId first = database.addEntity();
    const GxDbObjectId second = database.addInvalid();
    EXPECT_EQ(database.idAt(0), first);
    EXPECT_EQ(database.idAt(1), second);
    EXPECT_THROW(database.idAt(2), std::out_of_range);
}

TEST_F(InMemoryDatabase, TheOwnerSeesObjectsWithoutOpeningThem) {
    Database database;
    auto own = std::make_unique<Entity>();
    const GxDbEntity* const address = own.get();
    const GxDbObjectId entity = database.add(std::move(own));
    const GxDbObjectId layer = database.add(std::make_unique<NonEntity>());
    database.erase(entity);
    EXPECT_EQ(database.entity(entity), address);
    EXPECT_EQ(database.object(entity), address);
    EXPECT_EQ(database.entity(layer), nullptr);
    EXPECT_NE(database.object(layer), nullptr);
    EXPECT_EQ(database.openCount(entity), 0);
}

// ---- States of objects

TEST_F(InMemoryDatabase, ErasedObjectsComeBack) {
    Database database;
    const GxDbObjectId id = database.addEntity();
    EXPECT_FALSE(database.isErased(id));
    database.erase(id);
    EXPECT_TRUE(database.isErased(id));
    database.unerase(id);
    EXPECT_FALSE(database.isErased(id));
}

TEST_F(InMemoryDatabase, AnInvalidIdKeepsItsObject) {
    Database database;
    const GxDbObjectId id = database.addEntity();
    database.invalidate(id);
    EXPECT_FALSE(id.isValid());
    EXPECT_NE(database.object(id), nullptr);
    GxDbEntity* entity = nullptr;
    EXPECT_EQ(gxdbOpenObject(entity, id, GxDb::kForRead, true), kvinmemory::kInvalidId);
}

TEST_F(InMemoryDatabase, AFactoryMakesWhatANonResidentIdOpensAs) {
    class Line : public Entity {};
    Database database;
    int made = 0;
    const GxDbObjectId id = database.addNonResident([&made] {
        ++made;
        return std::make_unique<Line>();
    });
    GxDbEntity* entity = nullptr;
    ASSERT_EQ(gxdbOpenObject(entity, id, GxDb::kForRead, false), eOk);
    const std::unique_ptr<GxDbEntity> owner(entity);
    EXPECT_NE(dynamic_cast<Line*>(entity), nullptr);
    EXPECT_EQ(made, 1);
    EXPECT_TRUE(id.isValid());
}

TEST_F(InMemoryDatabase, ADatabaseTakesNoMemoryThatIsCounted) {
    expectNothingLeft();
    auto* const database = new Database;
    database->addEntity("name");
    database->addNonResident();
    database->forceOpenStatus(database->addInvalid(), eNotOpen);
    EXPECT_EQ(kvinmemory::mallocCalls(), 0);
    delete database;
}

// ---- Entities

TEST_F(InMemoryEntity, KnowsWhatOfItIsHighlighted) {
    const Entity entity;
    EXPECT_EQ(entity.highlight(subentPath({1}, 3, 4), true), eOk);
    EXPECT_EQ(entity.highlight(subentPath({1}, 3, 5), false), eOk);
    const auto& highlights = entity.highlights();
    ASSERT_EQ(highlights.size(), 2u);
    EXPECT_EQ(highlights[0].path, kvinmemory::contentsOf(subentPath({1}, 3, 4)));
    EXPECT_TRUE(highlights[0].entityFlag);
    EXPECT_EQ(highlights[1].path, kvinmemory::contentsOf(subentPath({1}, 3, 5)));
    EXPECT_FALSE(highlights[1].entityFlag);
}

TEST_F(InMemoryEntity, UnhighlightTakesTheNewestOfAnEqualPathBack) {
    const Entity entity;
    entity.highlight(subentPath({1}), true);
    entity.highlight(subentPath({2}), false);
    entity.highlight(subentPath({1}), false);
    EXPECT_EQ(entity.unhighlight(subentPath({1}), true), eOk);
    ASSERT_EQ(entity.highlights().size(), 2u);
    EXPECT_TRUE(entity.highlights()[0].entityFlag);
    EXPECT_EQ(entity.highlights()[1].path, kvinmemory::contentsOf(subentPath({2})));
}

TEST_F(InMemoryEntity, UnhighlightOfAnotherPathTakesNothingBack) {
    const Entity entity;
    entity.highlight(subentPath({1}), true);
    EXPECT_EQ(entity.unhighlight(subentPath({2}), true), eOk);
    EXPECT_EQ(entity.highlights().size(), 1u);
}

TEST_F(InMemoryEntity, HighlightsKeepNoPathAlive) {
    const Entity entity;
    const long before = kvinmemory::livePaths();
    entity.highlight(subentPath({1}), true);
    EXPECT_EQ(kvinmemory::livePaths(), before);
    EXPECT_TRUE(kvinmemory::databaseEvents(kvinmemory::DatabaseCall::PathCopy).empty());
}

TEST_F(InMemoryEntity, AFailedHighlightIsNotKept) {
    const Entity entity;
    kvinmemory::throwFromHighlight(1);
    EXPECT_THROW(entity.highlight(subentPath({1}), true), kvinmemory::PlatformFailure);
    EXPECT_TRUE(entity.highlights().empty());
}

} // namespace
