// A program and a library, of which one is compiled with the address sanitizer and the other is not.

#include "platform/inmemory/InMemoryDatabase.h"
#include "selectcontext/KvSelectContext.h"

#include <gtest/gtest.h>

#include <memory>
#include <utility>

namespace {

constexpr int kItems = 5000; // more than a page

class MixedSanitizers : public ::testing::Test {
protected:
    MixedSanitizers() {
        for (int i = 0; i < kItems; ++i)
            edit.append(drawing.addEntity(), GxDbObjectId());
    }

    GxDbObjectId idAt(int i) const { return drawing.idAt(static_cast<std::size_t>(i)); }

    // Counts the ids. Reads every entry in this program.
    static int idsIn(const GxapSelectSet::SSetData::DataMap& map) {
        int ids = 0;
        for (const auto& entry : map)
            ids += entry.first.stub() != nullptr ? 1 : 0;
        return ids;
    }

    kvinmemory::Database drawing;
    GxapSelectSet set;
    GxapSSetWriteAccessor& edit = static_cast<GxapSSetWriteAccessor&>(set);
};

TEST_F(MixedSanitizers, ProgramWalksWhatTheLibraryHasSelected) {
    int items = 0;
    for (auto it = set.begin(); !it.isDone(); it.step())
        items += it.mainEntId() == idAt(items) ? 1 : 0;
    EXPECT_EQ(items, kItems);
}

TEST_F(MixedSanitizers, LibraryReusesEntriesThatTheProgramHasErased) {
    auto& map = edit.writeData()->dataMap;
    for (int i = 0; i < kItems; i += 2)
        map.erase(idAt(i));
    for (int i = 0; i < kItems; i += 2)
        edit.append(drawing.addEntity(), GxDbObjectId());
    EXPECT_EQ(idsIn(map), kItems);
    edit.updateDataMap();
    EXPECT_EQ(idsIn(map), kItems + kItems / 2);
}

TEST_F(MixedSanitizers, ProgramReusesEntriesThatTheLibraryHasErased) {
    for (int i = 0; i < kItems; i += 2) {
        const std::unique_ptr<selected_entity> removed(*edit.getAt(i / 2));
        ASSERT_TRUE(edit.remove(idAt(i)));
    }
    auto& map = edit.writeData()->dataMap;
    for (int i = 0; i < kItems; i += 2)
        map.emplace(idAt(i), 0UL);
    EXPECT_EQ(idsIn(map), kItems);
    edit.updateDataMap();
    EXPECT_EQ(idsIn(map), kItems / 2);
}

TEST_F(MixedSanitizers, LibraryDestroysAMapThatTheProgramHasMade) {
    GxapSelectSet::SSetData::DataMap made;
    for (int i = 0; i < kItems; ++i)
        made.emplace(idAt(i), 0UL);
    made.swap(edit.writeData()->dataMap);
    edit.updateDataMap();
    EXPECT_EQ(set.find(idAt(kItems - 1)), kItems - 1);
    made.erase(idAt(0));
    EXPECT_EQ(made.size(), static_cast<std::size_t>(kItems - 1));
}

TEST_F(MixedSanitizers, LibraryFreesPagesAndRecordsThatTheProgramHasMade) {
    GxapSelectSet::SSetData* const data = edit.writeData();
    for (int i = 0; i < kItems; ++i) {
        auto record = std::make_unique<selected_entity>();
        record->mainEntId = drawing.addEntity();
        data->entities->append(record.get());
        static_cast<void>(record.release());
        ++data->entityCount;
    }
    edit.updateDataMap();
    EXPECT_EQ(set.find(idAt(2 * kItems - 1)), 2 * kItems - 1);
    edit.clear();
    EXPECT_TRUE(set.begin().isDone());
}

TEST_F(MixedSanitizers, ProgramFreesPagesAndRecordsThatTheLibraryHasMade) {
    GxapSelectSet::SSetData* const data = edit.writeData();
    auto& store = *data->entities;
    while (data->entityCount > 0) {
        auto first = store.iteratorAt(0);
        const std::unique_ptr<selected_entity> removed(*first);
        store.removeAt(first);
        --data->entityCount;
    }
    edit.updateDataMap();
    EXPECT_EQ(set.find(idAt(0)), -1);
    edit.append(idAt(0), GxDbObjectId());
    EXPECT_EQ(set.find(idAt(0)), 0);
}

TEST_F(MixedSanitizers, ProgramGivesUpACopyOfTheLibrary) {
    auto copy = std::make_unique<GxapSelectSet>(set);
    static_cast<GxapSSetWriteAccessor&>(*copy).append(drawing.addEntity(), GxDbObjectId());
    EXPECT_EQ(copy->find(idAt(kItems)), kItems);
    copy.reset();
    EXPECT_EQ(set.find(idAt(kItems)), -1);
}

} // namespace
