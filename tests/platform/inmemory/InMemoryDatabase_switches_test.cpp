#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/support/Ids.h"
#include "tests/support/KvTest.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace {

using namespace kvinmemory;
using kvtest::id;
using kvtest::subentPath;

using EqualIds = kvtest::KvTest;
using ComparisonCounts = kvtest::KvTest;
using ForcedOpening = kvtest::KvTest;
using FailingPlatform = kvtest::KvTest;
using HighlightCallback = kvtest::KvTest;
using DatabaseLog = kvtest::KvTest;
using DatabaseReset = kvtest::KvTest;

// ---- Equal ids

TEST_F(EqualIds, AreEqualAndNeitherIsLess) {
    makeEqual(id(2), id(7));
    EXPECT_EQ(id(2), id(7));
    EXPECT_FALSE(id(2) < id(7));
    EXPECT_FALSE(id(7) < id(2));
}

TEST_F(EqualIds, ShareThePlaceOfTheLower) {
    makeEqual(id(7), id(2));
    EXPECT_TRUE(id(7) < id(3));
    EXPECT_FALSE(id(3) < id(7));
    EXPECT_TRUE(id(1) < id(7));
}

TEST_F(EqualIds, LeaveOthersAsTheyAre) {
    makeEqual(id(2), id(7));
    EXPECT_NE(id(2), id(3));
    EXPECT_TRUE(id(3) < id(8));
    EXPECT_FALSE(id(8) < id(3));
}

TEST_F(EqualIds, AddUpInAnyOrder) {
    makeEqual(id(2), id(7));
    makeEqual(id(4), id(9));
    makeEqual(id(9), id(7));
    const std::array<unsigned long, 4> equals{2, 4, 7, 9};
    for (const unsigned long a : equals) {
        for (const unsigned long b : equals) {
            EXPECT_EQ(id(a), id(b)) << a << ", " << b;
            EXPECT_FALSE(id(a) < id(b)) << a << ", " << b;
        }
        EXPECT_TRUE(id(a) < id(3)) << a;
    }
}

TEST_F(EqualIds, MayIncludeNull) {
    makeEqual(id(5), GxDbObjectId::kNull);
    EXPECT_TRUE(id(5).isNull());
    EXPECT_TRUE(id(5) < id(1));
}

TEST_F(EqualIds, AreNotValidWhenTheyEqualNull) {
    Database database;
    const GxDbObjectId entity = database.addEntity();
    makeEqual(entity, GxDbObjectId::kNull);
    EXPECT_FALSE(entity.isValid());
}

TEST_F(EqualIds, OpenAsTheirOwnObjects) {
    Database database;
    const GxDbObjectId first = database.addEntity();
    const GxDbObjectId second = database.addEntity();
    makeEqual(first, second);
    GxDbEntity* entity = nullptr;
    gxdbOpenObject(entity, second, GxDb::kForRead, false);
    EXPECT_EQ(database.openCount(first), 0);
    EXPECT_EQ(database.openCount(second), 1);
    entity->close();
}

// ---- Counts of comparisons

TEST_F(ComparisonCounts, HaveTheCallsOfEachFunction) {
    countIdComparisons(true);
    static_cast<void>(id(1) == id(2));
    static_cast<void>(id(1) == id(1));
    static_cast<void>(id(1) < id(2));
    EXPECT_EQ(idEqualityCalls(), 2);
    EXPECT_EQ(idOrderCalls(), 1);
}

TEST_F(ComparisonCounts, AreOffAtFirst) {
    static_cast<void>(id(1) == id(2));
    static_cast<void>(id(1) < id(2));
    EXPECT_EQ(idEqualityCalls(), 0);
    EXPECT_EQ(idOrderCalls(), 0);
}

TEST_F(ComparisonCounts, StartAgainEachTimeTheyAreTurnedOnOrOff) {
    countIdComparisons(true);
    static_cast<void>(id(1) == id(2));
    static_cast<void>(id(1) < id(2));
    countIdComparisons(true);
    EXPECT_EQ(idEqualityCalls(), 0);
    EXPECT_EQ(idOrderCalls(), 0);
    static_cast<void>(id(1) == id(2));
    countIdComparisons(false);
    static_cast<void>(id(1) == id(2));
    EXPECT_EQ(idEqualityCalls(), 0);
}

// ---- Forced statuses

