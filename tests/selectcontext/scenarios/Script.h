// The steps of a scenario.
#pragma once

#include "tests/selectcontext/scenarios/World.h"
#include "tests/selectcontext/support/EditTestSupport.h"

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace kvscenario {

using kvtest::Item;
using kvtest::Items;

// What a step leaves that runs out of memory.
enum class Left {
    kAsBefore,    // every set has the contents that it had before the step
    kWholeItems,  // some of the step's items are done, each as a whole; a second attempt does the others
    kPartOfIndex, // the index of the set may lack entries; a second attempt rebuilds it
};

// One operation on the sets, or a few that belong together, such as look-ups of many ids.
struct Step {
    std::string name;
    std::function<void(World&)> run;
    Left left;
};

struct Scenario {
    std::string name;
    long fewestPoints; // the allocations of the steps, each failing once and from then on, are at least so
                       // many
    bool hasTwins;     // if true, id(n) and id(n + kTwin) are stubs of one object, for n from 1 to 60
    std::function<void(World&)> setUp; // nothing fails in it
    std::vector<Step> steps;
};

inline std::ostream& operator<<(std::ostream& out, const Scenario& scenario) {
    return out << scenario.name;
}

// Collects steps. Sets, names, parts and entities are given by their numbers in the world. Look-ups and
// comparisons of sets add what they return to the answers of the world.
class Script {
public:
    using Rule = std::function<bool(unsigned long)>; // takes the number n of id(n)

    void step(std::string name, std::function<void(World&)> run, Left left = Left::kAsBefore) {
        mSteps.push_back({std::move(name), std::move(run), left});
    }
    std::vector<Step> take() { return std::move(mSteps); }

    // ---- edits of one item
    void select(std::size_t set, const Item& item);
    void selectAll(std::size_t set, const Items& items);
    void appendRecordOf(std::size_t set, std::size_t source, int position);
    void selectEntity(std::size_t set, std::size_t entity);
    void remove(std::size_t set, unsigned long main);
    void removeSub(std::size_t set, unsigned long main, unsigned long sub);
    void remove(std::size_t set, unsigned long main, unsigned long sub, long marker);
    void removeAt(std::size_t set, int position);
    void setPath(std::size_t set, int position, std::initializer_list<kvtest::AnyId> path);
    void setViewports(std::size_t set, int position, int count);

    // ---- look-ups
    void find(std::size_t set, const Item& item);
    void findMain(std::size_t set, unsigned long first, unsigned long count);
    void findInRun(std::size_t set, const Items& items);
    void findForWriting(std::size_t set, unsigned long main);
    void getAt(std::size_t set, int position);
    void walk(std::size_t set);
    void holdIterators(std::size_t set, int count);
    void compare(std::size_t set, std::size_t other);

    // ---- whole sets
    void copy(std::size_t to, std::size_t from);
    void assign(std::size_t to, std::size_t from);
    void clone(std::size_t to, std::size_t from);
    void write(std::size_t set);
    void clear(std::size_t set);
    void createData(std::size_t set);
    void merge(std::size_t to, std::size_t a, std::size_t b);
    void minus(std::size_t to, std::size_t a, std::size_t b);
    void transfer(std::size_t from, std::size_t target, std::size_t excludedOut, Rule excluded);
    void setUnique(std::size_t set, bool on);
    void setNestedMode(std::size_t set, bool on);
    void updateDataMap(std::size_t set);

    // ---- highlight segments
    void addSegment(std::size_t set, int position, std::size_t part);
    void clearSegments(std::size_t set, int position);
    void draw(std::size_t set, bool highlight);

    // ---- sub-selections
    void subselect(std::size_t set, std::size_t part);
    void subselectNewItem(std::size_t set, std::size_t part); // of an entity that the set lacks
    void findSubselected(std::size_t set, std::size_t part);
    void getSubselected(std::size_t set, int position, int part);
    void unselect(std::size_t set, std::size_t part);
    void unselectAt(std::size_t set, int position, int part);

    // ---- named sets
    void newNamed(std::size_t name);
    void addNamed(std::size_t name, std::size_t set);
    void selectInNamed(std::size_t name, const Item& item);
    void mergeIntoNamed(std::size_t name, std::size_t set);
    void copyNamed(std::size_t to, std::size_t name);
    void deleteNamed(std::size_t name);
    void shareList();

private:
    std::vector<Step> mSteps;
};

} // namespace kvscenario
