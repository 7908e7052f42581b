#include "examples/picker/Session.h"

#include "aids/Inspect.h"
#include "examples/picker/SvgReader.h"

#include <algorithm>
#include <new>

namespace picker {
namespace {

GxGeMatrix3d toMatrix(const Affine& affine) {
    GxGeMatrix3d matrix;
    matrix.entry[0][0] = affine.a;
    matrix.entry[1][0] = affine.b;
    matrix.entry[0][1] = affine.c;
    matrix.entry[1][1] = affine.d;
    matrix.entry[0][3] = affine.e;
    matrix.entry[1][3] = affine.f;
    return matrix;
}

// Returns null for a pick that needs no info.
kv::OwnedInfo infoOf(const Pick& pick) {
    if (!pick.isNested() && !pick.crossing)
        return nullptr;
    kv::InfoFields fields;
    if (pick.isNested())
        fields.transform = toMatrix(pick.placement);
    if (pick.crossing)
        fields.fence = {pick.crossing->segment, 0, pick.crossing->parameter};
    return kv::makeInfo(fields);
}

GxapSSetWriteAccessor& accessorOf(GxapSelectSet& set) {
    return static_cast<GxapSSetWriteAccessor&>(set);
}

// Keeps the highlights right while an edit may copy records. An entity counts one highlight for each record
// that highlights a part of it. If an edit copies records, the originals belong to another set and stay
// highlighted. showCopies() then highlights the parts of the copies, too.
class CopyWatch {
public:
    explicit CopyWatch(const GxapSelectSet& set) : CopyWatch(set, {set.sharedData}) {}
    // If the set has one of the data `known` after the edit, the edit has made no copies.
    CopyWatch(const GxapSelectSet& set, std::vector<const GxapSelectSet::SSetData*> known)
        : mSet(set), mKnown(std::move(known)) {}

    void showCopies() const {
        if (std::find(mKnown.begin(), mKnown.end(), mSet.sharedData) == mKnown.end())
            mSet.draw(false, true);
    }

private:
    const GxapSelectSet& mSet;
    std::vector<const GxapSelectSet::SSetData*> mKnown;
};

// Makes the set's data private, for edits of its records.
GxapSSetWriteAccessor& unshared(GxapSelectSet& set) {
    const CopyWatch watch(set);
    accessorOf(set).writeData();
    watch.showCopies();
    return accessorOf(set);
}

void showRecord(const selected_entity& record, bool on) {
    if (record.highlightSegmentArray)
        gxutEntityGxDbFullPathHighlight(record.mainEntId, record.highlightSegmentArray, false, on);
}

// Turns off the highlights of records that an edit of private data has removed. Destroys the records, and
// returns their number.
std::uint32_t release(const kv::Records& removed) {
    for (const kv::Record& record : removed)
        showRecord(*record, false);
    return static_cast<std::uint32_t>(removed.size());
}

std::uint32_t release(const kv::Record& removed) {
    if (removed)
        showRecord(*removed, false);
    return removed ? 1 : 0;
}

bool hasAny(const GxapSelectSet& set, const std::function<bool(const selected_entity&)>& isWanted) {
    const kv::ItemRange range = kv::items(set);
    return std::any_of(range.begin(), range.end(), isWanted);
}

// Turns the highlights of a set off, before its records are destroyed. Does nothing if another set shares the
// records: they then stay, with their highlights.
void darken(const GxapSelectSet& set) {
    if (set.sharedData && set.sharedData->refCount < 2)
        set.draw(false, false);
}

void replace(GxapSelectSet& set, const GxapSelectSet& by) {
    if (set.sharedData == by.sharedData)
        return;
    darken(set);
    set = by;
}

// Excludes the items whose main entity in the drawing does not match the filter.
class FilterExcluder : public IGxapSSetEntityExcluder {
public:
    FilterExcluder(const BlockDefinition& model, const Filter& filter, std::set<GxDbObjectId>& matches)
        : mModel(model), mFilter(filter), mMatches(matches) {}

