// Tests drawing of entities that edit or destroy the drawn set while they are highlighted or opened. Other
// entities that edit are in GxapSelectHighlight_test.cpp.
#include "tests/selectcontext/support/DrawingTestSupport.h"
#include "tests/selectcontext/support/EditTestSupport.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using kvinmemory::DatabaseCall;
using kvinmemory::databaseEvents;
using kvinmemory::livePaths;
using kvinmemory::onHighlight;
using kvtest::addSegments;
using kvtest::edit;
using kvtest::invariants;
using kvtest::kNoId;
using kvtest::kPageSlots;
using kvtest::recordAt;
using kvtest::registrations;
using Parts = std::vector<std::int64_t>;

// Has a drawing, and a set of three of its entities. Their segments are the parts 1, 2 and 3, and 4.
class HostileEntity : public kvtest::EditTest {
protected:
    void SetUp() override {
        EditTest::SetUp();
        drawing.emplace(1024);
        set = std::make_unique<GxapSelectSet>();
        for (int i = 0; i < 3; ++i) {
            ids.push_back(drawing->addEntity());
            edit(*set).append(ids.back(), kNoId);
        }
        addSegments(*set, 0, {1});
        addSegments(*set, 1, {2, 3});
        addSegments(*set, 2, {4});
    }

    void TearDown() override {
        onHighlight(nullptr);
        set.reset();
        freeLeftRecords();
        EXPECT_EQ(livePaths(), 0);
        EXPECT_EQ(kvinmemory::openObjects(), 0);
        std::vector<GxDbObjectId>().swap(ids);
        drawing.reset();
        EditTest::TearDown();
    }

    // Runs `work` once, when the next part is highlighted.
    static void onFirstHighlight(std::function<void()> work) {
        auto pending = std::make_shared<bool>(true);
        onHighlight([pending, work = std::move(work)](const kvinmemory::HighlightCall&) {
            if (std::exchange(*pending, false))
                work();
        });
    }

    // Replaces the set by one of an entity that does `work` when it is opened. Its segments are 8 and 9.
    void openWith(std::function<void()> work) {
        set = std::make_unique<GxapSelectSet>();
        const GxDbObjectId id = drawing->addNonResident([work = std::move(work)] {
            work();
            return std::make_unique<kvinmemory::Entity>();
        });
        edit(*set).append(id, kNoId);
        addSegments(*set, 0, {8, 9});
    }

    // Removes the item at `position`, and deletes its record.
    void removeAndDelete(std::size_t position) const {
        const std::unique_ptr<selected_entity> removed(recordAt(*set, position));
        edit(*set).removeAt(static_cast<int>(position));
    }

    // Returns the parts that were highlighted so far.
    static Parts drawn() {
        Parts parts;
        for (const kvinmemory::DatabaseEvent& event : databaseEvents(DatabaseCall::Highlight))
            parts.push_back(event.contents.part.index);
        return parts;
    }

    std::optional<kvinmemory::Database> drawing;
    std::vector<GxDbObjectId> ids;
    std::unique_ptr<GxapSelectSet> set;
};

TEST_F(HostileEntity, ThatDestroysTheSetEndsTheDrawingWithTheItem) {
    edit(*set).removeAt(0);
    onFirstHighlight([&] { set.reset(); });
    set->draw(true, true);
    EXPECT_EQ(drawn(), (Parts{2, 3}));
}

TEST_F(HostileEntity, ThatDestroysTheSetWhenItIsOpenedEndsTheDrawingWithTheItem) {
    openWith([&] { set.reset(); });
    set->draw(true, true);
    EXPECT_EQ(drawn(), (Parts{8, 9}));
}

TEST_F(HostileEntity, ThatDestroysTheSetAndThrows) {
    struct Refusal {};
    onFirstHighlight([&] {
        set.reset();
        throw Refusal();
    });
    EXPECT_THROW(set->draw(true, true), Refusal);
    EXPECT_EQ(drawn(), Parts{1});
}

TEST_F(HostileEntity, ThatDeletesItsRecordIsDrawnToTheEnd) {
    removeAndDelete(2);
    removeAndDelete(0);
    onFirstHighlight([&] { removeAndDelete(0); });
    set->draw(true, true);
    EXPECT_EQ(drawn(), (Parts{2, 3}));
    EXPECT_EQ(kvtest::count(*set), 0u);
}

TEST_F(HostileEntity, ThatDeletesItsRecordWhenItIsOpenedIsDrawnToTheEnd) {
    openWith([&] { removeAndDelete(0); });
    set->draw(true, true);
    EXPECT_EQ(drawn(), (Parts{8, 9}));
    EXPECT_EQ(kvtest::count(*set), 0u);
}

TEST_F(HostileEntity, ThatRemovesTheNextItemIsNotFollowedByIt) {
    onFirstHighlight([&] { removeAndDelete(1); });
    set->draw(true, true);
    EXPECT_EQ(drawn(), (Parts{1, 4}));
}

