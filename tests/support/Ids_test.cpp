#include "tests/support/Ids.h"

#include "tests/support/KvTest.h"

#include <gtest/gtest.h>

namespace {

using namespace kvtest;

using Ids = KvTest;

TEST_F(Ids, AscendAndStartWithNull) {
    EXPECT_TRUE(id(0).isNull());
    EXPECT_TRUE(id(0) < id(1));
    EXPECT_TRUE(id(1) < id(2));
}

TEST_F(Ids, VectorsHoldNumbersAndIdsInOrder) {
    const KvVector<GxDbObjectId> vector = idVector({3, id(1), 2});
    ASSERT_EQ(vector.logicalLength(), 3);
    EXPECT_EQ(vector.at(0), id(3));
    EXPECT_EQ(vector.at(1), id(1));
    EXPECT_EQ(vector.at(2), id(2));
}

TEST_F(Ids, AnEmptyVectorSharesTheEmptyBlock) {
    const std::uint32_t before = emptyBlockCount();
    const KvVector<GxDbObjectId> vector = idVector();
    EXPECT_EQ(vector.logicalLength(), 0);
    EXPECT_EQ(emptyBlockCount(), before + 1);
}

TEST_F(Ids, PathsHoldIdsAndPart) {
    const GxDbFullSubentPath path = subentPath({1, 2}, 3, 4);
    ASSERT_EQ(path.objectIds().logicalLength(), 2);
    EXPECT_EQ(path.objectIds()[0], id(1));
    EXPECT_EQ(path.objectIds()[1], id(2));
    EXPECT_EQ(path.subentId().type, 3);
    EXPECT_EQ(path.subentId().index, 4);
    EXPECT_EQ(path.subentId().extra, nullptr);
}

TEST_F(Ids, TheEmptyBlockIsAwayForAWhile) {
    const std::uint32_t before = emptyBlockCount();
    {
        const WithoutEmptyBlock without;
        EXPECT_EQ(gpEmptyVectorData, nullptr);
        EXPECT_EQ(emptyBlockCount(), 0u);
    }
    EXPECT_EQ(emptyBlockCount(), before);
}

} // namespace