    bool isExcluded(GxDbObjectId mainId) override {
        const BlockDefinition::Content* content = mModel.find(mainId);
        if (!content || !mFilter(*content))
            return true;
        mMatches.insert(mainId);
        ++mMatched;
        return false;
    }

    std::uint32_t matched() const { return mMatched; }

private:
    const BlockDefinition& mModel;
    const Filter& mFilter;
    std::set<GxDbObjectId>& mMatches;
    std::uint32_t mMatched = 0;
};

GxDbFullSubentPath partOf(const std::vector<GxDbObjectId>& ids, std::int32_t type, long index) {
    GxDbFullSubentPath path;
    path.objectIds().setLogicalLength(static_cast<int>(ids.size()));
    for (std::size_t i = 0; i < ids.size(); ++i)
        path.objectIds().at(static_cast<int>(i)) = ids[i];
    path.subentId().type = type;
    path.subentId().index = index;
    return path;
}

bool hasSegment(const GxapSelectSet::ConstIterator& it, const GxDbFullSubentPath& path) {
    const KvVector<GxDbFullSubentPath*>* segments = it.highlightSegmentArray();
    for (int i = 0; segments && i < segments->logicalLength(); ++i) {
        if (*segments->at(i) == path)
            return true;
    }
    return false;
}

KvVector<GxDbObjectId> toVector(const std::vector<GxDbObjectId>& path) {
    KvVector<GxDbObjectId> ids;
    ids.setLogicalLength(static_cast<int>(path.size()));
    for (std::size_t i = 0; i < path.size(); ++i)
        ids.at(static_cast<int>(i)) = path[i];
    return ids;
}

} // namespace

std::uint32_t itemCount(const GxapSelectSet& set) {
    return set.sharedData ? set.sharedData->entityCount : 0;
}

std::vector<GxDbObjectId> pathOf(const selected_entity& item) {
    const KvVector<GxDbObjectId>& nested = item.nestedEntFullPath;
    std::vector<GxDbObjectId> ids;
    ids.reserve(static_cast<std::size_t>(nested.logicalLength()));
    for (int i = 0; i < nested.logicalLength(); ++i)
        ids.push_back(nested.at(i));
    return ids.empty() ? std::vector<GxDbObjectId>{item.mainEntId} : ids;
}

Session::~Session() {
    GxapSelectSetListManager::destroy();
}

std::map<std::string, GxapSelectSet> Session::freshSets() {
    std::map<std::string, GxapSelectSet> sets;
    sets.try_emplace(kFirstSet);
    return sets;
}

void Session::load(const std::string& file) {
    load(readSvg(file));
    mFile = file;
}

void Session::load(const Scene& scene) {
    auto drawing = std::make_unique<const Drawing>(scene);
    dropAll();
    mSets = freshSets();
    mEdgePaths.destroyUnused({}); // no set has any
    mCurrent = kFirstSet;
    mFile.clear();
    mDrawing = std::move(drawing);
}

const Drawing& Session::drawing() const {
    if (!mDrawing)
        throw CommandError("there is no drawing yet: load FILE");
    return *mDrawing;
}

const GxapSelectSet& Session::set(const std::string& name) const {
    const auto found = mSets.find(name);
    if (found == mSets.end())
        throw CommandError("there is no set " + name);
    return found->second;
}

GxapSSetWriteAccessor& Session::edit() {
    return unshared(mSets.at(mCurrent));
}

void Session::use(const std::string& name) {
    mSets.try_emplace(name);
    mCurrent = name;
}

void Session::copyTo(const std::string& name) {
    assign(name, mCurrent);
}

void Session::assign(const std::string& target, const std::string& source) {
    const GxapSelectSet& from = set(source);
    replace(mSets[target], from);
}

void Session::unite(const std::string& target, const std::string& a, const std::string& b) {
    const GxapSelectSet& left = set(a);
    const GxapSelectSet& right = set(b);
    // merge() first replaces the contents of the set that it is called on. So it must not be called on a
    // target that is also the operand `right`. A separate set takes the union instead.
    GxapSelectSet sum;
    const CopyWatch watch(sum, {left.sharedData, right.sharedData});
    accessorOf(sum).merge(&left, &right);
    watch.showCopies();
    replace(mSets[target], sum);
}

void Session::subtract(const std::string& target, const std::string& a, const std::string& b) {
    const GxapSelectSet& right = set(b);
    GxapSelectSet rest = set(a);
    if (itemCount(rest) > 0 && itemCount(right) > 0)
        release(kv::takeMinus(unshared(rest), right));
    replace(mSets[target], rest);
}

Transfer Session::transfer(const Filter& filter, const std::string& target, std::set<GxDbObjectId>& mainIds) {
    if (target == mCurrent)
        throw CommandError("set " + target + " is the current one already");
    FilterExcluder excluder(drawing().model(), filter, mainIds);
    GxapSelectSet& to = mSets[target];
    const std::uint32_t before = itemCount(to);
    const CopyWatch watch(to);
    set().transfer(to, &excluder, nullptr);
    watch.showCopies();
    return {excluder.matched(), itemCount(to) - before};
}

Transfer Session::copyMatching(const Filter& filter, const std::string& target) {
    std::set<GxDbObjectId> mainIds;
    return transfer(filter, target, mainIds);
}

Transfer Session::moveMatching(const Filter& filter, const std::string& target) {
    std::set<GxDbObjectId> mainIds;
    const Transfer result = transfer(filter, target, mainIds);
    if (mainIds.empty())
        return result;
    GxapSSetWriteAccessor& from = edit();
    for (const GxDbObjectId id : mainIds)
        release(kv::take(from, id));
    return result;
}

// ---- edits of the current set

std::uint32_t Session::removeNearest(Point p, double aperture) {
    const std::optional<Pick> nearest = Picker(drawing()).nearest(p, aperture);
    return nearest ? removePlaced({nearest->path}) : 0;
}

std::uint32_t Session::removeInside(const Box& box) {
    std::set<std::vector<GxDbObjectId>> paths;
    Picker(drawing()).window(box, [&](const Pick& pick) { paths.insert(pick.path); });
    return removePlaced(paths);
}

std::uint32_t Session::removePaths(const std::vector<std::vector<GxDbObjectId>>& paths) {
    const std::set<std::vector<GxDbObjectId>> placed(paths.begin(), paths.end());
    return removeIf([&](const selected_entity& item) {
        return placed.count({item.mainEntId}) > 0 || placed.count(pathOf(item)) > 0;
    });
}

std::uint32_t Session::removePlaced(const std::set<std::vector<GxDbObjectId>>& paths) {
    return removeIf([&](const selected_entity& item) { return paths.count(pathOf(item)) > 0; });
}

void Session::expectPosition(int position) const {
    if (static_cast<std::uint32_t>(position) >= itemCount(set()))
        throw CommandError("set " + mCurrent + " has no item " + std::to_string(position));
}

std::uint32_t Session::removeAt(int position) {
    expectPosition(position);
    return release(kv::takeAt(edit(), position));
}

// Asks first, so that shared data stays shared if there is nothing to remove.
std::uint32_t Session::removeIf(const std::function<bool(const selected_entity&)>& isDoomed) {
    return hasAny(set(), isDoomed) ? release(kv::takeIf(edit(), isDoomed)) : 0;
}

std::uint32_t Session::setUnique(bool on) {
    if (set().sharedData && set().sharedData->unique == on)
        return 0;
    return release(kv::takeSetUnique(edit(), on));
}

void Session::clear() {
    darken(set());
    accessorOf(mSets.at(mCurrent)).clear();
}

// ---- edges

Tally Session::addEdge(Point p, double aperture) {
    const std::optional<Pick> nearest = Picker(drawing()).nearest(p, aperture);
    if (!nearest)
        return {};
    const GxDbFullSubentPath path = partOf(nearest->path, kEdgePart, nearest->gsMarker);
    const GxDbObjectId id = nearest->path.back();
    if (set().findSubentPathSubsel(id, path) >= 0)
        return {1, 0};
    const Item held = set().findMainSubsel(id);
    if (!held.isDone() && !held.get()->hasSubselPaths)
        throw CommandError(drawing().label(id) + " is in the set already, as an item without edges");
    if (!mEdgePaths.add(edit(), path))
        throw CommandError(drawing().label(id) + " takes no edges");
    return {1, 1};
}

void Session::removeEdge(int position, int edge) {
    expectPosition(position);
    const selected_entity* record = set().getAt(position);
    const int edges = record->hasSubselPaths ? record->subselPathArray->logicalLength() : 0;
    if (edge >= edges)
        throw CommandError("item " + std::to_string(position) + " has no edge " + std::to_string(edge));
    const bool isHighlighted = record->highlightSegmentArray != nullptr;
    unhighlight({position});
    release(kv::SubselectionPaths::removeAt(edit(), position, edge).item);
    if (isHighlighted && edges > 1)
        highlight({position});
}

// ---- highlights

void Session::highlight(const std::vector<int>& positions) {
    for (const int position : positions)
        expectPosition(position);
    for (const int position : positions) {
        GxapSelectSet::Iterator it = edit().iteratorAt(position);
        highlight(it);
    }
}

void Session::unhighlight(const std::vector<int>& positions) {
    for (const int position : positions)
        expectPosition(position);
    for (const int position : positions) {
        GxapSelectSet::Iterator it = edit().iteratorAt(position);
        unhighlight(it);
    }
}

void Session::highlightAll() {
    for (GxapSelectSet::Iterator it = edit().begin(); !it.isDone(); it.step())
        highlight(it);
}

void Session::unhighlightAll() {
    for (GxapSelectSet::Iterator it = edit().begin(); !it.isDone(); it.step())
        unhighlight(it);
}

// Highlights an item. First ends the previous highlights of the item: an entity counts highlights, and would
// count the item twice.
void Session::highlight(GxapSelectSet::Iterator& it) {
    unhighlight(it);
    const selected_entity& record = *it.get();
    if (record.hasSubselPaths) {
        const KvVector<GxDbFullSubentPath*>& edges = *record.subselPathArray;
        for (int i = 0; i < edges.logicalLength(); ++i)
            edit().setHighlightSegment(it, edges.at(i));
    } else {
        const GxDbFullSubentPath whole = partOf(pathOf(record), kWholePart, it.gsMarker());
        edit().setHighlightSegment(it, &whole);
    }
    set().draw(it, false, true);
}

void Session::unhighlight(GxapSelectSet::Iterator& it) {
    set().draw(it, false, false);
    edit().setHighlightSegment(it, nullptr);
}

std::optional<int> Session::highlightSegment(Point p, double aperture) {
    const std::optional<Pick> nearest = Picker(drawing()).nearest(p, aperture);
    if (!nearest)
        return std::nullopt;
    const bool isNested = nearest->isNested();
    const KvVector<GxDbObjectId> path = isNested ? toVector(nearest->path) : KvVector<GxDbObjectId>();
    const GxDbObjectId subId = isNested ? nearest->path.back() : GxDbObjectId::kNull;
    const int position = set().sharedData ? set().find(nearest->path.front(), subId, &path) : -1;
    if (position < 0)
        throw CommandError(drawing().label(nearest->path.back()) + " is not in set " + mCurrent);
    const GxDbFullSubentPath segment = partOf(nearest->path, kEdgePart, nearest->gsMarker);
    GxapSelectSet::Iterator it = edit().iteratorAt(position);
    if (hasSegment(it, segment))
        return position;
    set().draw(it, false, false);
    edit().setHighlightSegment(it, &segment);
    set().draw(it, false, true);
    return position;
}

// ---- sets with names

const GxapSelectSet& Session::saved(const std::string& name) const {
    const auto found = mSaved.find(name);
    const GxapSelectSet* set = nullptr;
    if (found != mSaved.end())
        set = GxapSelectSetListManager::getInstance()->list->getSSetByName(found->second.data());
    if (!set)
        throw CommandError("no set was saved as " + name);
    return *set;
}

const SetWords& Session::save(const std::string& name) {
    SetWords words{};
    if (!GxapSelectSetListManager::getInstance()->list->addSelectSet(set(), words.data()))
        throw std::bad_alloc();
    if (mSaved.count(name) > 0)
        drop(name);
    return mSaved[name] = words;
}

void Session::recall(const std::string& name) {
    replace(mSets.at(mCurrent), saved(name));
}

void Session::drop(const std::string& name) {
    darken(saved(name));
    GxapSelectSetListManager::getInstance()->list->delSelectSet(mSaved.at(name).data());
    mSaved.erase(name);
}

// Deletes the names first: they mean nothing without the list.
void Session::dropAll() {
    mSaved.clear();
    GxapSelectSetListManager::destroy();
}

Tally Session::pick(Point p, double aperture) {
    return collect([&](Picker& picker, const Picker::Found& found) {
        if (const std::optional<Pick> nearest = picker.nearest(p, aperture))
            found(*nearest);
    });
}

Tally Session::window(const Box& box) {
    return collect([&](Picker& picker, const Picker::Found& found) { picker.window(box, found); });
}

Tally Session::crossing(const Box& box) {
    return collect([&](Picker& picker, const Picker::Found& found) { picker.crossing(box, found); });
}

Tally Session::fence(const std::vector<Point>& chain) {
    return collect([&](Picker& picker, const Picker::Found& found) { picker.fence(chain, found); });
}

Tally Session::all() {
    return collect([](Picker& picker, const Picker::Found& found) { picker.all(found); });
}

Tally Session::byPaths(const std::vector<std::vector<GxDbObjectId>>& paths) {
    std::vector<Pick> picks;
    for (const std::vector<GxDbObjectId>& path : paths)
        picks.push_back(pickAt(path));
    return collect([&](Picker&, const Picker::Found& found) {
        for (const Pick& pick : picks)
            found(pick);
    });
}

Pick Session::pickAt(const std::vector<GxDbObjectId>& path) const {
    Pick pick;
    const BlockDefinition* block = &drawing().model();
    for (const GxDbObjectId id : path) {
        const BlockDefinition::Content* content = block ? block->find(id) : nullptr;
        if (!content)
            throw CommandError(
                drawing().label(id) + " is not " +
                (pick.path.empty() ? "in the drawing itself" : "in " + drawing().label(pick.path.back())));
        if (!pick.path.empty())
            pick.placement = pick.placement * drawing().reference(pick.path.back())->placement();
        pick.path.push_back(id);
        block = content->reference ? &content->reference->block() : nullptr;
    }
    return pick;
}

Tally Session::collect(const std::function<void(Picker&, const Picker::Found&)>& pick) {
    Picker picker(drawing());
    const std::uint32_t before = itemCount(set());
    Tally tally;
    pick(picker, [&](const Pick& found) {
        add(found);
        ++tally.found;
    });
    tally.added = itemCount(set()) - before;
    return tally;
}

void Session::add(const Pick& pick) {
    kv::OwnedInfo info = infoOf(pick);
    const bool isNested = pick.isNested();
    const KvVector<GxDbObjectId> path = isNested ? toVector(pick.path) : KvVector<GxDbObjectId>();
    const GxDbObjectId subId = isNested ? pick.path.back() : GxDbObjectId::kNull;
    GxapSelectSet& set = mSets.at(mCurrent);
    // Does not make the data private before select(). If the library refuses the item, shared data must stay
    // shared.
    const CopyWatch watch(set);
    // The set owns the info from this call on, even if the set refuses the item or runs out of memory.
    accessorOf(set).select(pick.path.front(), subId, pick.gsMarker, info.release(),
                           isNested ? &path : nullptr);
    watch.showCopies();
}

} // namespace picker
