// Items as plain values, and sets of such items. Also finds the records that edits remove but do not delete.
#pragma once

#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/selectcontext/support/RecordTestSupport.h"
#include "tests/selectcontext/support/RecordTracker.h"
#include "tests/selectcontext/support/SetTestSupport.h"
#include "tests/support/Thrown.h"

#include <cstddef>
#include <initializer_list>
#include <iosfwd>
#include <memory>
#include <optional>
#include <set>
#include <vector>

namespace kvtest {

// ---- items

// The keys of a selected item.
struct Item {
    unsigned long main; // number of the main id
    unsigned long sub = 0;
    long marker = -1;
    unsigned long path[3] = {}; // numbers of the path's ids, ended by 0
    double moved = 0;           // how far the block transform moves the item; 0: no transform
};
using Items = std::vector<Item>;

bool operator==(const Item& a, const Item& b);
std::ostream& operator<<(std::ostream& out, const Item& item);

void select(GxapSelectSet& set, const Item& item);
Item itemOf(const selected_entity& record);

// Returns the items in store order, without using the library's iterators. Returns nothing for a set without
// data.
Items items(const GxapSelectSet& set);

Items plainItems(unsigned long first, unsigned long count);

// ---- sets

enum class Unique { kOn, kOff };

// Adds all items, even items that are equal. Then sets the flag `unique`.
void fill(GxapSelectSet& set, const Items& added, Unique unique = Unique::kOn);

// A set of exactly these items. SetOf{{1}, {2, 5}} is unique, and SetOf({{1}, {1}}, Unique::kOff) is not.
class SetOf {
public:
    SetOf();
    SetOf(std::initializer_list<Item> held);
    explicit SetOf(const Items& held, Unique unique = Unique::kOn);
    SetOf(const SetOf&) = delete;
    SetOf& operator=(const SetOf&) = delete;
    ~SetOf();

    SSetData& data() const { return *set.sharedData; }
    Store& store() const { return *set.sharedData->entities; }

    GxapSelectSet set;
};

// Shares the data of a set until the next edit copies the data. Releases the data during the copying, so that
// the edited set becomes the only owner of the old data.
class FleetingSharer {
public:
    explicit FleetingSharer(const GxapSelectSet& set);
    FleetingSharer(const FleetingSharer&) = delete;
    FleetingSharer& operator=(const FleetingSharer&) = delete;
    ~FleetingSharer();

    bool isGone() const { return mSharer == nullptr; }

private:
    std::unique_ptr<GxapSelectSet> mSharer;
};

bool shareData(const GxapSelectSet& a, const GxapSelectSet& b);
std::size_t pages(const GxapSelectSet& set);
selected_entity* record(const GxapSelectSet& set, std::size_t position);

// ---- what edits leave unreleased

// Returns the path copies that still exist, according to the log of the database. The library copies the
// paths that it adds to sub-selections, and never deletes the copies.
std::set<const GxDbFullSubentPath*> pathCopiesLeft();
void freePathCopiesLeft();

// Returns the records that were made since the test began and still exist. Also returns the data of each set,
// which has the size of a record.
std::vector<selected_entity*> liveRecords();
bool isLiveRecord(const selected_entity* record);

// Deletes the records that a test's edits remove but do not delete. Then checks that no other memory is left.
class EditTest : public SetTest {
protected:
    void SetUp() override;
    void TearDown() override;

    // Returns how many records exist that are in none of these sets.
    static std::size_t leftRecords(std::initializer_list<const GxapSelectSet*> sets);

    // Deletes all live records. The caller must destroy the sets first. Deletes nothing after a failed check:
    // a block that counts as a record may then be another object.
    static void freeLeftRecords();

private:
    std::optional<RecordTracker> mTracker;
};

} // namespace kvtest
