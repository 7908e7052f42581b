#include "aids/Watched.h"

#include "aids/Reclaim.h"
#include "tests/aids/AidsTest.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using kv::Change;
using kv::Watched;
using kvtest::id;
using kvtest::kNoId;

using Numbers = std::vector<unsigned long>;

class Watching : public kvtest::EditTest {
protected:
    void TearDown() override {
        std::vector<Told>().swap(told);
        freeLeftRecords();
        kvtest::EditTest::TearDown();
    }

    // What the listener was told.
    struct Told {
        Numbers came;
        Numbers went;
    };

    static Numbers numbersOf(const std::vector<kv::ItemKeys>& keys) {
        Numbers numbers;
        for (const kv::ItemKeys& each : keys)
            numbers.push_back(kvtest::numberOf(each.mainEntId));
        return numbers;
    }

    Watched::Listener listener() {
        return [this](const Change& change) {
            told.push_back({numbersOf(change.came), numbersOf(change.went)});
        };
    }

    void expectTold(std::size_t calls, const Numbers& came, const Numbers& went) const {
        ASSERT_EQ(told.size(), calls);
        EXPECT_EQ(told.back().came, came);
        EXPECT_EQ(told.back().went, went);
    }

    std::vector<Told> told;
};

TEST_F(Watching, TellsWhatCameByOneCall) {
    GxapSelectSet set;
    kvtest::appendIds(set, 1, 2);
    Watched watched(set, listener());
    watched.edit([](GxapSSetWriteAccessor& accessor) { kvtest::appendIds(accessor, 2, 4); });
    expectTold(1, {3, 4, 5}, {});
    EXPECT_EQ(&watched.set(), &set);
}

TEST_F(Watching, TellsWhatWentByOneCall) {
    kvtest::SetOf s(kvtest::plainItems(1, 5));
    Watched watched(s.set, listener());
    watched.edit([](GxapSSetWriteAccessor& accessor) {
        accessor.remove(id(4));
        kv::take(accessor, id(2)); // its record is destroyed at once
        accessor.append(id(9), kNoId);
    });
    expectTold(1, {9}, {2, 4});
}

TEST_F(Watching, TellsOfAClearedSet) {
    GxapSelectSet set;
    kvtest::appendIds(set, 1, 3);
    Watched watched(set, listener());
    watched.edit([](GxapSSetWriteAccessor& accessor) { accessor.clear(); });
    expectTold(1, {}, {1, 2, 3});
}

TEST_F(Watching, TellsNothingIfNothingChanged) {
    GxapSelectSet set;
    kvtest::appendIds(set, 1, 3);
    Watched watched(set, listener());
    watched.edit([](GxapSSetWriteAccessor& accessor) { accessor.append(id(1), kNoId); });
    watched.edit([](GxapSSetWriteAccessor&) {});
    EXPECT_TRUE(told.empty());
}

TEST_F(Watching, TellsNothingOfItemsThatGotOtherRecords) {
    GxapSelectSet set;
    kvtest::appendIds(set, 1, 3);
    const GxapSelectSet sharer(set);
    Watched watched(set, listener());
    watched.edit([](GxapSSetWriteAccessor& accessor) { accessor.writeData(); });
    EXPECT_TRUE(told.empty());
    watched.edit([](GxapSSetWriteAccessor& accessor) {
        accessor.clear();
        kvtest::appendIds(accessor, 2, 3);
    });
    expectTold(1, {4}, {1});
}

TEST_F(Watching, TellsOfAnItemWhoseKeysChanged) {
    GxapSelectSet set;
    kvtest::appendIds(set, 1, 2);
    Watched watched(set, listener());
    watched.edit([](GxapSSetWriteAccessor& accessor) {
        accessor.begin().setNestedEntFullPath(kvtest::idVector({7}));
    });
    expectTold(1, {1}, {1});
}

TEST_F(Watching, CountsEqualItems) {
    kvtest::SetOf s(kvtest::Items{{1}, {1}}, kvtest::Unique::kOff);
    Watched watched(s.set, listener());
    watched.edit([](GxapSSetWriteAccessor& accessor) { accessor.append(id(1), kNoId); });
    expectTold(1, {1}, {});
}

TEST_F(Watching, TellsOfABatchAtItsEnd) {
    GxapSelectSet set;
    Watched watched(set, listener());
    watched.beginBatch();
    watched.edit([](GxapSSetWriteAccessor& accessor) { kvtest::appendIds(accessor, 1, 2); });
    watched.beginBatch();
    watched.edit([](GxapSSetWriteAccessor& accessor) { accessor.remove(id(1)); });
    watched.endBatch();
    EXPECT_TRUE(told.empty());
    watched.endBatch();
    expectTold(1, {2}, {});
}

TEST_F(Watching, TellsOfEditsThatWentPastItWithTheNextOne) {
    GxapSelectSet set;
    Watched watched(set, listener());
    kvtest::appendIds(set, 1, 1);
    watched.edit([](GxapSSetWriteAccessor& accessor) { kvtest::appendIds(accessor, 2, 1); });
    expectTold(1, {1, 2}, {});
    kvtest::appendIds(set, 3, 1);
    watched.endBatch(); // without a batch, only tells
    expectTold(2, {3}, {});
}

TEST_F(Watching, TellsOfAnEditThatThrewWithTheNextOne) {
    GxapSelectSet set;
    Watched watched(set, listener());
    const auto fails = [](GxapSSetWriteAccessor& accessor) {
        kvtest::appendIds(accessor, 1, 1);
        throw std::runtime_error("halfway");
    };
    EXPECT_THROW(watched.edit(fails), std::runtime_error);
    EXPECT_TRUE(told.empty());
    watched.edit([](GxapSSetWriteAccessor& accessor) { kvtest::appendIds(accessor, 2, 1); });
    expectTold(1, {1, 2}, {});
}

TEST_F(Watching, LetsTheListenerEdit) {
    GxapSelectSet set;
    Watched* edited = nullptr;
    const auto append = [](GxapSSetWriteAccessor& accessor) { kvtest::appendIds(accessor, 2, 1); };
    Watched watched(set, [&](const Change& change) {
        told.push_back({numbersOf(change.came), numbersOf(change.went)});
        edited->edit(append);
    });
    edited = &watched;
    watched.edit([](GxapSSetWriteAccessor& accessor) { kvtest::appendIds(accessor, 1, 1); });
    expectTold(2, {2}, {});
    EXPECT_EQ(told.front().came, Numbers{1});
}

TEST_F(Watching, DoesNotCopySharedData) {
    GxapSelectSet set;
    kvtest::appendIds(set, 1, 1);
    const auto* const data = set.sharedData;
    Watched watched(set, listener());
    watched.edit([](GxapSSetWriteAccessor& accessor) { kvtest::appendIds(accessor, 2, 1); });
    EXPECT_EQ(set.sharedData, data) << "private data stays where it is";
}

} // namespace
