// Tests transfer() with excluders that edit or destroy the sets of the transfer. Other excluders that edit
// are in GxapSelectSetAlgebra_transfer_test.cpp.
#include "tests/selectcontext/support/EditTestSupport.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <random>
#include <utility>
#include <vector>

namespace {

using kvtest::count;
using kvtest::edit;
using kvtest::id;
using kvtest::invariants;
using kvtest::items;
using kvtest::Items;
using kvtest::kNoId;
using kvtest::kPageSlots;
using kvtest::numberOf;
using kvtest::plainItems;
using kvtest::record;
using kvtest::registrations;
using kvtest::SetOf;
using kvtest::shareData;
using kvtest::Unique;

using Numbers = std::vector<unsigned long>;

constexpr const wchar_t* kUnreadable = L"Error access KvTrucker";

// Excludes nothing. Does `work` when it is asked about an id, and passes the id to it. `asked` has the ids.
class BusyExcluder : public IGxapSSetEntityExcluder {
public:
    explicit BusyExcluder(std::function<void(unsigned long)> work) : mWork(std::move(work)) {}

    bool isExcluded(GxDbObjectId mainEntId) override {
        asked.push_back(numberOf(mainEntId));
        mWork(asked.back());
        return false;
    }

    Numbers asked;

private:
    std::function<void(unsigned long)> mWork;
};

// Does `work` when it is asked about id(1).
BusyExcluder atFirst(std::function<void()> work) {
    return BusyExcluder([work = std::move(work)](unsigned long n) {
        if (n == 1)
            work();
    });
}

class HostileExcluder : public kvtest::EditTest {};

TEST_F(HostileExcluder, ThatDestroysTheSetEndsTheTransfer) {
    auto source = std::make_unique<GxapSelectSet>();
    kvtest::fill(*source, plainItems(1, 3));
    GxapSelectSet target;
    BusyExcluder excluder = atFirst([&] { source.reset(); });
    source->transfer(target, &excluder, nullptr);
    EXPECT_EQ(excluder.asked, Numbers{1});
    EXPECT_EQ(count(target), 0u);
}

TEST_F(HostileExcluder, ThatDestroysOneOfTwoHandlesEndsTheTransfer) {
    auto source = std::make_unique<GxapSelectSet>();
    kvtest::fill(*source, plainItems(1, 3));
    const GxapSelectSet other(*source);
    GxapSelectSet target;
    BusyExcluder excluder = atFirst([&] { source.reset(); });
    source->transfer(target, &excluder, nullptr);
    EXPECT_EQ(excluder.asked, Numbers{1});
    EXPECT_EQ(items(other), plainItems(1, 3));
}

TEST_F(HostileExcluder, ThatDeletesTheRecordToo) {
    SetOf source{{1}, {2}};
    GxapSelectSet target;
    BusyExcluder excluder = atFirst([&] {
        const std::unique_ptr<selected_entity> removed(record(source.set, 0));
        edit(source.set).remove(id(1));
    });
    kvtest::expectMessage([&] { source.set.transfer(target, &excluder, nullptr); }, kUnreadable);
    EXPECT_EQ(count(target), 0u);
    EXPECT_EQ(registrations(source.set), 0);
    EXPECT_TRUE(invariants(source.set));
}

TEST_F(HostileExcluder, ThatRemovesThePageOfTheItem) {
    SetOf source(plainItems(1, kPageSlots + 2));
    GxapSelectSet target;
    BusyExcluder excluder = atFirst([&] { kvtest::takeOutIds(source.set, 1, kPageSlots); });
    kvtest::expectMessage([&] { source.set.transfer(target, &excluder, nullptr); }, kUnreadable);
    EXPECT_EQ(items(source.set), plainItems(kPageSlots + 1, 2));
}

TEST_F(HostileExcluder, ThatRemovesTheItemsToComeIsNotAskedAboutThem) {
    SetOf source(plainItems(1, 2 * kPageSlots));
    GxapSelectSet target;
    BusyExcluder excluder = atFirst([&] { kvtest::takeOutIds(source.set, 2, 2 * kPageSlots - 2); });
    source.set.transfer(target, &excluder, nullptr);
    EXPECT_EQ(excluder.asked, (Numbers{1, 2 * kPageSlots}));
    EXPECT_EQ(items(target), items(source.set));
}

TEST_F(HostileExcluder, ThatMakesTheSetUniqueIsNotAskedAboutWhatWent) {
    SetOf source({{1}, {2}, {1}, {2, 5}, {3}}, Unique::kOff);
    GxapSelectSet target;
    BusyExcluder excluder = atFirst([&] { edit(source.set).setUnique(true); });
    source.set.transfer(target, &excluder, nullptr);
    EXPECT_EQ(excluder.asked, (Numbers{1, 2, 3}));
    EXPECT_EQ(items(target), plainItems(1, 3));
}

TEST_F(HostileExcluder, ThatUpdatesTheIndexChangesNothing) {
    SetOf source(plainItems(1, 5));
    SetOf target{{8}};
    BusyExcluder excluder([&](unsigned long) {
        edit(source.set).updateDataMap();
        edit(target.set).updateDataMap();
    });
    source.set.transfer(target.set, &excluder, nullptr);
    EXPECT_EQ(items(target.set), (Items{{8}, {1}, {2}, {3}, {4}, {5}}));
}

TEST_F(HostileExcluder, ThatMakesTheTargetShareTheSetGetsWhatFollowsRefused) {
    SetOf source(plainItems(1, 3));
    SetOf target{{8}};
    BusyExcluder excluder = atFirst([&] { target.set = source.set; });
    source.set.transfer(target.set, &excluder, nullptr);
    EXPECT_TRUE(shareData(target.set, source.set));
    EXPECT_EQ(excluder.asked, (Numbers{1, 2, 3}));
}

TEST_F(HostileExcluder, ThatReleasesTheTargetGetsWhatFollows) {
    const SetOf source(plainItems(1, 3));
    SetOf target{{8}};
    BusyExcluder excluder = atFirst([&] { target.set.releaseData(); });
    source.set.transfer(target.set, &excluder, nullptr);
    EXPECT_EQ(items(target.set), plainItems(1, 3));
}

TEST_F(HostileExcluder, ThatTransfersAgainNestsTheTransfers) {
    const SetOf source(plainItems(1, 3));
    GxapSelectSet target;
    BusyExcluder inner([](unsigned long) {});
    BusyExcluder excluder = atFirst([&] { source.set.transfer(target, &inner, nullptr); });
    source.set.transfer(target, &excluder, nullptr);
    EXPECT_EQ(excluder.asked, inner.asked);
    EXPECT_EQ(items(target), plainItems(1, 3));
    EXPECT_EQ(registrations(source.set), 0);
}

TEST_F(HostileExcluder, ThatEditsAndThrowsLeavesTheSetsWhole) {
    struct Refusal {};
    SetOf source(plainItems(1, 3)), target{{8}};
    BusyExcluder excluder([&](unsigned long n) {
        if (n != 2)
            return;
        edit(source.set).clear();
        edit(target.set).remove(id(1));
        throw Refusal();
    });
    EXPECT_THROW(source.set.transfer(target.set, &excluder, nullptr), Refusal);
    EXPECT_EQ(items(target.set), plainItems(8, 1));
    EXPECT_EQ(count(source.set), 0u);
    EXPECT_EQ(registrations(source.set), 0);
    EXPECT_TRUE(invariants(source.set) && invariants(target.set));
}

// --- random edits

// Edits the sets of the transfer at random, whenever it is asked. Excludes ids at random.
class RandomExcluder : public IGxapSSetEntityExcluder {
public:
    RandomExcluder(std::array<GxapSelectSet, 3>& sets, unsigned seed) : mSets(sets), mRandom(seed) {}

