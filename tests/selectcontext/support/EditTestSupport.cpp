#include "tests/selectcontext/support/EditTestSupport.h"

#include "tests/support/NewTracking.h"

#include <algorithm>
#include <iterator>
#include <ostream>

namespace kvtest {

// ---- items

bool operator==(const Item& a, const Item& b) {
    return a.main == b.main && a.sub == b.sub && a.marker == b.marker && a.moved == b.moved &&
           std::equal(std::begin(a.path), std::end(a.path), std::begin(b.path));
}

std::ostream& operator<<(std::ostream& out, const Item& item) {
    out << '(' << item.main << ' ' << item.sub << ' ' << item.marker;
    for (const unsigned long n : item.path) {
        if (n != 0)
            out << " /" << n;
    }
    if (item.moved != 0)
        out << " moved " << item.moved;
    return out << ')';
}

void select(GxapSelectSet& set, const Item& item) {
    KvVector<GxDbObjectId> path;
    for (const unsigned long n : item.path) {
        if (n != 0)
            append(path, id(n));
    }
    edit(set).select(id(item.main), id(item.sub), item.marker,
                     item.moved != 0 ? makeInfoMovedBy(item.moved) : nullptr, &path);
}

Item itemOf(const selected_entity& record) {
    Item item{numberOf(record.mainEntId), numberOf(record.subEntId), record.gsMarker};
    for (int i = 0; i < record.nestedEntFullPath.logicalLength(); ++i)
        item.path[i] = numberOf(elementAt(record.nestedEntFullPath, i));
    const GxapSelectedEntInfo* const info = record.selectedEntityInfo;
    if (info != nullptr && info->getBTRMatPtr() != nullptr)
        item.moved = info->getBTRMatPtr()->entry[0][3];
    return item;
}

Items items(const GxapSelectSet& set) {
    Items found;
    if (!set.sharedData || !set.sharedData->entities)
        return found;
    for (const Store::Slot* slot : occupiedSlots(*set.sharedData)) {
        if (slot->value)
            found.push_back(itemOf(*slot->value));
    }
    return found;
}

Items plainItems(unsigned long first, unsigned long count) {
    Items found;
    for (unsigned long n = first; n < first + count; ++n)
        found.push_back({n});
    return found;
}

// ---- sets

void fill(GxapSelectSet& set, const Items& added, Unique unique) {
    set.sharedData->unique = false;
    for (const Item& item : added)
        select(set, item);
    set.sharedData->unique = unique == Unique::kOn;
}

SetOf::SetOf() = default;

SetOf::SetOf(std::initializer_list<Item> held) {
    fill(set, held);
}

SetOf::SetOf(const Items& held, Unique unique) {
    fill(set, held, unique);
}

SetOf::~SetOf() = default;

FleetingSharer::FleetingSharer(const GxapSelectSet& set) : mSharer(std::make_unique<GxapSelectSet>(set)) {
    RecordTracker::current().atNextRecord([this] { mSharer.reset(); });
}

FleetingSharer::~FleetingSharer() {
    RecordTracker::current().atNextRecord(nullptr);
}

bool shareData(const GxapSelectSet& a, const GxapSelectSet& b) {
    return a.sharedData == b.sharedData;
}

std::size_t pages(const GxapSelectSet& set) {
    return pageCount(*set.sharedData->entities);
}

selected_entity* record(const GxapSelectSet& set, std::size_t position) {
    return recordAt(set, position);
}

// ---- what edits leave unreleased

std::set<const GxDbFullSubentPath*> pathCopiesLeft() {
    std::set<const GxDbFullSubentPath*> left;
    for (const kvinmemory::DatabaseEvent& event : kvinmemory::databaseEvents()) {
        if (event.call == kvinmemory::DatabaseCall::PathCopy)
            left.insert(event.path);
        else if (event.call == kvinmemory::DatabaseCall::PathDestruction)
            left.erase(event.path);
    }
    return left;
}

void freePathCopiesLeft() {
    for (const GxDbFullSubentPath* path : pathCopiesLeft())
        delete path;
}

std::vector<selected_entity*> liveRecords() {
    return RecordTracker::current().live();
}

bool isLiveRecord(const selected_entity* record) {
    return RecordTracker::current().isLive(record);
}

void EditTest::SetUp() {
    SetTest::SetUp();
    mTracker.emplace();
}

void EditTest::TearDown() {
    freeLeftRecords();
    mTracker.reset();
    SetTest::TearDown();
}

std::size_t EditTest::leftRecords(std::initializer_list<const GxapSelectSet*> sets) {
    std::vector<const void*> held;
    for (const GxapSelectSet* set : sets) {
        held.push_back(set->sharedData); // has the size of a record, so liveRecords() returns it
        for (const Store::Slot* slot : occupiedSlots(*set->sharedData))
            held.push_back(slot->value);
    }
    std::sort(held.begin(), held.end());
    const std::vector<selected_entity*> live = liveRecords();
    return static_cast<std::size_t>(std::count_if(live.begin(), live.end(), [&](const void* record) {
        return !std::binary_search(held.begin(), held.end(), record);
    }));
}

void EditTest::freeLeftRecords() {
    const std::vector<selected_entity*> left = liveRecords();
    EXPECT_EQ(static_cast<long>(RecordTracker::current().blockCount()),
              liveNewBlocksOfSize(sizeof(selected_entity)))
        << "blocks of a record's size that are no records";
    if (HasFailure())
        return;
    for (const selected_entity* record : left)
        delete record;
}

} // namespace kvtest
