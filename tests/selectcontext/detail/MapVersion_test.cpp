#include "selectcontext/detail/MapVersion.h"

#include "tests/support/Ids.h"
#include "tests/support/KvTest.h"

#include <gtest/gtest.h>

#include <iterator>
#include <memory>
#include <utility>

namespace {

using kvdetail::MapVersion;
using kvtest::id;
using DataMap = MapVersion::DataMap;

std::unique_ptr<DataMap> makeMap() {
    auto* const pool = new kvdetail::NodePool;
    auto map = std::make_unique<DataMap>(DataMap::allocator_type(pool));
    pool->release();
    return map;
}

std::unique_ptr<DataMap> makeFilledMap() {
    auto map = makeMap();
    for (unsigned long n = 1; n <= 20; ++n)
        map->emplace(id(n), n);
    return map;
}

// Has a map of id(1) to id(20), and a MapVersion that follows the map.
class MapVersionTest : public kvtest::KvTest {
protected:
    void SetUp() override {
        KvTest::SetUp();
        expectNothingLeft();
        map = makeFilledMap();
        version = std::make_unique<MapVersion>();
        version->follow(*map);
    }

    void TearDown() override {
        version.reset();
        map.reset();
        KvTest::TearDown();
    }

    bool isCurrent() const { return version->isCurrent(*map); }

    std::unique_ptr<DataMap> map;
    std::unique_ptr<MapVersion> version;
};

TEST_F(MapVersionTest, IsCurrentWhileTheMapIsReadOnly) {
    EXPECT_TRUE(isCurrent());
    EXPECT_EQ(map->count(id(7)), 1u);
    EXPECT_TRUE(isCurrent());
}

TEST_F(MapVersionTest, IsCurrentForNoMapAtFirst) {
    const MapVersion fresh;
    EXPECT_FALSE(fresh.isCurrent(*map));
    EXPECT_FALSE(fresh.isCurrent(DataMap()));
}

TEST_F(MapVersionTest, IsCurrentForAnEmptyMapThatItFollows) {
    const auto empty = makeMap();
    version->follow(*empty);
    EXPECT_TRUE(version->isCurrent(*empty));
    empty->emplace(id(1), 1);
    EXPECT_FALSE(version->isCurrent(*empty));
}

TEST_F(MapVersionTest, IsBehindOnceAnEntryCame) {
    map->emplace(id(21), 21);
    EXPECT_FALSE(isCurrent());
}

TEST_F(MapVersionTest, IsBehindOnceAnEntryWent) {
    map->erase(id(7));
    EXPECT_FALSE(isCurrent());
}

TEST_F(MapVersionTest, IsBehindOnceAnEntryWentAndCameBack) {
    map->erase(id(7));
    map->emplace(id(7), 7);
    EXPECT_FALSE(isCurrent());
}

TEST_F(MapVersionTest, IsBehindOnceANodeWasTakenOutAndPutBack) {
    auto node = map->extract(map->find(id(7)));
    EXPECT_FALSE(isCurrent());
    map->insert(std::move(node));
    EXPECT_FALSE(isCurrent());
}

TEST_F(MapVersionTest, IsBehindOnceTheMapWasAssigned) {
    const DataMap copy(*map);
    *map = copy;
    EXPECT_FALSE(isCurrent());
}

TEST_F(MapVersionTest, IsBehindOnceTheMapWasMovedFrom) {
    const DataMap taken(std::move(*map));
    map->clear();
    EXPECT_FALSE(isCurrent());
}

TEST_F(MapVersionTest, IsBehindForTheEntriesOfAnotherMap) {
    const auto other = makeFilledMap();
    EXPECT_FALSE(version->isCurrent(*other));
    map->swap(*other);
    EXPECT_FALSE(isCurrent());
    EXPECT_TRUE(version->isCurrent(*other)) << "it has the entries now";
}

TEST_F(MapVersionTest, IsBehindForACopy) {
    const DataMap copy(*map);
    EXPECT_FALSE(version->isCurrent(copy));
}

TEST_F(MapVersionTest, CatchesUpWhenItFollowsAgain) {
    map->emplace(id(21), 21);
    version->follow(*map);
    EXPECT_TRUE(isCurrent());
    map->erase(id(21));
    EXPECT_FALSE(isCurrent());
}

TEST_F(MapVersionTest, FollowsAnotherMapInstead) {
    const auto other = makeFilledMap();
    version->follow(*other);
    EXPECT_TRUE(version->isCurrent(*other));
    EXPECT_FALSE(isCurrent());
}

// Each new map is filled like the first one, and may have the same address. The version must still tell them
// apart.
TEST_F(MapVersionTest, IsBehindForAMapThatWasMadeAfterTheEndOfTheFirst) {
    for (int i = 0; i < 20; ++i) {
        map.reset();
        map = makeFilledMap();
        ASSERT_FALSE(isCurrent()) << i;
    }
}

TEST_F(MapVersionTest, CanFollowAMapWithAPoolOfItsOwn) {
    EXPECT_TRUE(MapVersion::canFollow(*map));
    EXPECT_TRUE(MapVersion::canFollow(*makeMap()));
}

TEST_F(MapVersionTest, CannotFollowAMapWithoutAPool) {
    DataMap plain;
    EXPECT_FALSE(MapVersion::canFollow(plain));
    plain.emplace(id(1), 1);
    EXPECT_FALSE(MapVersion::canFollow(plain));
}

TEST_F(MapVersionTest, CannotFollowAMapThatSharesItsPool) {
    DataMap other(map->get_allocator());
    EXPECT_TRUE(MapVersion::canFollow(*map));
    other.emplace(id(50), 50);
    EXPECT_FALSE(MapVersion::canFollow(*map));
    EXPECT_FALSE(MapVersion::canFollow(other));
}

TEST_F(MapVersionTest, FollowingAMapWithoutAPoolIsNeverCurrent) {
    const DataMap plain;
    MapVersion ofPlain;
    ofPlain.follow(plain);
    EXPECT_FALSE(ofPlain.isCurrent(plain));
}

} // namespace