TEST_F(HostileEntity, ThatRemovesThePageOfItsItemEndsTheDrawing) {
    kvtest::appendIds(*set, 1, kPageSlots);
    addSegments(*set, kPageSlots + 1, {5});
    onFirstHighlight([&] {
        edit(*set).remove(ids[0]);
        edit(*set).remove(ids[1]);
        edit(*set).remove(ids[2]);
        kvtest::takeOutIds(*set, 1, kPageSlots - 3);
    });
    set->draw(true, true);
    EXPECT_EQ(drawn(), Parts{1});
    EXPECT_EQ(kvtest::pages(*set), 1u);
}

TEST_F(HostileEntity, ThatSelectsAnotherIsFollowedByIt) {
    const GxDbObjectId added = drawing->addEntity();
    onFirstHighlight([&] {
        edit(*set).append(added, kNoId);
        addSegments(*set, 3, {5, 6});
    });
    set->draw(true, true);
    EXPECT_EQ(drawn(), (Parts{1, 2, 3, 4, 5, 6}));
}

TEST_F(HostileEntity, ThatMakesTheSetUniqueIsNotFollowedByWhatWent) {
    edit(*set).setUnique(false);
    edit(*set).append(ids[0], kNoId);
    addSegments(*set, 3, {5});
    onFirstHighlight([&] { edit(*set).setUnique(true); });
    set->draw(true, true);
    EXPECT_EQ(drawn(), (Parts{1, 2, 3, 4}));
}

TEST_F(HostileEntity, ThatWritesIntoACopyChangesNothing) {
    GxapSelectSet copy(*set);
    onFirstHighlight([&] {
        edit(copy).iteratorAt(1).setHighlightSegment(nullptr);
        edit(copy).removeAt(2);
    });
    set->draw(true, true);
    EXPECT_EQ(drawn(), (Parts{1, 2, 3, 4}));
}

TEST_F(HostileEntity, ThatTransfersTheSetIntoItselfIsNotFollowedByCopies) {
    class Nothing : public IGxapSSetEntityExcluder {
        bool isExcluded(GxDbObjectId) override { return false; }
    } nothing;
    edit(*set).setUnique(false);
    onFirstHighlight([&] { set->transfer(*set, &nothing, nullptr); });
    set->draw(true, true);
    EXPECT_EQ(drawn(), (Parts{1, 2, 3, 4})) << "copies have no segments";
    EXPECT_EQ(kvtest::count(*set), 6u);
}

// --- random edits

// Edits a set of the drawing's entities at random, and gives its items segments.
class RandomEntities : public HostileEntity, public ::testing::WithParamInterface<unsigned> {
protected:
    void SetUp() override {
        HostileEntity::SetUp();
        mRandom.seed(GetParam());
        mCopy = std::make_unique<GxapSelectSet>();
        for (int i = 0; i < 20; ++i)
            ids.push_back(drawing->addEntity());
        ids.push_back(drawing->addNonResident([this] {
            change();
            return std::make_unique<kvinmemory::Entity>();
        }));
    }

    void TearDown() override {
        onHighlight(nullptr);
        mCopy.reset();
        HostileEntity::TearDown();
    }

    void change() {
        if (mEdits == 0)
            return;
        --mEdits;
        GxapSSetWriteAccessor& writer = edit(*set);
        const GxDbObjectId id = ids[draw(ids.size())];
        switch (draw(12)) {
        case 0:
            *mCopy = *set;
            break;
        case 1:
            *set = *mCopy;
            break;
        case 2:
            writer.clear();
            break;
        case 3:
            writer.remove(id);
            break;
        case 4:
            writer.findItr(id).setHighlightSegment(nullptr);
            break;
        case 5:
            writer.merge(set.get(), mCopy.get());
            break;
        case 6:
            set->draw(false, draw(2) == 0);
            break;
        default: {
            writer.append(id, kNoId);
            const GxDbFullSubentPath path = kvtest::subentPath({id}, 1, static_cast<std::int64_t>(mEdits));
            writer.findItr(id).setHighlightSegment(&path);
        }
        }
    }

    void allow(int edits) { mEdits = edits; }

private:
    std::size_t draw(std::size_t below) { return mRandom() % below; }

    std::mt19937 mRandom;
    std::unique_ptr<GxapSelectSet> mCopy;
    int mEdits = 0;
};

TEST_P(RandomEntities, LeaveTheSetWhole) {
    kvinmemory::setLogging(false);
    onHighlight([this](const kvinmemory::HighlightCall&) { change(); });
    for (int round = 0; round < 100; ++round) {
        allow(30);
        change();
        set->draw(true, true);
        ASSERT_TRUE(invariants(*set)) << "in round " << round;
        ASSERT_EQ(registrations(*set), 0) << "in round " << round;
        ASSERT_EQ(kvinmemory::openObjects(), 0) << "in round " << round;
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomEntities, ::testing::Range(1u, 9u));

} // namespace