TEST_F(ForcedOpening, AnswersTheStatusWithoutAnObject) {
    Database database;
    const GxDbObjectId id = database.addEntity();
    database.forceOpenStatus(id, static_cast<GxErrorStatus>(77));
    GxDbEntity* entity = nullptr;
    EXPECT_EQ(gxdbOpenObject(entity, id, GxDb::kForRead, false), 77);
    EXPECT_EQ(entity, nullptr);
    EXPECT_EQ(database.openCount(id), 0);
}

TEST_F(ForcedOpening, YieldsTheObjectIfAsked) {
    Database database;
    const GxDbObjectId id = database.addEntity();
    database.forceOpenStatus(id, static_cast<GxErrorStatus>(77), true);
    GxDbEntity* entity = nullptr;
    EXPECT_EQ(gxdbOpenObject(entity, id, GxDb::kForRead, false), 77);
    ASSERT_EQ(entity, database.entity(id));
    EXPECT_EQ(database.openCount(id), 1);
    entity->close();
}

TEST_F(ForcedOpening, YieldsAFreshNonResidentObjectIfAsked) {
    Database database;
    const GxDbObjectId id = database.addNonResident();
    database.forceOpenStatus(id, static_cast<GxErrorStatus>(77), true);
    GxDbEntity* entity = nullptr;
    EXPECT_EQ(gxdbOpenObject(entity, id, GxDb::kForRead, false), 77);
    const std::unique_ptr<GxDbEntity> owner(entity);
    ASSERT_NE(entity, nullptr);
    EXPECT_TRUE(entity->objectId().isNull());
}

TEST_F(ForcedOpening, PrecedesWhatElseHolds) {
    Database database;
    const GxDbObjectId id = database.addEntity();
    database.erase(id);
    database.forceOpenStatus(id, eOk, true);
    GxDbEntity* entity = nullptr;
    EXPECT_EQ(gxdbOpenObject(entity, id, GxDb::kForRead, false), eOk);
    ASSERT_NE(entity, nullptr);
    entity->close();
}

TEST_F(ForcedOpening, EndsWhenOpeningIsAllowed) {
    Database database;
    const GxDbObjectId id = database.addEntity();
    database.forceOpenStatus(id, eNotOpen);
    database.allowOpen(id);
    GxDbEntity* entity = nullptr;
    EXPECT_EQ(gxdbOpenObject(entity, id, GxDb::kForRead, false), eOk);
    entity->close();
}

// ---- Failures

// Returns the call number of the PlatformFailure that `f` throws, or 0 if `f` throws nothing.
template <class F>
long failureOf(F f) {
    try {
        f();
    } catch (const PlatformFailure& failure) {
        return failure.call;
    }
    return 0;
}

TEST_F(FailingPlatform, TheNthHighlightThrowsAndTheOthersDoNot) {
    const Entity entity;
    const GxDbFullSubentPath path = subentPath({1});
    throwFromHighlight(2);
    EXPECT_EQ(failureOf([&] { entity.highlight(path, true); }), 0);
    EXPECT_EQ(failureOf([&] { entity.unhighlight(path, true); }), 2);
    EXPECT_EQ(failureOf([&] { entity.highlight(path, true); }), 0);
}

TEST_F(FailingPlatform, TheNthPathCopyThrowsAndMakesNoPath) {
    const GxDbFullSubentPath path = subentPath({1, 2});
    throwFromPathCopy(2);
    const GxDbFullSubentPath first = path;
    EXPECT_EQ(failureOf([&] { const GxDbFullSubentPath second = path; }), 2);
    EXPECT_EQ(livePaths(), 2);
    EXPECT_EQ(failureOf([&] { const GxDbFullSubentPath third = path; }), 0);
}

TEST_F(FailingPlatform, TheNthPathAssignmentThrowsAndChangesNothing) {
    GxDbFullSubentPath path = subentPath({1, 2});
    const GxDbFullSubentPath other = subentPath({3});
    throwFromPathAssignment(1);
    EXPECT_EQ(failureOf([&] { path = other; }), 1);
    EXPECT_TRUE(path == subentPath({1, 2}));
    EXPECT_EQ(failureOf([&] { path = other; }), 0);
}

// ---- The highlight callback

