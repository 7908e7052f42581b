#include "tests/selectcontext/scenarios/Script.h"

#include "tests/selectcontext/support/LongRunTestSupport.h"
#include "tests/selectcontext/support/RecordTestSupport.h"

#include <memory>
#include <new>
#include <sstream>
#include <utility>

namespace kvscenario {

namespace {

using kvtest::id;
using OwnedInfo = std::unique_ptr<GxapSelectedEntInfo, kvtest::InfoFreer>;

// Makes an info whose block transform moves the item by x. Unlike makeInfoMovedBy(), may run out of memory.
OwnedInfo infoMovedBy(double x) {
    void* const memory = _kvMalloc(sizeof(GxapSelectedEntInfo));
    if (!memory)
        throw std::bad_alloc();
    OwnedInfo info(new (memory) GxapSelectedEntInfo());
    info->setCompoundTransformWithBTROffset(kvtest::matrixMovedBy(x));
    return info;
}

// An item and its path. The path is made with the script, so that making it never runs out of memory.
struct Pick {
    explicit Pick(const Item& ofItem) : item(ofItem), path(kvtest::pathOf(ofItem)) {}

    Item item;
    kvtest::IdPath path;
};

std::vector<Pick> picksOf(const Items& items) {
    return std::vector<Pick>(items.begin(), items.end());
}

void select(GxapSelectSet& set, const Pick& pick) {
    const Item& item = pick.item;
    OwnedInfo info = item.moved != 0 ? infoMovedBy(item.moved) : nullptr;
    kvtest::edit(set).select(id(item.main), id(item.sub), item.marker, info.release(), &pick.path);
}

// Returns the number of the record's main id, or -1 without a record.
long mainOf(const selected_entity* record) {
    return record ? static_cast<long>(kvtest::numberOf(record->mainEntId)) : -1;
}

class Excluder : public IGxapSSetEntityExcluder {
public:
    explicit Excluder(const Script::Rule& rule) : mRule(rule) {}
    bool isExcluded(GxDbObjectId mainEntId) override { return mRule(kvtest::numberOf(mainEntId)); }

private:
    const Script::Rule& mRule;
};

GxapSelectSetList& namedSets() {
    return *GxapSelectSetListManager::getInstance()->list;
}

GxapSelectSet& namedSet(World& world, std::size_t name) {
    return *namedSets().getSSetByName(world.names.at(name).data());
}

template <class... Parts>
std::string text(const Parts&... parts) {
    std::ostringstream out;
    (out << ... << parts);
    return out.str();
}

} // namespace

// ---- edits of one item

void Script::select(std::size_t set, const Item& item) {
    step(text("select ", item, " in ", set),
         [=, pick = Pick(item)](World& world) { kvscenario::select(world.set(set), pick); });
}

void Script::selectAll(std::size_t set, const Items& items) {
    step(
        text("select ", items.size(), " items in ", set),
        [=, picks = picksOf(items)](World& world) {
            for (const Pick& pick : picks)
                kvscenario::select(world.set(set), pick);
        },
        Left::kWholeItems);
}

void Script::appendRecordOf(std::size_t set, std::size_t source, int position) {
    step(text("append record ", position, " of ", source, " to ", set),
         [=](World& world) { world.answer(world.edit(set).append(world.set(source).getAt(position))); });
}

void Script::selectEntity(std::size_t set, std::size_t entity) {
    step(text("select entity ", entity, " in ", set),
         [=](World& world) { world.edit(set).append(world.drawing.entity(entity), GxDbObjectId()); });
}

void Script::remove(std::size_t set, unsigned long main) {
    step(text("remove ", main, " from ", set),
         [=](World& world) { world.answer(world.edit(set).remove(id(main))); });
}

// remove() with two ids takes the items of other sub ids out of the index, too.
void Script::removeSub(std::size_t set, unsigned long main, unsigned long sub) {
    step(
        text("remove ", main, ' ', sub, " from ", set, " and update its index"),
        [=](World& world) {
            world.edit(set).remove(id(main), id(sub));
            world.edit(set).updateDataMap();
        },
        Left::kPartOfIndex);
}

void Script::remove(std::size_t set, unsigned long main, unsigned long sub, long marker) {
    step(text("remove ", main, ' ', sub, ' ', marker, " from ", set),
         [=](World& world) { world.answer(world.edit(set).remove(id(main), id(sub), marker)); });
}

void Script::removeAt(std::size_t set, int position) {
    step(text("remove item ", position, " from ", set),
         [=](World& world) { world.answer(world.edit(set).removeAt(position)); });
}

void Script::setPath(std::size_t set, int position, std::initializer_list<kvtest::AnyId> path) {
    step(text("set the path of item ", position, " in ", set),
         [=, ids = kvtest::idVector(path)](World& world) {
             world.edit(set).iteratorAt(position).setNestedEntFullPath(ids);
         });
}

void Script::setViewports(std::size_t set, int position, int count) {
    step(text("set the viewports of item ", position, " in ", set), [=](World& world) {
        KvVector<int> viewports;
        viewports.setLogicalLength(count);
        selected_entity** const slot = world.edit(set).getAt(position);
        (*slot)->hlVpArray = viewports;
    });
}

// ---- look-ups

void Script::find(std::size_t set, const Item& item) {
    step(text("find ", item, " in ", set), [=, path = kvtest::pathOf(item)](World& world) {
        world.answer(world.set(set).find(id(item.main), id(item.sub)));
        world.answer(world.set(set).find(id(item.main), id(item.sub), item.marker));
        world.answer(world.set(set).find(id(item.main), id(item.sub), item.marker, &path));
    });
}

void Script::findMain(std::size_t set, unsigned long first, unsigned long count) {
    step(text("find ", count, " ids in ", set), [=](World& world) {
        for (unsigned long n = first; n < first + count; ++n)
            world.answer(world.set(set).find(id(n)));
    });
}

void Script::findInRun(std::size_t set, const Items& items) {
    step(text("find ", items.size(), " items in ", set), [=, picks = picksOf(items)](World& world) {
        for (const auto& [item, path] : picks) {
            world.answer(world.set(set).find(id(item.main), id(item.sub), item.marker));
            world.answer(world.set(set).find(id(item.main), id(item.sub), item.marker, &path));
        }
    });
}

void Script::findForWriting(std::size_t set, unsigned long main) {
    step(text("find ", main, " for writing in ", set), [=](World& world) {
        world.answer(static_cast<long>(kvtest::at(world.edit(set).findItr(id(main)))));
        world.answer(static_cast<long>(kvtest::at(world.edit(set).findMainSubsel(id(main)))));
    });
}

void Script::getAt(std::size_t set, int position) {
    step(text("get item ", position, " of ", set),
         [=](World& world) { world.answer(mainOf(world.set(set).getAt(position))); });
}

void Script::walk(std::size_t set) {
    step(text("walk through ", set), [=](World& world) {
        long sum = 0;
        for (auto it = world.set(set).begin(); !it.isDone(); it.step())
            sum += mainOf(it.get()) * (it.index + 1);
        world.answer(sum);
    });
}

void Script::holdIterators(std::size_t set, int count) {
    step(text("hold ", count, " iterators of ", set), [=](World& world) {
        std::vector<GxapSelectSet::ConstIterator> held;
        held.reserve(static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i) {
            held.push_back(world.set(set).iteratorAt(i));
            held.front() = held.back();
        }
        GxapSelectSet::ConstIterator before = held.back();
        world.answer(held.back().getPrevIterator(before));
        world.answer(mainOf(before.get()));
    });
}

void Script::compare(std::size_t set, std::size_t other) {
    step(text("compare ", set, " with ", other), [=](World& world) {
        world.answer(world.set(set).contains(&world.set(other)));
        world.answer(world.set(set).intersectedWith(&world.set(other)));
    });
}

// ---- whole sets

void Script::copy(std::size_t to, std::size_t from) {
    step(text("make ", to, " a copy of ", from), [=](World& world) {
        auto made = std::make_unique<GxapSelectSet>(world.set(from));
        world.sets.at(to) = std::move(made);
    });
}

void Script::assign(std::size_t to, std::size_t from) {
    step(text("assign ", from, " to ", to), [=](World& world) { world.set(to) = world.set(from); });
}

void Script::clone(std::size_t to, std::size_t from) {
    step(text("clone ", from, " into ", to),
         [=](World& world) { world.set(to).assignData(world.set(from).sharedData->clone()); });
}

void Script::write(std::size_t set) {
    step(text("make ", set, " private"), [=](World& world) { world.edit(set).writeData(); });
}

void Script::clear(std::size_t set) {
    step(text("clear ", set), [=](World& world) { world.edit(set).clear(); });
}

void Script::createData(std::size_t set) {
    step(text("make new data for ", set), [=](World& world) { world.set(set).createData(); });
}

void Script::merge(std::size_t to, std::size_t a, std::size_t b) {
    step(
        text("merge ", a, " and ", b, " into ", to),
        [=](World& world) { world.edit(to).merge(&world.set(a), &world.set(b)); }, Left::kWholeItems);
}

void Script::minus(std::size_t to, std::size_t a, std::size_t b) {
    step(
        text("subtract ", b, " from ", a, " into ", to),
        [=](World& world) { world.edit(to).minus(&world.set(a), &world.set(b)); }, Left::kWholeItems);
}

void Script::transfer(std::size_t from, std::size_t target, std::size_t excludedOut, Rule excluded) {
    step(
        text("transfer ", from, " to ", target, " and ", excludedOut),
        [=](World& world) {
            Excluder excluder(excluded);
            world.set(from).transfer(world.set(target), &excluder, &world.set(excludedOut));
        },
        Left::kWholeItems);
}

void Script::setUnique(std::size_t set, bool on) {
    step(text("set unique ", on, " in ", set), [=](World& world) { world.edit(set).setUnique(on); });
}

void Script::setNestedMode(std::size_t set, bool on) {
    step(text("set nested mode ", on, " in ", set),
         [=](World& world) { world.edit(set).setSelectByNestedMode(on); });
}

void Script::updateDataMap(std::size_t set) {
    step(
        text("update the index of ", set), [=](World& world) { world.edit(set).updateDataMap(); },
        Left::kPartOfIndex);
}

// ---- highlight segments

void Script::addSegment(std::size_t set, int position, std::size_t part) {
    step(text("add segment ", part, " to item ", position, " of ", set), [=](World& world) {
        GxapSelectSet::Iterator it = world.edit(set).iteratorAt(position);
        world.edit(set).setHighlightSegment(it, &world.drawing.part(part));
    });
}

void Script::clearSegments(std::size_t set, int position) {
    step(text("clear the segments of item ", position, " of ", set), [=](World& world) {
        GxapSelectSet::Iterator it = world.edit(set).iteratorAt(position);
        world.edit(set).setHighlightSegment(it, nullptr);
    });
}

void Script::draw(std::size_t set, bool highlight) {
    step(text("draw ", set), [=](World& world) { world.set(set).draw(true, highlight); });
}

// ---- sub-selections

void Script::subselect(std::size_t set, std::size_t part) {
    step(text("sub-select part ", part, " in ", set), [=](World& world) {
        world.answer(world.edit(set).appendSubentPathSubsel(world.drawing.part(part)));
        world.noteSubselections();
    });
}

// The copy of the path has no owner. World finds it in the log of the database.
void Script::subselectNewItem(std::size_t set, std::size_t part) {
    step(text("sub-select part ", part, " of a new item in ", set), [=](World& world) {
        const Logging logging;
        world.answer(world.edit(set).appendSubentPathSubsel(world.drawing.part(part)));
        world.leavesPathCopies = true;
    });
}

void Script::findSubselected(std::size_t set, std::size_t part) {
    step(text("find part ", part, " in ", set), [=](World& world) {
        const GxDbObjectId& entity = world.drawing.entity(part % kEntities);
        world.answer(world.set(set).findSubentPathSubsel(entity, world.drawing.part(part)));
    });
}

void Script::getSubselected(std::size_t set, int position, int part) {
    step(text("get part ", part, " of item ", position, " of ", set), [=](World& world) {
        GxDbFullSubentPath path;
        world.answer(world.set(set).getSubentPathAtSubsel(position, part, path));
        world.answer(path.subentId().index);
    });
}

void Script::unselect(std::size_t set, std::size_t part) {
    step(text("unselect part ", part, " in ", set), [=](World& world) {
        world.answer(world.edit(set).removeSubentPathSubsel(world.drawing.part(part)));
    });
}

void Script::unselectAt(std::size_t set, int position, int part) {
    step(text("unselect part ", part, " of item ", position, " in ", set),
         [=](World& world) { world.answer(world.edit(set).removeSubentPathAtSubsel(position, part)); });
}

// ---- named sets

// newSelectSet() and addSelectSet() return null if there is no memory for the set itself.
void Script::newNamed(std::size_t name) {
    step(text("make named set ", name), [=](World& world) {
        if (!namedSets().newSelectSet(world.names.at(name).data()))
            throw std::bad_alloc();
    });
}

void Script::addNamed(std::size_t name, std::size_t set) {
    step(text("add ", set, " as named set ", name), [=](World& world) {
        if (!namedSets().addSelectSet(world.set(set), world.names.at(name).data()))
            throw std::bad_alloc();
    });
}

void Script::selectInNamed(std::size_t name, const Item& item) {
    step(text("select ", item, " in named set ", name),
         [=, pick = Pick(item)](World& world) { kvscenario::select(namedSet(world, name), pick); });
}

void Script::mergeIntoNamed(std::size_t name, std::size_t set) {
    step(
        text("merge ", set, " into named set ", name),
        [=](World& world) {
            GxapSelectSet& named = namedSet(world, name);
            kvtest::edit(named).merge(&named, &world.set(set));
        },
        Left::kWholeItems);
}

void Script::copyNamed(std::size_t to, std::size_t name) {
    step(text("assign named set ", name, " to ", to),
         [=](World& world) { world.set(to) = namedSet(world, name); });
}

void Script::deleteNamed(std::size_t name) {
    step(text("delete named set ", name),
         [=](World& world) { namedSets().delSelectSet(world.names.at(name).data()); });
}

void Script::shareList() {
    step("share the list of named sets", [](World& world) {
        world.list = std::make_unique<GxapSSListSmartPtr>(*GxapSelectSetListManager::getInstance());
    });
}

} // namespace kvscenario
