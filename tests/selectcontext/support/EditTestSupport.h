// What the tests of removals, set algebra and sub-selection share: items as plain values, sets made of them,
// and the records that edits leave unreleased.
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

// One selected item, as far as lookups can tell it from others: the numbers of its ids, its marker, the
// numbers of its path, ended by 0, and by how much its block transform moves; 0: it has none.
struct Item {
    unsigned long main;
    unsigned long sub = 0;
    long marker = -1;
    unsigned long path[3] = {};
    double moved = 0;
};
using Items = std::vector<Item>;

bool operator==(const Item& a, const Item& b);
std::ostream& operator<<(std::ostream& out, const Item& item);

void select(GxapSelectSet& set, const Item& item);
Item itemOf(const selected_entity& record);

// The items in store order, read without any of the library's walks; none of a set without data.
Items items(const GxapSelectSet& set);

Items plainItems(unsigned long first, unsigned long count);

// ---- sets

enum class Unique { kOn, kOff };

// Adds equal items, too, whatever the set's flag, which is then as given.
void fill(GxapSelectSet& set, const Items& added, Unique unique = Unique::kOn);

// A set of just these items: SetOf{{1}, {2, 5}}, or with a flag SetOf({{1}, {1}}, Unique::kOff).
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

// A set that shares data, and lets it go while the next edit copies that data: from then on only what is
// edited holds it.
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

// ---- what is left behind

// The copies of paths that exist and that no local of the test is, as far as the log of the database shows:
// those that the library has made for lists of sub-selected paths, which it never deletes.
std::set<const GxDbFullSubentPath*> pathCopiesLeft();
void freePathCopiesLeft();

// The records made since the test began that nobody has deleted.
std::vector<selected_entity*> liveRecords();
bool isLiveRecord(const selected_entity* record);

// Frees, after the test, the records that its edits left unreleased, and then looks whether anything else was
// left.
class EditTest : public SetTest {
protected:
    void SetUp() override;
    void TearDown() override;

    // How many records exist that none of these sets holds.
    static std::size_t leftRecords(std::initializer_list<const GxapSelectSet*> sets);

    // To be called when the sets are gone. After a failure blocks may exist that are no records: they stay.
    static void freeLeftRecords();

private:
    std::optional<RecordTracker> mTracker;
};

} // namespace kvtest
