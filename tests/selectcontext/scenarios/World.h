// The sets that a scenario works on, and their contents as plain numbers.
#pragma once

#include "platform/inmemory/InMemoryDatabase.h"
#include "selectcontext/KvSelectContext.h"

#include <array>
#include <cstddef>
#include <memory>
#include <vector>

namespace kvscenario {

constexpr std::size_t kSets = 5;
constexpr std::size_t kNames = 4;
constexpr std::size_t kEntities = 6;
constexpr std::size_t kParts = 12;

// What the worlds of all runs use and never change: entities, and paths to parts of them. So every run has
// the same ids. Part i belongs to entity i % kEntities.
class Drawing {
public:
    Drawing();
    Drawing(const Drawing&) = delete;
    Drawing& operator=(const Drawing&) = delete;

    const GxDbObjectId& entity(std::size_t i) const { return mEntities.at(i); }
    const GxDbFullSubentPath& part(std::size_t i) const { return mParts.at(i); }

private:
    kvinmemory::Database mDatabase;
    std::vector<GxDbObjectId> mEntities;
    std::vector<GxDbFullSubentPath> mParts;
};

// Turns the log of the database on while the object lives. The log is off otherwise: the logs of thousands of
// runs would take most of the time.
class Logging {
public:
    Logging() { kvinmemory::setLogging(true); }
    Logging(const Logging&) = delete;
    Logging& operator=(const Logging&) = delete;
    ~Logging() { kvinmemory::setLogging(false); }
};

// The sets of one run of a scenario, the names of the list of named sets, and the answers that the steps got.
//
// Adding an answer and noting sub-selections allocate nothing, so that no injected failure hits them.
//
// Thread safety: none.
class World {
public:
    explicit World(const Drawing& drawing);
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    // Destroys the sets and the list of named sets. Deletes the paths of sub-selections, which the library
    // leaves to its caller.
    ~World();

    GxapSelectSet& set(std::size_t i) const { return *sets.at(i); }
    GxapSSetWriteAccessor& edit(std::size_t i) const;
    void answer(long value) { answers.push_back(value); }

    // Notes the paths that the items of all sets have in their sub-selections.
    void noteSubselections();

    const Drawing& drawing;
    std::array<std::unique_ptr<GxapSelectSet>, kSets> sets;
    std::array<std::array<long, 2>, kNames> names{};
    std::unique_ptr<GxapSSListSmartPtr> list; // a second handle of the list of named sets, or null
    std::vector<long> answers;
    bool leavesPathCopies = false; // a copy of a path is in the log of the database, and in no set

private:
    void note(const GxDbFullSubentPath* path);

    std::vector<const GxDbFullSubentPath*> mSubselected;
};

using Numbers = std::vector<long>;

// Returns everything that callers can see of the sets and the list of named sets, in a canonical order:
// flags, counts, records with all their fields, and the ids of the index. Leaves out addresses and
// capacities.
Numbers contentsOf(const World& world);

// Returns the answers, and for each set the first set that has the same data.
Numbers answersOf(const World& world);

// Calls visit(set) for every set of the world, also for the named ones.
template <class Visit>
void forEachSet(const World& world, Visit visit) {
    for (const auto& set : world.sets) {
        if (set)
            visit(*set);
    }
    const GxapSSListSmartPtr* const handle = GxapSelectSetListManager::s_smartPtrSSList;
    if (!handle || !handle->list)
        return;
    for (const GxapSelectSet* set : handle->list->sets)
        visit(*set);
}

} // namespace kvscenario
