#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/platform/conformance/SeamConformance.h"
#include "tests/support/KvTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>

namespace {

using kvinmemory::Database;

using InMemoryConformance = kvtest::KvTest;

kvconformance::Subject subjectOf(Database& database) {
    kvconformance::Subject subject;
    for (int i = 0; i < 5; ++i)
        subject.entities.push_back(database.addEntity());
    subject.entities.push_back(database.addNonResident());
    subject.erased = {database.addEntity(), database.addEntity()};
    for (const GxDbObjectId& id : subject.erased)
        database.erase(id);
    subject.others.push_back(database.add(std::make_unique<kvinmemory::NonEntity>()));
    subject.invalid.push_back(database.addInvalid());
    subject.twins.emplace_back(subject.entities[0], database.addEntity());
    kvinmemory::makeEqual(subject.twins[0].first, subject.twins[0].second);
    subject.openCount = [&database](GxDbObjectId id) { return database.openCount(id); };
    return subject;
}

TEST_F(InMemoryConformance, EveryPromiseHolds) {
    Database database;
    const kvconformance::Report report = kvconformance::check(subjectOf(database));
    EXPECT_THAT(report.broken, testing::IsEmpty());
    EXPECT_THAT(report.unchecked, testing::IsEmpty());
}

} // namespace
