#include "examples/picker/Highlighter.h"

#include "aids/Reclaim.h"
#include "tests/examples/picker/Svg.h"

#include <gtest/gtest.h>

#include <memory>

using namespace picker;

namespace {

class Highlighters : public testing::Test {
protected:
    const Drawing drawing{kvtest::sceneOf("<line x2='1'/><line x2='2'/>")};
    const GxDbObjectId first = drawing.model().contents()[0].id;
    const GxDbObjectId second = drawing.model().contents()[1].id;
    Highlighter highlighter;

    // Makes a set with one item, which highlights its entity.
    static GxapSelectSet setOf(GxDbObjectId id) {
        GxapSelectSet set;
        auto& edit = static_cast<GxapSSetWriteAccessor&>(set);
        edit.select(id, GxDbObjectId::kNull, -1, nullptr, nullptr);
        GxapSelectSet::Iterator it = edit.begin();
        const GxDbFullSubentPath path = partOf({id}, kWholePart, -1);
        edit.setHighlightSegment(it, &path);
        return set;
    }

    std::size_t told(GxDbObjectId id) const {
        return dynamic_cast<const kvinmemory::Entity*>(drawing.database().entity(id))->highlights().size();
    }
};

} // namespace

TEST_F(Highlighters, TellsEntitiesWhatItemsHighlight) {
    const GxapSelectSet set = setOf(first);
    highlighter.show({&set});
    EXPECT_EQ(told(first), 1u);
    EXPECT_EQ(told(second), 0u);
}

TEST_F(Highlighters, TellsNothingTwice) {
    const GxapSelectSet set = setOf(first);
    const GxapSelectSet other = setOf(first);
    const GxapSelectSet shared = set;
    highlighter.show({&set, &other, &shared});
    highlighter.show({&set});
    EXPECT_EQ(told(first), 1u);
}

TEST_F(Highlighters, EndsWhatNoItemHighlightsAnyMore) {
    const GxapSelectSet set = setOf(first);
    const GxapSelectSet other = setOf(second);
    highlighter.show({&set, &other});
    highlighter.show({&other});
    EXPECT_EQ(told(first), 0u);
    EXPECT_EQ(told(second), 1u);
}

TEST_F(Highlighters, EndsWhatDestroyedRecordsHighlighted) {
    GxapSelectSet set = setOf(first);
    highlighter.show({&set});
    kv::take(set, first);
    highlighter.show({&set});
    EXPECT_EQ(told(first), 0u);
}

TEST_F(Highlighters, ForgetsWithoutTelling) {
    const GxapSelectSet set = setOf(first);
    highlighter.show({&set});
    highlighter.forget();
    highlighter.show({});
    EXPECT_EQ(told(first), 1u);
}