    bool isExcluded(GxDbObjectId) override {
        if (mEdits > 0 && draw(3) == 0) {
            --mEdits;
            change(mSets[draw(mSets.size())]);
        }
        return draw(2) == 0;
    }

private:
    unsigned long draw(std::size_t below) { return mRandom() % below; }

    void change(GxapSelectSet& set) {
        GxapSSetWriteAccessor& writer = edit(set);
        GxapSelectSet& other = mSets[draw(mSets.size())];
        switch (draw(12)) {
        case 0:
            writer.clear();
            break;
        case 1:
            set = other;
            break;
        case 2:
            set.releaseData();
            set.createData();
            break;
        case 3:
            writer.merge(&set, &other);
            break;
        case 4:
            writer.minus(&set, &other);
            break;
        case 5:
            writer.setUnique(draw(2) == 0);
            break;
        case 6:
            writer.updateDataMap();
            break;
        case 7:
            writer.removeAt(static_cast<int>(draw(100)));
            break;
        case 8:
        case 9:
            for (unsigned long n = draw(100); n-- > 0;)
                writer.remove(id(1 + draw(200)));
            break;
        default:
            for (unsigned long n = draw(100); n-- > 0;)
                writer.select(id(1 + draw(200)), id(draw(3)), -1, nullptr, nullptr);
        }
    }

    std::array<GxapSelectSet, 3>& mSets;
    std::mt19937 mRandom;
    int mEdits = 50; // then the transfer ends, since nothing appends to its set any more
};

class RandomExcluders : public HostileExcluder, public ::testing::WithParamInterface<unsigned> {};

TEST_P(RandomExcluders, LeaveEverySetWhole) {
    std::array<GxapSelectSet, 3> sets;
    std::mt19937 random(GetParam());
    for (int round = 0; round < 60; ++round) {
        GxapSelectSet& source = sets[random() % 3];
        GxapSelectSet& target = sets[random() % 3];
        edit(source).setUnique(true);
        edit(target).setUnique(true);
        kvtest::appendIds(source, 1, 150);
        RandomExcluder excluder(sets, static_cast<unsigned>(random()));
        try {
            source.transfer(target, &excluder, &sets[random() % 3]);
        } catch (KvExceptionWithMsg* unreadable) {
            EXPECT_STREQ(unreadable->message(), kUnreadable);
            delete unreadable;
        }
        for (GxapSelectSet& set : sets) {
            ASSERT_TRUE(invariants(set)) << "in round " << round;
            ASSERT_EQ(registrations(set), 0) << "in round " << round;
            if (count(set) > 3000)
                edit(set).clear();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomExcluders, ::testing::Range(1u, 9u));

} // namespace
