#include "examples/assembly/Hall.h"

#include "examples/assembly/StepFile.h"
#include "platform/opencascade/OpenCascadeDatabase.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>
#include <vector>

namespace {

using kvopencascade::Database;
using kvopencascade::IdPath;

class Hall : public testing::Test {
protected:
    ~Hall() override { assembly::closeDocument(mDocument); }

    std::vector<IdPath> instances(const assembly::HallSize& size = {}) {
        assembly::buildHall(mDocument, size);
        return mDatabase.instances();
    }

    Handle(TDocStd_Document) mDocument = assembly::newDocument();
    Database mDatabase{mDocument};
};

TEST_F(Hall, HasMoreThan2000InstancesOf30Parts) {
    const std::vector<IdPath> all = instances();
    std::set<GxDbObjectId> parts;
    for (const IdPath& path : all)
        parts.insert(path.back());
    EXPECT_GT(all.size(), 2000u);
    EXPECT_EQ(parts.size(), 30u);
}

TEST_F(Hall, IsAtLeast5LevelsDeep) {
    std::size_t deepest = 0;
    for (const IdPath& path : instances())
        deepest = std::max(deepest, path.size() - 1);
    EXPECT_GE(deepest, 5u);
}

TEST_F(Hall, HasTheRacksThatAreAskedFor) {
    const std::size_t one = instances({1, 1, 1}).size();
    EXPECT_EQ(one, 15u + 34u + 4u + 4u); // rack, server, row and hall
}

} // namespace
