// Plants one corruption after the other in a sound set. validate() must find each. The destructor of the
// corruption repairs the set.
#include "aids/Inspect.h"

#include "tests/aids/AidsTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>

namespace {

using kv::validate;
using kvtest::addressOf;
using kvtest::edit;
using kvtest::Filled;
using kvtest::id;
using kvtest::Sentences;
using kvtest::SetOf;
using kvtest::SSetData;
using kvtest::Store;
using kvtest::Unique;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Gives a field another value while the object lives.
template <class T>
class Planted {
public:
    Planted(T& field, T value) : mField(field), mBefore(std::exchange(field, value)) {}
    Planted(const Planted&) = delete;
    Planted& operator=(const Planted&) = delete;
    ~Planted() { mField = mBefore; }

private:
    T& mField;
    T mBefore;
};

// Gives a bool the byte 2 while the object lives.
class PlantedByte {
public:
    explicit PlantedByte(bool& flag) : mFlag(flag), mBefore(flag) {
        const unsigned char byte = 2;
        std::memcpy(static_cast<void*>(&flag), &byte, 1);
    }
    PlantedByte(const PlantedByte&) = delete;
    PlantedByte& operator=(const PlantedByte&) = delete;
    ~PlantedByte() { std::memcpy(static_cast<void*>(&mFlag), &mBefore, 1); }

private:
    bool& mFlag;
    bool mBefore;
};

// Gives an atomic count another value while the object lives.
class PlantedCount {
public:
    PlantedCount(std::atomic<std::uint32_t>& count, std::uint32_t value)
        : mCount(count), mBefore(count.exchange(value)) {}
    PlantedCount(const PlantedCount&) = delete;
    PlantedCount& operator=(const PlantedCount&) = delete;
    ~PlantedCount() { mCount.store(mBefore); }

private:
    std::atomic<std::uint32_t>& mCount;
    std::uint32_t mBefore;
};

class Validate : public kvtest::SetTest {
protected:
    static SSetData& data(const Filled& filled) { return *filled.set.sharedData; }
    static selected_entity& record(const Filled& filled, unsigned i) { return *filled.slot(i)->value; }