TEST_F(HighlightCallback, SeesEveryCallWhileItLasts) {
    Entity entity;
    const GxDbFullSubentPath path = subentPath({1});
    std::vector<bool> directions;
    onHighlight([&](const HighlightCall& call) {
        EXPECT_EQ(&call.entity, &entity);
        EXPECT_EQ(&call.path, &path);
        EXPECT_TRUE(call.entityFlag);
        directions.push_back(call.on);
    });
    entity.highlight(path, true);
    entity.unhighlight(path, true);
    onHighlight({});
    entity.highlight(path, true);
    EXPECT_EQ(directions, (std::vector<bool>{true, false}));
}

TEST_F(HighlightCallback, MayEndItself) {
    const Entity entity;
    int calls = 0;
    onHighlight([&](const HighlightCall&) {
        onHighlight({});
        ++calls;
    });
    entity.highlight(subentPath({1}), true);
    entity.highlight(subentPath({1}), true);
    EXPECT_EQ(calls, 1);
}

TEST_F(HighlightCallback, WhatItThrowsLeavesTheCall) {
    const Entity entity;
    onHighlight([](const HighlightCall&) { throw 42; });
    EXPECT_THROW(entity.highlight(subentPath({1}), true), int);
}

// ---- The log

TEST_F(DatabaseLog, HasOpeningsAndClosings) {
    Database database;
    const GxDbObjectId id = database.addEntity();
    GxDbEntity* entity = nullptr;
    gxdbOpenObject(entity, id, GxDb::kForRead, true);
    entity->close();
    const auto events = databaseEvents();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].call, DatabaseCall::Open);
    EXPECT_EQ(events[0].id, id);
    EXPECT_EQ(events[0].object, entity);
    EXPECT_EQ(events[0].status, eOk);
    EXPECT_EQ(events[0].mode, GxDb::kForRead);
    EXPECT_TRUE(events[0].openErased);
    EXPECT_EQ(events[1].call, DatabaseCall::Close);
    EXPECT_EQ(events[1].id, id);
    EXPECT_EQ(events[1].object, entity);
    EXPECT_EQ(events[1].status, eOk);
}

TEST_F(DatabaseLog, HasFailedOpenings) {
    GxDbEntity* entity = nullptr;
    gxdbOpenObject(entity, id(9), GxDb::kForWrite, false);
    const auto opens = databaseEvents(DatabaseCall::Open);
    ASSERT_EQ(opens.size(), 1u);
    EXPECT_EQ(opens[0].id, id(9));
    EXPECT_EQ(opens[0].object, nullptr);
    EXPECT_EQ(opens[0].status, kInvalidId);
    EXPECT_EQ(opens[0].mode, GxDb::kForWrite);
    EXPECT_FALSE(opens[0].openErased);
}

TEST_F(DatabaseLog, HasDeletions) {
    const GxDbObject* address = nullptr;
    {
        const Entity entity;
        address = &entity;
    }
    const auto deletions = databaseEvents(DatabaseCall::Delete);
    ASSERT_EQ(deletions.size(), 1u);
    EXPECT_EQ(deletions[0].object, address);
    EXPECT_TRUE(deletions[0].id.isNull());
}

TEST_F(DatabaseLog, HasHighlightsWithTheContentsOfThePath) {
    Database database;
    const GxDbObjectId drawn = database.addEntity();
    GxDbFullSubentPath path = subentPath({1, 2}, 3, 4);
    database.entity(drawn)->highlight(path, true);
    path.subentId().index = 5;
    database.entity(drawn)->unhighlight(path, false);
    const auto events = databaseEvents();
    ASSERT_GE(events.size(), 2u);
    const auto& on = events[events.size() - 2];
    const auto& off = events[events.size() - 1];
    EXPECT_EQ(on.call, DatabaseCall::Highlight);
    EXPECT_EQ(on.id, drawn);
    EXPECT_EQ(on.object, database.object(drawn));
    EXPECT_EQ(on.path, &path);
    EXPECT_EQ(on.contents, contentsOf(subentPath({1, 2}, 3, 4)));
    EXPECT_TRUE(on.entityFlag);
    EXPECT_EQ(off.call, DatabaseCall::Unhighlight);
    EXPECT_EQ(off.contents, contentsOf(subentPath({1, 2}, 3, 5)));
    EXPECT_FALSE(off.entityFlag);
}

