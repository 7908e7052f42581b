#include "tests/selectcontext/scenarios/Scenarios.h"

#include "tests/selectcontext/support/LongRunTestSupport.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace kvscenario {

namespace {

using kvtest::appendIds;
using kvtest::id;
using kvtest::kPageSlots;
using kvtest::kRunMain;
using kvtest::kTwin;
using kvtest::plainItems;
using kvtest::plainRun;

bool isEven(unsigned long n) {
    return n % 2 == 0;
}

bool isThird(unsigned long n) {
    return n % 3 == 0;
}

// ---- the hash of ids: many ids, and more look-ups than it costs to make the hash

Scenario hashOfIds() {
    Script script;
    script.findMain(0, 1, 30);
    script.findMain(0, 290, 20);
    script.select(0, {301});
    script.selectAll(0, plainItems(302, 90));
    script.select(0, {7});
    script.select(0, {7, 1});
    script.select(0, {7, 2, 3, {5, 6}, 1.5});
    script.find(0, {7, 1});
    script.find(0, {7, 2, 3, {5, 6}});
    script.remove(0, 8);
    script.removeAt(0, 3);
    script.remove(0, 7, 1, -1);
    script.removeSub(0, 10, 0);
    script.compare(0, 1);
    script.compare(1, 0);
    script.copy(2, 0);
    script.findMain(2, 100, 40);
    script.select(2, {900});
    script.findMain(2, 100, 40);
    script.selectAll(2, plainItems(901, 60));
    script.remove(2, 905);
    script.merge(3, 0, 1);
    script.findMain(3, 380, 40);
    script.minus(4, 3, 1);
    script.findMain(4, 1, 40);
    script.clear(2);
    script.select(2, {5});
    script.findMain(1, 200, 40);
    script.assign(2, 1);
    script.remove(2, 250);
    script.setUnique(0, false);
    script.select(0, {11});
    script.walk(0);
    script.setUnique(0, true);
    script.getAt(0, 100);
    script.findForWriting(0, 50);
    script.updateDataMap(0);
    script.findMain(0, 1, 60);
    script.transfer(0, 2, 4, isEven);
    script.compare(2, 0);
    return {"HashOfIds", 450, false,
            [](World& world) {
                appendIds(world.set(0), 1, 300);
                appendIds(world.set(1), 200, 200);
            },
            script.take()};
}

// ---- bitmaps of pages with holes, the page index, and first writes of sets of several pages

// Leaves every eighth item. Deletes the records of the others.
void makeHoles(GxapSelectSet& set) {
    std::vector<std::unique_ptr<selected_entity>> records;
    for (const auto* slot : kvtest::occupiedSlots(*set.sharedData->entities)) {
        if (kvtest::numberOf(slot->value->mainEntId) % 8 != 0)
            records.emplace_back(slot->value);
    }
    for (const auto& record : records)
        kvtest::edit(set).remove(record->mainEntId);
}

void removeIds(Script& script, std::size_t set, unsigned long first, unsigned long count) {
    script.step(
        "remove " + std::to_string(count) + " ids",
        [=](World& world) {
            for (unsigned long n = first; n < first + count; ++n)
                world.edit(set).remove(id(n));
        },
        Left::kWholeItems);
}

Scenario occupancyBitmaps() {
    Script script;
    script.getAt(0, 700);
    script.getAt(0, 1500);
    script.findMain(0, 4 * kPageSlots - 4200, 20);
    script.findMain(0, 5000, 40);
    script.holdIterators(0, 12);
    script.removeAt(0, 600);
    script.removeAt(0, 1200);
    script.remove(0, 8008);
    script.getAt(0, 900);
    script.findMain(0, 9000, 20);
    script.select(0, {20000});
    script.select(0, {20001, 1, 2, {3}, 1.5});
    script.getAt(0, 1533);
    script.selectAll(1, plainItems(30000, 12));
    script.findMain(1, 30000, 12);
    script.getAt(1, 4095);
    script.copy(2, 0);
    script.findMain(2, 8000, 40);
    script.getAt(2, 800);
    script.select(2, {20002});
    script.removeAt(2, 100);
    script.removeAt(2, 101);
    script.getAt(2, 900);
    script.findMain(2, 9000, 20);
    script.updateDataMap(0);
    script.getAt(0, 1000);
    script.findMain(0, 10000, 20);
    removeIds(script, 0, 1, kPageSlots);
    script.getAt(0, 500);
    script.findMain(0, 10000, 40);
    script.compare(2, 0);
    script.merge(3, 2, 0);
    script.minus(4, 2, 0);
    script.getAt(4, 100);
    script.setUnique(2, false);
    script.appendRecordOf(2, 0, 3);
    script.setUnique(2, true);
    script.clone(3, 2);
    script.getAt(3, 600);
    script.clear(3);
    script.walk(2);
    return {"OccupancyBitmaps", 500, false,
            [](World& world) {
                appendIds(world.set(0), 1, 3 * kPageSlots + 50);
                makeHoles(world.set(0));
                appendIds(world.set(1), 1, kPageSlots - 4);
            },
            script.take()};
}

// ---- long runs: many items of one main id, with equal sub ids and different paths

Items mixedRun(unsigned long count) {
    Items run;
    for (unsigned long n = 0; n < count; ++n)
        run.push_back({kRunMain, 1 + n % 20, -1, {1 + n / 20, 1 + n % 3}});
    return run;
}

const Items kWanted{{kRunMain, 9999}, {kRunMain, 5}, {kRunMain, 5, -1, {1, 2}}, {kRunMain, 99, -1, {7}}};

const Items kAdded{
    {kRunMain, 101}, {kRunMain, 5, -1, {3}}, {kRunMain, 5, -1, {40, 41, 42}}, {kRunMain, 7, 4}};

Scenario longRuns() {
    Script script;
    script.find(0, {kRunMain, 9999});
    script.findInRun(0, kWanted);
    script.select(0, {kRunMain, 101});
    script.select(0, {kRunMain, 5, -1, {3}});
    script.select(0, {kRunMain, 5, -1, {40, 41, 42}, 2.5});
    script.select(0, {kRunMain, 5});
    for (long marker = 1; marker <= 6; ++marker)
        script.select(0, {kRunMain, 7, marker});
    script.find(0, {kRunMain, 7, 6});
    script.findInRun(0, kAdded);
    script.select(0, {kRunMain, 101});
    script.select(0, {kRunMain, 5, -1, {40, 41, 42}, 2.5});
    script.select(0, {kRunMain, 7, 4});
    script.findInRun(0, kWanted);
    script.setPath(0, 20, {8, 9});
    script.setPath(0, 21, {51, 52, 53});
    script.find(0, {kRunMain, 21, -1, {8, 9}});
    script.remove(0, kRunMain, 7, 3);
    script.removeAt(0, 30);
    script.copy(1, 0);
    script.findInRun(1, kWanted);
    script.select(1, {kRunMain, 200, 1, {60}});
    script.findInRun(1, kWanted);
    script.setPath(1, 40, {61});
    script.remove(1, kRunMain, 40, -1);
    script.find(1, {kRunMain, 200, 1, {60}});
    script.findInRun(2, kWanted);
    script.compare(0, 2);
    script.merge(3, 0, 2);
    script.findInRun(3, kWanted);
    script.minus(4, 3, 0);
    script.transfer(2, 4, 3, isThird);
    script.removeSub(1, kRunMain, 41);
    script.findInRun(1, kWanted);
    script.remove(3, kRunMain);
    script.select(3, {kRunMain, 1});
    script.setUnique(2, false);
    script.appendRecordOf(2, 0, 5);
    script.setUnique(2, true);
    return {"LongRuns", 1000, false,
            [](World& world) {
                kvtest::fill(world.set(0), kvtest::between(plainRun(90)));
                kvtest::fill(world.set(2), mixedRun(120));
            },
            script.take()};
}

// ---- highlight paths that several records share

Scenario sharedPaths() {
    Script script;
    script.addSegment(0, 0, 0);
    script.addSegment(0, 0, 6);
    script.addSegment(0, 1, 1);
    script.addSegment(0, 3, 3);
    script.draw(0, true);
    script.copy(1, 0);
    script.addSegment(1, 0, 7);
    script.clearSegments(1, 1);
    script.addSegment(1, 2, 8);
    script.copy(2, 1);
    script.draw(2, true);
    script.addSegment(2, 3, 9);
    script.addSegment(2, 3, 10);
    script.clone(3, 2);
    script.addSegment(3, 0, 4);
    script.clearSegments(0, 0);
    script.removeAt(3, 1);
    script.removeAt(2, 0);
    script.draw(1, false);
    script.copy(4, 3);
    script.setViewports(4, 1, 3);
    script.addSegment(4, 1, 11);
    script.clear(3);
    script.assign(3, 4);
    script.clearSegments(3, 2);
    script.select(3, {7, 1, 2, {3, 4}, 1.5});
    script.draw(4, true);
    script.copy(0, 4);
    script.addSegment(0, 3, 2);
    script.addSegment(0, 3, 3);
    script.draw(0, false);
    script.createData(4);
    script.selectEntity(4, 2);
    script.addSegment(4, 0, 2);
    script.merge(4, 4, 0);
    script.clearSegments(4, 0);
    script.minus(2, 2, 1);
    script.walk(0);
    return {"SharedPaths", 380, false,
            [](World& world) {
                for (std::size_t i = 0; i < 4; ++i) {
                    world.edit(0).append(world.drawing.entity(i), GxDbObjectId());
                    kvtest::edit(world.set(0))
                        .iteratorAt(static_cast<int>(i))
                        .setHighlightSegment(&world.drawing.part(i));
                }
            },
            script.take()};
}

// ---- the list of named sets

Scenario namedSets() {
    Script script;
    script.newNamed(0);
    script.selectInNamed(0, {1, 2, 3, {4}, 1.5});
    script.selectInNamed(0, {2});
    script.addNamed(1, 0);
    script.selectInNamed(1, {200});
    script.copyNamed(1, 1);
    script.select(1, {201, 1});
    script.shareList();
    script.addNamed(2, 1);
    script.mergeIntoNamed(2, 0);
    script.mergeIntoNamed(0, 1);
    script.deleteNamed(1);
    script.newNamed(1);
    script.selectInNamed(1, {5});
    script.copyNamed(2, 0);
    script.findMain(2, 1, 20);
    script.remove(2, 2);
    script.deleteNamed(0);
    script.addNamed(0, 2);
    script.copyNamed(3, 2);
    script.minus(3, 3, 0);
    script.addNamed(3, 3);
    script.selectInNamed(3, {6, 1, 0, {2}});
    script.clear(0);
    script.mergeIntoNamed(0, 3);
    script.transfer(2, 0, 4, isEven);
    script.deleteNamed(2);
    script.walk(2);
    return {"NamedSets", 480, false, [](World& world) { appendIds(world.set(0), 1, 120); }, script.take()};
}

// ---- sub-selections

// Gives the item of entity i a sub-selection of part i.
void giveSubselection(World& world, std::size_t i) {
    world.edit(0).append(world.drawing.entity(i), GxDbObjectId());
    selected_entity& record = *kvtest::recordAt(world.set(0), i);
    record.hasSubselPaths = true;
    record.subselPathArray = new kvtest::SegmentArray;
    kvtest::append(*record.subselPathArray, new GxDbFullSubentPath(world.drawing.part(i)));
}

Scenario subselections() {
    Script script;
    script.subselect(0, 6);
    script.subselect(0, 7);
    script.findSubselected(0, 6);
    script.getSubselected(0, 0, 1);
    script.copy(1, 0);
    script.subselect(1, 8);
    script.findSubselected(1, 8);
    script.findSubselected(0, 0);
    script.unselect(1, 7);
    script.copy(2, 1);
    script.findSubselected(2, 2);
    script.unselectAt(2, 0, 1);
    script.subselect(2, 6);
    script.unselectAt(2, 1, 0);
    script.subselectNewItem(0, 5);
    script.subselectNewItem(2, 4);
    script.subselect(0, 5);
    script.selectEntity(1, 3);
    script.copy(3, 0);
    script.unselect(3, 2);
    script.unselect(3, 0);
    script.unselect(3, 6);
    script.addSegment(3, 0, 1);
    script.clone(4, 3);
    script.subselect(4, 7);
    script.getSubselected(4, 0, 1);
    script.merge(4, 4, 1);
    script.minus(3, 3, 0);
    script.walk(4);
    return {"Subselections", 240, false,
            [](World& world) {
                for (std::size_t i = 0; i < 3; ++i)
                    giveSubselection(world, i);
            },
            script.take()};
}

// ---- copies, and the first write to each

Scenario firstWrites() {
    Script script;
    script.copy(1, 0);
    script.select(1, {800});
    script.copy(2, 0);
    script.remove(2, 3);
    script.copy(3, 0);
    script.removeAt(3, 10);
    script.assign(3, 0);
    script.setUnique(3, false);
    script.select(3, {5, 1, 2, {3}, 1.5});
    script.copy(4, 3);
    script.setUnique(4, true);
    script.assign(4, 0);
    script.setNestedMode(4, true);
    script.assign(1, 4);
    script.findForWriting(1, 20);
    script.setViewports(1, 3, 4);
    script.copy(2, 1);
    script.setPath(2, 6, {1, 2});
    script.holdIterators(2, 20);
    script.assign(3, 2);
    script.clear(3);
    script.selectAll(3, plainItems(1, 40));
    script.assign(2, 3);
    script.write(2);
    script.copy(4, 2);
    script.removeSub(4, 7, 0);
    script.copy(3, 4);
    script.remove(3, 8, 0, -1);
    script.appendRecordOf(3, 0, 2);
    script.createData(4);
    script.select(4, {1});
    script.clone(4, 0);
    script.select(4, {900, 1, 2, {3, 4, 5}, 2.5});
    script.compare(4, 0);
    script.walk(1);
    return {"FirstWrites", 2000, false,
            [](World& world) {
                appendIds(world.set(0), 1, 60);
                for (unsigned long n = 1; n <= 30; ++n)
                    kvtest::select(world.set(0), {n, n, 1, {n, n + 1}, 1.5});
            },
            script.take()};
}

// ---- set algebra

Items richItems(unsigned long first, unsigned long count) {
    Items items;
    for (unsigned long n = first; n < first + count; ++n)
        items.push_back({n, n % 4, static_cast<long>(n % 3) - 1, {n % 5, n % 7}, n % 6 == 0 ? 1.5 : 0});
    return items;
}

void combine(Script& script) {
    script.merge(2, 0, 1);
    script.minus(3, 2, 1);
    script.minus(3, 3, 0);
    script.transfer(2, 3, 4, isEven);
    script.merge(3, 3, 4);
    script.compare(2, 3);
    script.copy(4, 2);
    script.merge(4, 4, 0);
    script.minus(4, 4, 4);
    script.assign(4, 0);
    script.setUnique(4, false);
    script.appendRecordOf(4, 1, 3);
    script.appendRecordOf(4, 0, 3);
    script.merge(2, 4, 1);
    script.setUnique(2, true);
    script.setNestedMode(1, true);
    script.merge(3, 0, 1);
    script.copy(0, 3);
    script.transfer(1, 0, 0, isThird);
    script.minus(0, 3, 1);
    script.merge(4, 0, 3);
    script.compare(3, 4);
    script.walk(4);
}

Scenario algebra() {
    Script script;
    combine(script);
    return {"Algebra", 1300, false,
            [](World& world) {
                kvtest::fill(world.set(0), richItems(1, 70));
                kvtest::fill(world.set(1), richItems(40, 60));
            },
            script.take()};
}

// Items of ids that are equal although distinct. They cannot be sorted by their stubs, so every operation
// goes on item by item.
Items twinItems(unsigned long count) {
    Items items;
    for (unsigned long n = 1; n <= count; ++n)
        items.push_back({n % 2 == 0 ? n : n + kTwin, n % 4, -1, {n % 3 == 0 ? n + kTwin : n}});
    return items;
}

Scenario equalIds() {
    Script script;
    combine(script);
    script.find(0, {3, 3, -1, {3}});
    script.findInRun(0, twinItems(50));
    script.select(0, {5 + kTwin, 1, -1, {5 + kTwin}});
    script.remove(0, 6 + kTwin);
    script.updateDataMap(0);
    return {"EqualIds", 1200, true,
            [](World& world) {
                kvtest::fill(world.set(0), twinItems(50));
                kvtest::fill(world.set(1), richItems(20, 50));
            },
            script.take()};
}

} // namespace

std::vector<Scenario> scenarios() {
    return {hashOfIds(),     occupancyBitmaps(), longRuns(), sharedPaths(), namedSets(),
            subselections(), firstWrites(),      algebra(),  equalIds()};
}

} // namespace kvscenario
