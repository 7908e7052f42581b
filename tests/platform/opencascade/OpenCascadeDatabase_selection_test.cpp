// Selection sets on the kernel's document.
#include "platform/opencascade/OpenCascadeDatabase.h"
#include "selectcontext/KvSelectContext.h"
#include "tests/platform/opencascade/Rack.h"

#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <random>

namespace {

using namespace kvopencascade;
using kvtest::Rack;

GxapSSetWriteAccessor& editing(GxapSelectSet& set) {
    return static_cast<GxapSSetWriteAccessor&>(set);
}

int countOf(const GxapSelectSet& set) {
    return static_cast<int>(set.sharedData->entityCount);
}

KvVector<GxDbObjectId> vectorOf(const IdPath& ids) {
    KvVector<GxDbObjectId> vector;
    vector.setLogicalLength(static_cast<int>(ids.size()));
    for (std::size_t i = 0; i < ids.size(); ++i)
        vector.at(static_cast<int>(i)) = ids[i];
    return vector;
}

GxapSelectedEntInfo* infoOf(const gp_Trsf& placement) {
    auto* const info = new (_kvMalloc(sizeof(GxapSelectedEntInfo))) GxapSelectedEntInfo;
    info->setCompoundTransformWithBTROffset(matrixOf(placement));
    return info;
}

class Selection : public testing::Test {
protected:
    void SetUp() override { mInstances = mDatabase.instances(); }

    // Selects a face of an instance, as a pick does.
    void pick(GxapSelectSet& set, std::size_t instance, long face) {
        const IdPath& ids = mInstances[instance];
        Place place;
        ASSERT_TRUE(Database::locate(subentPathOf(ids), place));
        const KvVector<GxDbObjectId> path = vectorOf(ids);
        editing(set).select(ids.front(), ids.back(), face, infoOf(place.placement), &path);
    }

    // Selects a face, and makes it a segment to highlight.
    void pickToHighlight(GxapSelectSet& set, std::size_t instance, long face) {
        pick(set, instance, face);
        GxapSelectSet::Iterator last = editing(set).iteratorAt(countOf(set) - 1);
        const GxDbFullSubentPath path = subentPathOf(mInstances[instance], {kFace, face, nullptr});
        last.setHighlightSegment(&path);
    }

    Rack mRack;
    Database mDatabase{mRack.document};
    std::vector<IdPath> mInstances;
};

TEST_F(Selection, InstancesOfOnePartAreDifferentItems) {
    GxapSelectSet set;
    for (std::size_t i = 0; i < 4; ++i)
        pick(set, i, 1);
    EXPECT_EQ(countOf(set), 4);
    pick(set, 2, 1);
    EXPECT_EQ(countOf(set), 4);
    pick(set, 2, 2);
    EXPECT_EQ(countOf(set), 5);
}

TEST_F(Selection, AnItemKeepsThePathAndThePlacement) {
    GxapSelectSet set;
    pick(set, 3, 5);
    const auto it = set.begin();
    EXPECT_EQ(it.nestedEntFullPath().logicalLength(), 3);
    GxGeMatrix3d matrix;
    ASSERT_TRUE(it.selectedEntityInfo()->getCompoundTransformWithBTROffset(matrix));
    EXPECT_EQ(matrix.entry[0][3], Rack::kRightShelf);
    EXPECT_EQ(matrix.entry[1][3], Rack::kBackBox);
    KvVector<GxDbObjectId> ids;
    EXPECT_TRUE(it.getFilteredNestedFullPath(ids));
    EXPECT_EQ(ids.logicalLength(), 3);
}

TEST_F(Selection, AnEqualIdOfAnotherDatabaseFindsTheItem) {
    GxapSelectSet set;
    pick(set, 4, 1);
    Database other(mRack.document);
    EXPECT_EQ(set.find(other.idOf(mRack.lamp)), 0);
}

TEST_F(Selection, TwoSetsHighlightTheSameFace) {
    GxapSelectSet one;
    GxapSelectSet another;
    for (GxapSelectSet* set : {&one, &another}) {
        pickToHighlight(*set, 1, 2);
        set->draw(false, true);
    }
    EXPECT_EQ(mDatabase.highlights(), 1u);
    one.draw(false, false);
    EXPECT_EQ(mDatabase.highlights(), 1u);
    another.draw(false, false);
    EXPECT_EQ(mDatabase.highlights(), 0u);
}

TEST_F(Selection, AForgottenItemIsNotDrawn) {
    GxapSelectSet set;
    pickToHighlight(set, 4, 1);
    mRack.lamp.ForgetAllAttributes();
    set.draw(false, true);
    EXPECT_EQ(mDatabase.highlights(), 0u);
    const std::unique_ptr<selected_entity> removed(set.getFirst());
    EXPECT_TRUE(editing(set).remove(mInstances[4].front()));
}

TEST_F(Selection, ManyEditsLeaveNothingOpen) {
    GxapSelectSet set;
    std::mt19937 random(1);
    for (int i = 0; i < 2000; ++i) {
        const std::size_t instance = random() % mInstances.size();
        const long face = 1 + static_cast<long>(random() % 6);
        const int before = countOf(set);
        pickToHighlight(set, instance, face); // a refused item only gets the last one a segment more
        EXPECT_GE(countOf(set), before);
        set.draw(false, true);
        set.draw(false, false);
        if (i % 20 == 19) {
            const GxapSelectSet copy(set);
            editing(set).clear();
            EXPECT_GT(countOf(copy), 0);
        }
    }
    EXPECT_EQ(mDatabase.highlights(), 0u);
    for (const IdPath& ids : mInstances) {
        for (const GxDbObjectId& id : ids)
            EXPECT_EQ(Database::openCount(id), 0);
    }
}

} // namespace