TEST_F(DatabaseLog, HasPathCopiesAssignmentsAndDestructions) {
    GxDbFullSubentPath source = subentPath({1, 2});
    const GxDbFullSubentPath* copied = nullptr;
    {
        GxDbFullSubentPath copy = source;
        source = copy;
        copied = &copy;
    }
    const auto events = databaseEvents();
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[0].call, DatabaseCall::PathCopy);
    EXPECT_EQ(events[0].path, copied);
    EXPECT_EQ(events[0].source, &source);
    EXPECT_EQ(events[0].contents, contentsOf(source));
    EXPECT_EQ(events[1].call, DatabaseCall::PathAssignment);
    EXPECT_EQ(events[1].path, &source);
    EXPECT_EQ(events[1].source, copied);
    EXPECT_EQ(events[2].call, DatabaseCall::PathDestruction);
    EXPECT_EQ(events[2].path, copied);
}

TEST_F(DatabaseLog, HasNameKeys) {
    std::array<long, 2> name{4711, 99};
    gxdbInitGdsNameKey(name.data());
    const auto calls = nameKeyCalls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].name, name.data());
    EXPECT_EQ(calls[0].word0, 4711);
    EXPECT_EQ(calls[0].word1, name[1]);
}

TEST_F(DatabaseLog, OneSequenceOrdersAllLogs) {
    installCrashRecorder();
    KvErrorStatus status(24, L"", 0);
    gxapGetCrashRecorder()->recordException(&status);
    const GxGeMatrix3d matrix;
    matrix.isEqualTo(matrix);
    GxDbEntity* entity = nullptr;
    gxdbOpenObject(entity, id(1), GxDb::kForRead, false);
    KvLocker locker;
    locker.lock();
    locker.unlock();
    std::array<long, 2> name{};
    gxdbInitGdsNameKey(name.data());
    const std::vector<std::uint64_t> sequence{
        recordedExceptions()[0].sequence, matrixComparisons()[0].sequence, databaseEvents()[0].sequence,
        lockCalls()[0].sequence,          lockCalls()[1].sequence,         nameKeyCalls()[0].sequence};
    EXPECT_EQ(sequence, (std::vector<std::uint64_t>{1, 2, 3, 4, 5, 6}));
}

TEST_F(DatabaseLog, IsSilentWhileLoggingIsOff) {
    setLogging(false);
    Database database;
    GxDbEntity* entity = nullptr;
    gxdbOpenObject(entity, database.addEntity(), GxDb::kForRead, false);
    entity->highlight(subentPath({1}), true);
    entity->close();
    std::array<long, 2> name{};
    gxdbInitGdsNameKey(name.data());
    EXPECT_TRUE(databaseEvents().empty());
    EXPECT_TRUE(nameKeyCalls().empty());
}

// ---- Reset

TEST_F(DatabaseReset, TurnsEverySwitchOff) {
    Database database;
    const GxDbObjectId drawn = database.addEntity();
    bool called = false;
    makeEqual(id(1), id(2));
    countIdComparisons(true);
    throwFromHighlight(1);
    throwFromPathCopy(1);
    throwFromPathAssignment(1);
    onHighlight([&](const HighlightCall&) { called = true; });
    database.forceOpenStatus(drawn, eNotOpen);
    resetAll();
    EXPECT_NE(id(1), id(2));
    EXPECT_EQ(idEqualityCalls(), 0);
    const GxDbFullSubentPath path = subentPath({1});
    GxDbFullSubentPath copy = path;
    copy = path;
    database.entity(drawn)->highlight(path, true);
    EXPECT_FALSE(called);
    GxDbEntity* entity = nullptr;
    EXPECT_EQ(gxdbOpenObject(entity, drawn, GxDb::kForRead, false), eOk);
    entity->close();
}

TEST_F(DatabaseReset, EmptiesTheLogsAndStartsNameKeysAgain) {
    std::array<long, 2> name{};
    gxdbInitGdsNameKey(name.data());
    { const Entity entity; }
    resetAll();
    EXPECT_TRUE(databaseEvents().empty());
    EXPECT_TRUE(nameKeyCalls().empty());
    gxdbInitGdsNameKey(name.data());
    EXPECT_EQ(name[1], 1);
}

TEST_F(DatabaseReset, KeepsWhatDatabasesHold) {
    Database database;
    const GxDbObjectId erased = database.addEntity("door");
    database.erase(erased);
    resetAll();
    EXPECT_TRUE(erased.isValid());
    EXPECT_TRUE(database.isErased(erased));
    EXPECT_EQ(database.findByName("door"), erased);
}

} // namespace