    static KvVectorBlock& pathBlock(selected_entity& record) {
        record.nestedEntFullPath = kvtest::idVector({1, 2});
        return *record.nestedEntFullPath.data.block;
    }
};

// ---- Sound sets

TEST_F(Validate, FindsNothingInASetWithoutData) {
    GxapSelectSet set;
    set.releaseData();
    EXPECT_THAT(validate(set), IsEmpty());
}

TEST_F(Validate, FindsNothingInAnEmptySet) {
    EXPECT_THAT(validate(GxapSelectSet()), IsEmpty());
}

TEST_F(Validate, FindsNothingInASetOfSeveralPagesWithHoles) {
    Filled filled(3 * kvtest::kPageSlots);
    kvtest::takeOutIds(filled.set, 2, 5);
    kvtest::takeOutIds(filled.set, kvtest::kPageSlots + 1, kvtest::kPageSlots);
    EXPECT_THAT(validate(filled.set), IsEmpty());
}

TEST_F(Validate, FindsNothingInASetWithEveryFieldAndItsCopy) {
    SetOf s{{1}, {2, 3, 4, {2, 3}, 1.5}, {2, 3, 4, {2, 3}, 2.5}};
    kvtest::giveSegments(*kvtest::record(s.set, 0), 2);
    auto list = std::make_unique<kvtest::SegmentArray>();
    selected_entity& subselected = *kvtest::record(s.set, 1);
    subselected.subselPathArray = list.release();
    subselected.hasSubselPaths = true;
    const auto copy = kvtest::cloneOf(s.set);
    EXPECT_THAT(validate(s.set), IsEmpty());
    EXPECT_THAT(validate(*copy), IsEmpty());
}

TEST_F(Validate, FindsNothingInASetThatAnIteratorWalks) {
    const Filled filled(2);
    const auto first = filled.set.begin();
    const auto end = filled.set.end();
    EXPECT_THAT(validate(filled.set), IsEmpty());
}

TEST_F(Validate, ReadsOnly) {
    SetOf s{{1}, {1, 2}, {3}};
    const kvtest::AllocationCount allocations;
    const auto* const block = kvtest::record(s.set, 0)->nestedEntFullPath.data.block;
    const std::uint32_t sharers = block->refCount.load();
    validate(s.set);
    EXPECT_EQ(block->refCount.load(), sharers);
    EXPECT_EQ(allocations.liveNew(), 0);
    EXPECT_EQ(allocations.mallocCalls(), 0);
}

// ---- The handle

TEST_F(Validate, FindsAnIteratorThatIsRegisteredTwice) {
    const Filled filled(1);
    const auto it = filled.set.begin();
    auto& registry = filled.set.iterators;
    registry.setLogicalLength(2);
    registry[1] = registry[0];
    EXPECT_THAT(validate(filled.set), ElementsAre("One iterator is registered as 0 and as 1."));
    registry.setLogicalLength(1);
}

TEST_F(Validate, FindsANullAmongTheRegisteredIterators) {
    const Filled filled(1);
    const auto it = filled.set.begin();
    const Planted<GxapSelectSet::ConstIterator*> planted(filled.set.iterators[0], nullptr);
    EXPECT_THAT(validate(filled.set), ElementsAre("Registered iterator 0 is null."));
}

TEST_F(Validate, FindsARegisteredIteratorOfAnotherSet) {
    const Filled filled(1);
    const GxapSelectSet other;
    auto it = filled.set.begin();
    const Planted<const GxapSelectSet*> planted(it.set, &other);
    EXPECT_THAT(validate(filled.set), ElementsAre("Registered iterator 0 is one of another set."));
}

TEST_F(Validate, FindsTwoIteratorsWithOnePosition) {
    const Filled filled(1);
    const auto first = filled.set.begin();
    auto second = filled.set.begin();
    const Planted<Store::iterator*> planted(second.truckerIterator, first.truckerIterator);
    EXPECT_THAT(
        validate(filled.set),
        ElementsAre("One store position belongs to registered iterator 0 and to registered iterator 1."));
}

TEST_F(Validate, FindsAListOfIteratorsThatIsLongerThanItsStorage) {
    const Filled filled(1);
    const auto it = filled.set.begin();
    const Planted<std::int32_t> planted(filled.set.iterators.mLogicalLength, 99);
    EXPECT_THAT(validate(filled.set),
                ElementsAre("The list of registered iterators has length 99 and capacity 8."));
}

// ---- The data

TEST_F(Validate, FindsDataWithoutAnOwner) {
    const Filled filled(1);
    const PlantedCount planted(data(filled).refCount, 0);
    EXPECT_THAT(validate(filled.set), ElementsAre("refCount is 0, but at least this set uses the data."));
}

TEST_F(Validate, FindsACountOfOwnersThatWentBelowZero) {
    const Filled filled(1);
    const PlantedCount planted(data(filled).refCount, 0xFFFFFFFF);
    EXPECT_THAT(validate(filled.set),
                ElementsAre("refCount is 4294967295, but at least this set uses the data."));
}

TEST_F(Validate, FindsFlagsThatAreNeitherTrueNorFalse) {
    const Filled filled(1);
    const PlantedByte unique(data(filled).unique);
    const PlantedByte nested(data(filled).selectByNestedMode);
    EXPECT_THAT(validate(filled.set),
                ElementsAre("The byte of `unique` is 2.", "The byte of `selectByNestedMode` is 2."));
}

TEST_F(Validate, FindsDataWithoutAStore) {
    const Filled filled(1);
    const Planted<Store*> planted(data(filled).entities, nullptr);
    EXPECT_THAT(validate(filled.set),
                ElementsAre("The data has no store.", "entityCount is 1, but 0 slots are occupied.",
                            "Index entry 0 leads to no item."));
}

TEST_F(Validate, FindsAWrongNumberOfItems) {
    const Filled filled(3);
    const Planted<std::uint32_t> planted(data(filled).entityCount, 4);
    EXPECT_THAT(validate(filled.set), ElementsAre("entityCount is 4, but 3 slots are occupied."));
}

// ---- The store

TEST_F(Validate, FindsAHeadWithoutATail) {
    const Filled filled(1);
    const Planted<Store::Page*> planted(filled.store().tail, nullptr);
    EXPECT_THAT(validate(filled.set), ElementsAre("The store has a head only."));
}

TEST_F(Validate, FindsATailWithoutAHead) {
    const Filled filled(1);
    const Planted<Store::Page*> planted(filled.store().head, nullptr);
    EXPECT_THAT(validate(filled.set),
                ElementsAre("The store has a tail only.", "entityCount is 1, but 0 slots are occupied.",
                            "Index entry 0 leads to no item."));
}

TEST_F(Validate, FindsATailThatIsNotTheLastPage) {
    const Filled filled(kvtest::kPageSlots + 1);
    const Planted<Store::Page*> planted(filled.store().tail, filled.store().head);
    EXPECT_THAT(validate(filled.set),
                ElementsAre("The tail of the store is not the last page of the chain, which is page 1."));
}

TEST_F(Validate, FindsARingOfPages) {
    const Filled filled(kvtest::kPageSlots + 1);
    const Planted<Store::Page*> planted(filled.store().tail->next, filled.store().head);
    EXPECT_THAT(validate(filled.set), ElementsAre("The chain of pages leads from page 1 back to page 0."));
}

TEST_F(Validate, FindsAPageWithoutSlots) {
    const Filled filled(1);
    const Planted<Store::Slot*> planted(filled.store().head->slots, nullptr);
    EXPECT_THAT(validate(filled.set),
                ElementsAre("Page 0 has no slots.", "entityCount is 1, but 0 slots are occupied.",
                            "Index entry 0 leads to no item."));
}

TEST_F(Validate, FindsTwoPagesWithTheSameSlots) {
    const Filled filled(kvtest::kPageSlots + 1);
    const Planted<Store::Slot*> planted(filled.store().tail->slots, filled.store().head->slots);
    EXPECT_THAT(validate(filled.set), ElementsAre("Pages 0 and 1 have the same slots.",
                                                  "entityCount is 4097, but 4096 slots are occupied.",
                                                  "Index entry 4096 leads to no item."));
}

TEST_F(Validate, FindsAUsedPartThatEndsOutsideThePage) {
    const Filled filled(1);
    const Planted<Store::Slot*> planted(filled.store().head->fillEnd, nullptr);
    EXPECT_THAT(validate(filled.set), ElementsAre("The used part of page 0 does not end in the page."));
}

TEST_F(Validate, FindsAWrongCountOfAPage) {
    const Filled filled(3);
    const Planted<std::uint32_t> planted(filled.store().head->liveCount, 2);
    EXPECT_THAT(validate(filled.set), ElementsAre("Page 0 counts 2 occupied slots, but has 3."));
}

TEST_F(Validate, FindsASlotWithAnUnknownMark) {
    const Filled filled(1);
    const Planted<unsigned char> planted(filled.slot(5)->free, 7);
    EXPECT_THAT(validate(filled.set), ElementsAre("Slot 5 of page 0 is marked 7."));
}

TEST_F(Validate, FindsAnOccupiedSlotThatWasNeverUsed) {
    const Filled filled(1);
    const Planted<unsigned char> planted(filled.slot(5)->free, 0);
    EXPECT_THAT(validate(filled.set), ElementsAre("Slot 5 of page 0 is occupied, but was never used."));
}

TEST_F(Validate, FindsASlotWithoutARecord) {
    const Filled filled(2);
    const Planted<selected_entity*> planted(filled.slot(1)->value, nullptr);
    EXPECT_THAT(validate(filled.set), ElementsAre("Slot 1 of page 0 is occupied, but has no record.",
                                                  "Index entry 1 leads to no item."));
}

// ---- The index

TEST_F(Validate, FindsAnItemWithoutAnIndexEntry) {
    Filled filled(2);
    const auto node = data(filled).dataMap.extract(id(2));
    EXPECT_THAT(validate(filled.set), ElementsAre("No index entry leads to item 1 (page 0, slot 1)."));
    edit(filled.set).updateDataMap();
}

TEST_F(Validate, FindsAnIndexEntryThatLeadsToAFreeSlot) {
    const Filled filled(2);
    const Planted<unsigned long> planted(data(filled).dataMap.begin()->second, addressOf(filled.slot(9)));
    EXPECT_THAT(validate(filled.set), ElementsAre("Index entry 0 leads to no item.",
                                                  "No index entry leads to item 0 (page 0, slot 0)."));
}

TEST_F(Validate, FindsTwoIndexEntriesThatLeadToOneItem) {
    const Filled filled(1);
    data(filled).dataMap.emplace(id(1), addressOf(filled.slot(0)));
    EXPECT_THAT(validate(filled.set),
                ElementsAre("Index entry 1 leads to item 0 (page 0, slot 0), to which another "
                            "entry leads, too."));
}

TEST_F(Validate, FindsAnIndexEntryOfAnotherMainId) {
    const Filled filled(2);
    const Planted<GxDbObjectId> planted(record(filled, 1).mainEntId, id(9));
    EXPECT_THAT(validate(filled.set),
                ElementsAre("Index entry 1 has another main id than item 1 (page 0, slot 1)."));
}

TEST_F(Validate, FindsIndexEntriesInTheWrongOrderOfTheirIds) {
    const Filled filled(2);
    auto& first = const_cast<GxDbObjectId&>(data(filled).dataMap.begin()->first);
    const Planted<GxDbObjectId> key(first, id(9));
    const Planted<GxDbObjectId> main(record(filled, 0).mainEntId, id(9));
    EXPECT_THAT(validate(filled.set),
                ElementsAre("Index entry 1 has an id that belongs before that of the entry before."));
}

TEST_F(Validate, FindsIndexEntriesOfOneIdInTheWrongOrder) {
    SetOf s{{1, 2}, {1, 3}};
    kvtest::reverseIndex(s.data());
    EXPECT_THAT(
        validate(s.set),
        ElementsAre(
            "Index entries 0 and 1 have one id, but lead to item 1 (page 0, slot 1) and item 0 (page 0, "
            "slot 0), which are in the opposite order."));
}

// ---- The records

TEST_F(Validate, FindsANullMainId) {
    const Filled filled(1);
    auto& key = const_cast<GxDbObjectId&>(data(filled).dataMap.begin()->first);
    const Planted<GxDbObjectId> entry(key, GxDbObjectId());
    const Planted<GxDbObjectId> main(record(filled, 0).mainEntId, GxDbObjectId());
    EXPECT_THAT(validate(filled.set), ElementsAre("The main id of item 0 (page 0, slot 0) is null."));
}

TEST_F(Validate, FindsARecordInTwoSlots) {
    const Filled filled(2);
    const Planted<selected_entity*> planted(filled.slot(1)->value, filled.slot(0)->value);
    EXPECT_THAT(validate(filled.set),
                ElementsAre("Index entry 1 has another main id than item 1 (page 0, slot 1).",
                            "One record belongs to item 0 (page 0, slot 0) and to item 1 (page 0, slot 1)."));
}

TEST_F(Validate, FindsAFlagOfARecordThatIsNeitherTrueNorFalse) {
    const Filled filled(1);
    const PlantedByte planted(record(filled, 0).hasSubselPaths);
    EXPECT_THAT(validate(filled.set),
                ElementsAre("The byte of `hasSubselPaths` of item 0 (page 0, slot 0) is 2."));
}

TEST_F(Validate, FindsABlockWithFewerOwnersThanVectors) {
    const Filled filled(2);
    KvVectorBlock& block = pathBlock(record(filled, 0));
    record(filled, 1).nestedEntFullPath = record(filled, 0).nestedEntFullPath;
    const PlantedCount planted(block.refCount, 1);
    EXPECT_THAT(validate(filled.set),
                ElementsAre("The block of nestedEntFullPath of item 0 (page 0, slot 0) has "
                            "refCount 1, but 2 vectors of this set use it."));
}

TEST_F(Validate, FindsABlockThatIsLongerThanItsStorage) {
    const Filled filled(1);
    const Planted<std::int32_t> planted(pathBlock(record(filled, 0)).logicalLength, 99);
    EXPECT_THAT(validate(filled.set),
                ElementsAre("The block of nestedEntFullPath of item 0 (page 0, slot 0) has length "
                            "99 and capacity 8 with storage."));
}

TEST_F(Validate, FindsABlockWithoutItsStorage) {
    const Filled filled(1);
    const Planted<void*> planted(pathBlock(record(filled, 0)).array, nullptr);
    EXPECT_THAT(validate(filled.set),
                ElementsAre("The block of nestedEntFullPath of item 0 (page 0, slot 0) has length "
                            "2 and capacity 8 without storage."));
}

TEST_F(Validate, FindsElementsInTheBlockOfAllEmptyVectors) {
    const Filled filled(1);
    const Planted<std::int32_t> length(gpEmptyVectorData->logicalLength, 1);
    const Planted<std::int32_t> capacity(gpEmptyVectorData->physicalLength, 1);
    int element = 0;
    const Planted<void*> storage(gpEmptyVectorData->array, &element);
    const Sentences found = validate(filled.set);
    ASSERT_FALSE(found.empty());
    EXPECT_EQ(found.back(), "The block of all empty vectors has length 1 and capacity 1.");
}

TEST_F(Validate, FindsAnInfoOfTwoRecords) {
    const SetOf s{{1, 0, -1, {}, 1.5}, {2}};
    const Planted<GxapSelectedEntInfo*> planted(kvtest::record(s.set, 1)->selectedEntityInfo,
                                                kvtest::record(s.set, 0)->selectedEntityInfo);
    EXPECT_THAT(validate(s.set),
                ElementsAre("One info belongs to item 0 (page 0, slot 0) and to item 1 (page 0, slot 1)."));
}

TEST_F(Validate, FindsABlockOfOptionalFieldsOfTwoInfos) {
    const SetOf s{{1, 0, -1, {}, 1.5}, {2, 0, -1, {}, 2.5}};
    const Planted<GxDbElasticData*> planted(kvtest::record(s.set, 1)->selectedEntityInfo->elasticData,
                                            kvtest::record(s.set, 0)->selectedEntityInfo->elasticData);
    EXPECT_THAT(
        validate(s.set),
        ElementsAre(
            "One block of optional fields belongs to item 0 (page 0, slot 0) and to item 1 (page 0, slot 1).",
            "One block transform belongs to item 0 (page 0, slot 0) and to item 1 (page 0, slot 1)."));
}

TEST_F(Validate, FindsUnknownPresenceBits) {
    const SetOf s{{1, 0, -1, {}, 1.5}};
    const Planted<std::uint64_t> planted(kvtest::record(s.set, 0)->selectedEntityInfo->presenceBits, 10);
    EXPECT_THAT(validate(s.set),
                ElementsAre("presenceBits of item 0 (page 0, slot 0) has unknown bits: 10."));
}

TEST_F(Validate, FindsAPresenceBitWithoutItsField) {
    const SetOf s{{1, 0, -1, {}, 1.5}};
    const Planted<GxDbElasticData*> planted(kvtest::record(s.set, 0)->selectedEntityInfo->elasticData,
                                            nullptr);
    EXPECT_THAT(validate(s.set),
                ElementsAre("presenceBits of item 0 (page 0, slot 0) has the bit of a block transform "
                            "that is not there."));
}

TEST_F(Validate, FindsAHighlightPathOfTwoRecords) {
    const Filled filled(2);
    kvtest::giveSegments(record(filled, 0), 1);
    kvtest::giveSegments(record(filled, 1), 1);
    auto& other = record(filled, 1).highlightSegmentArray->at(0);
    const Planted<GxDbFullSubentPath*> planted(other, record(filled, 0).highlightSegmentArray->at(0));
    EXPECT_THAT(
        validate(filled.set),
        ElementsAre("One highlight path belongs to item 0 (page 0, slot 0) and to item 1 (page 0, slot 1)."));
}

TEST_F(Validate, FindsAListOfSegmentsOfTwoRecords) {
    const Filled filled(2);
    kvtest::giveSegments(record(filled, 0), 1);
    const Planted<kvtest::SegmentArray*> planted(record(filled, 1).highlightSegmentArray,
                                                 record(filled, 0).highlightSegmentArray);
    EXPECT_THAT(
        validate(filled.set),
        ElementsAre("One list of paths belongs to item 0 (page 0, slot 0) and to item 1 (page 0, slot 1)."));
}

TEST_F(Validate, FindsAListThatIsBothSegmentsAndSubselection) {
    const Filled filled(1);
    kvtest::giveSegments(record(filled, 0), 1);
    const Planted<kvtest::SegmentArray*> planted(record(filled, 0).subselPathArray,
                                                 record(filled, 0).highlightSegmentArray);
    EXPECT_THAT(
        validate(filled.set),
        ElementsAre("One list of paths belongs to item 0 (page 0, slot 0) and to item 0 (page 0, slot 0)."));
}

// ---- Equal items

TEST_F(Validate, FindsEqualItemsInAUniqueSet) {
    const SetOf s{{1}, {2, 3, 0, {7}}, {2, 3, -1, {7}}, {2, 3, -1, {8}}};
    EXPECT_THAT(
        validate(s.set),
        ElementsAre("The set is unique, but item 1 (page 0, slot 1) and item 2 (page 0, slot 2) are equal."));
}

TEST_F(Validate, TellsItemsApartByTheirBlockTransform) {
    const SetOf s{{1, 2, 3, {7}, 1.5}, {1, 2, 3, {7}, 2.5}, {1, 2, 3, {7}}};
    EXPECT_THAT(validate(s.set), IsEmpty());
}

TEST_F(Validate, AllowsEqualItemsInASetThatIsNotUnique) {
    const SetOf s({{1}, {1}}, Unique::kOff);
    EXPECT_THAT(validate(s.set), IsEmpty());
}

// ---- Many findings

TEST_F(Validate, SaysHowManyFindingsItLeavesOut) {
    Filled filled(5);
    data(filled).dataMap.clear();
    EXPECT_THAT(validate(filled.set, 2), ElementsAre("No index entry leads to item 0 (page 0, slot 0).",
                                                     "No index entry leads to item 1 (page 0, slot 1).",
                                                     "3 more findings are left out."));
    EXPECT_EQ(validate(filled.set).size(), 5U);
    edit(filled.set).updateDataMap();
}

} // namespace
