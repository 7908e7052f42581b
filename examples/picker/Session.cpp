#include "examples/picker/Session.h"

#include "aids/Inspect.h"
#include "aids/Items.h"
#include "aids/Reclaim.h"
#include "aids/Schemes.h"
#include "examples/picker/SvgReader.h"

#include <algorithm>
#include <new>
#include <utility>

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

std::uint32_t countOf(const kv::Records& removed) {
    return static_cast<std::uint32_t>(removed.size());
}

bool hasHighlights(const GxapSelectSet& set) {
    const kv::ItemRange range = kv::items(set);
    return std::any_of(range.begin(), range.end(),
                       [](const selected_entity& item) { return item.highlightSegmentArray != nullptr; });
}

// Makes an item highlight its edges if it has any, and its whole path otherwise.
void setHighlights(GxapSSetWriteAccessor& edit, GxapSelectSet::Iterator& it) {
    edit.setHighlightSegment(it, nullptr);
    const selected_entity& record = *it.get();
    if (!record.hasSubselPaths) {
        const GxDbFullSubentPath whole = partOf(pathOf(record), kWholePart, it.gsMarker());
        edit.setHighlightSegment(it, &whole);
        return;
    }
    const KvVector<GxDbFullSubentPath*>& edges = *record.subselPathArray;
    for (int i = 0; i < edges.logicalLength(); ++i)
        edit.setHighlightSegment(it, edges.at(i));
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

using Paths = std::set<std::vector<GxDbObjectId>>;

// Adds the paths of ids of an item: that of its entity, or those of its edges.
void addPaths(const selected_entity& item, Paths& paths) {
    if (!item.hasSubselPaths) {
        paths.insert(pathOf(item));
        return;
    }
    const KvVector<GxDbFullSubentPath*>& edges = *item.subselPathArray;
    for (int i = 0; i < edges.logicalLength(); ++i) {
        const kvinmemory::PathContents path = kvinmemory::contentsOf(*edges.at(i));
        paths.insert({path.ids.begin(), path.ids.end()});
    }
}

// Returns whether the paths have this path, or one of a reference around its entity.
bool isCovered(const std::vector<GxDbObjectId>& path, const Paths& paths) {
    std::vector<GxDbObjectId> outer;
    return std::any_of(path.begin(), path.end(), [&](GxDbObjectId id) {
        outer.push_back(id);
        return paths.count(outer) > 0;
    });
}

} // namespace

// Sets as they are before an edit. Their data is shared until the edit changes it.
class Session::Before {
public:
    Before(Session& session, const std::vector<std::string>& names) : mSession(session) {
        for (const std::string& name : names) {
            const auto found = session.mSets.find(name);
            const bool isThere = found != session.mSets.end();
            mStates.emplace_back(name, isThere ? std::optional(found->second) : std::nullopt);
        }
    }

    // Makes the sets what they were.
    void restore() const {
        for (const auto& [name, state] : mStates) {
            if (state)
                mSession.mSets.at(name) = *state;
            else
                mSession.mSets.erase(name);
        }
    }

    // Adds the states of those sets that have changed to their histories.
    void remember() const {
        for (const auto& [name, state] : mStates) {
            if (state && state->sharedData != mSession.mSets.at(name).sharedData)
                mSession.mHistories.try_emplace(name, kMostUndos).first->second.remember(*state);
        }
    }

private:
    Session& mSession;
    std::vector<std::pair<std::string, std::optional<GxapSelectSet>>> mStates;
};

template <class Edit>
auto Session::editing(const std::vector<std::string>& names, Edit edit) -> decltype(edit()) {
    if (mIsInEdit)
        return edit();
    const Before before(*this, names);
    try {
        auto result = edit();
        before.remember();
        showHighlights();
        return result;
    } catch (...) {
        before.restore();
        throw;
    }
}

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
    load(readSvg(file, &mInterrupt));
    mFile = file;
}

void Session::load(const Scene& scene) {
    auto drawing = std::make_unique<const Drawing>(scene, &mInterrupt);
    dropAll();
    mHistories.clear();
    mPrevious.reset();
    mSets = freshSets();
    mEdgePaths.destroyUnused({}); // no set has any
    mHighlighter.forget();
    mCurrent = kFirstSet;
    mFile.clear();
    mDrawing = std::move(drawing);
}

void Session::noteWritten(const std::filesystem::path& file) {
    mWritten.insert(std::filesystem::absolute(file).lexically_normal());
}

bool Session::hasWritten(const std::filesystem::path& file) const {
    return mWritten.count(std::filesystem::absolute(file).lexically_normal()) > 0;
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
    GxapSSetWriteAccessor& accessor = accessorOf(mSets.at(mCurrent));
    accessor.writeData();
    return accessor;
}

void Session::showHighlights() {
    std::vector<const GxapSelectSet*> sets;
    for (const auto& [name, set] : mSets)
        sets.push_back(&set);
    for (const auto& [name, words] : mSaved)
        sets.push_back(&saved(name));
    mHighlighter.show(sets);
}

void Session::use(const std::string& name) {
    mSets.try_emplace(name);
    mCurrent = name;
}

void Session::copyTo(const std::string& name) {
    assign(name, mCurrent);
}

void Session::assign(const std::string& target, const std::string& source) {
    editing({target}, [&] {
        const GxapSelectSet& from = set(source);
        mSets[target] = from;
        return true;
    });
}

void Session::unite(const std::string& target, const std::string& a, const std::string& b) {
    editing({target}, [&] {
        const GxapSelectSet& left = set(a);
        const GxapSelectSet& right = set(b);
        // merge() first replaces the contents of the set that it is called on. So it must not be called on a
        // target that is also the operand `right`. A separate set takes the union instead.
        GxapSelectSet sum;
        accessorOf(sum).merge(&left, &right);
        mSets[target] = sum;
        return true;
    });
}

void Session::subtract(const std::string& target, const std::string& a, const std::string& b) {
    editing({target}, [&] {
        const GxapSelectSet& right = set(b);
        GxapSelectSet rest = set(a);
        kv::takeMinus(rest, right);
        mSets[target] = rest;
        return true;
    });
}

Transfer Session::transfer(const Filter& filter, const std::string& target, std::set<GxDbObjectId>& mainIds) {
    if (target == mCurrent)
        throw CommandError("set " + target + " is the current one already");
    FilterExcluder excluder(drawing().model(), filter, mainIds);
    GxapSelectSet& to = mSets[target];
    const std::uint32_t before = itemCount(to);
    set().transfer(to, &excluder, nullptr);
    return {excluder.matched(), itemCount(to) - before};
}

Transfer Session::copyMatching(const Filter& filter, const std::string& target) {
    std::set<GxDbObjectId> mainIds;
    return editing({target}, [&] { return transfer(filter, target, mainIds); });
}

Transfer Session::moveMatching(const Filter& filter, const std::string& target) {
    std::set<GxDbObjectId> mainIds;
    return editing({target, mCurrent}, [&] {
        const Transfer result = transfer(filter, target, mainIds);
        for (const GxDbObjectId id : mainIds)
            kv::take(mSets.at(mCurrent), id);
        return result;
    });
}

// ---- edits of the current set

std::uint32_t Session::removeNearest(Point p, double aperture) {
    const std::optional<Pick> nearest = Picker(drawing(), &mInterrupt).nearest(p, aperture);
    return nearest ? removePlaced({nearest->path}) : 0;
}

std::uint32_t Session::removeInside(const Box& box) {
    return removeFound([&](Picker& picker, const Picker::Found& found) { picker.window(box, found); });
}

std::uint32_t Session::removeCrossing(const Box& box) {
    return removeFound([&](Picker& picker, const Picker::Found& found) { picker.crossing(box, found); });
}

std::uint32_t Session::removeFence(const std::vector<Point>& chain) {
    return removeFound([&](Picker& picker, const Picker::Found& found) { picker.fence(chain, found); });
}

std::uint32_t Session::removeFound(const PickFunction& pick) {
    Paths paths;
    Picker picker(drawing(), &mInterrupt);
    pick(picker, [&](const Pick& found) { paths.insert(found.path); });
    return removePlaced(paths);
}

std::uint32_t Session::removePaths(const std::vector<std::vector<GxDbObjectId>>& paths) {
    const Paths placed(paths.begin(), paths.end());
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
    return editing({mCurrent}, [&] { return kv::takeAt(mSets.at(mCurrent), position) ? 1u : 0u; });
}

std::uint32_t Session::removeIf(const std::function<bool(const selected_entity&)>& isDoomed) {
    return editing({mCurrent}, [&] { return countOf(kv::takeIf(mSets.at(mCurrent), isDoomed)); });
}

std::uint32_t Session::setUnique(bool on) {
    return editing({mCurrent}, [&] { return countOf(kv::takeSetUnique(mSets.at(mCurrent), on)); });
}

void Session::clear() {
    const GxapSelectSet before = set();
    editing({mCurrent}, [&] {
        empty();
        return true;
    });
    if (itemCount(before) > 0)
        mPrevious = before;
}

// Removes all items. New data would refuse duplicates, so that flag is set anew.
void Session::empty() {
    const bool isUnique = !set().sharedData || set().sharedData->unique;
    accessorOf(mSets.at(mCurrent)).clear();
    kv::takeSetUnique(mSets.at(mCurrent), isUnique);
}

void Session::invert() {
    editing({mCurrent}, [&] {
        Paths covered;
        for (const selected_entity& item : kv::items(set()))
            addPaths(item, covered);
        std::vector<Pick> others;
        Picker(drawing(), &mInterrupt).all([&](const Pick& pick) {
            if (!isCovered(pick.path, covered))
                others.push_back(pick);
        });
        empty();
        for (const Pick& pick : others)
            add(pick);
        return true;
    });
}

Tally Session::addPrevious() {
    if (!mPrevious)
        throw CommandError("no set was cleared");
    return editing({mCurrent}, [&] {
        const std::uint32_t before = itemCount(set());
        if (before == 0)
            mSets.at(mCurrent) = *mPrevious;
        else
            kv::apply(mSets.at(mCurrent), kv::Scheme::kAdd, *mPrevious);
        return Tally{itemCount(*mPrevious), itemCount(set()) - before};
    });
}

void Session::asOneEdit(const std::function<void()>& edits) {
    editing({mCurrent}, [&] {
        mIsInEdit = true;
        try {
            edits();
        } catch (...) {
            mIsInEdit = false;
            throw;
        }
        mIsInEdit = false;
        return true;
    });
}

// ---- history

std::size_t Session::undos() const {
    const auto found = mHistories.find(mCurrent);
    return found == mHistories.end() ? 0 : found->second.undos();
}

std::size_t Session::redos() const {
    const auto found = mHistories.find(mCurrent);
    return found == mHistories.end() ? 0 : found->second.redos();
}

bool Session::undo() {
    return step(&kv::History::undo);
}

bool Session::redo() {
    return step(&kv::History::redo);
}

bool Session::step(bool (kv::History::*move)(GxapSelectSet&)) {
    const auto history = mHistories.find(mCurrent);
    if (history == mHistories.end() || !(history->second.*move)(mSets.at(mCurrent)))
        return false;
    showHighlights();
    return true;
}

// ---- edges

Tally Session::addEdge(Point p, double aperture) {
    const std::optional<Pick> nearest = Picker(drawing(), &mInterrupt).nearest(p, aperture);
    if (!nearest)
        return {};
    const GxDbFullSubentPath path = partOf(nearest->path, kEdgePart, nearest->gsMarker);
    const GxDbObjectId id = nearest->path.back();
    if (set().findSubentPathSubsel(id, path) >= 0)
        return {1, 0};
    const Item held = set().findMainSubsel(id);
    if (!held.isDone() && !held.get()->hasSubselPaths)
        throw CommandError(drawing().label(id) + " is in the set already, as an item without edges");
    return editing({mCurrent}, [&] {
        if (!mEdgePaths.add(mSets.at(mCurrent), path))
            throw CommandError(drawing().label(id) + " takes no edges");
        return Tally{1, 1};
    });
}

void Session::removeEdge(int position, int edge) {
    expectPosition(position);
    const selected_entity* record = set().getAt(position);
    const int edges = record->hasSubselPaths ? record->subselPathArray->logicalLength() : 0;
    if (edge >= edges)
        throw CommandError("item " + std::to_string(position) + " has no edge " + std::to_string(edge));
    const bool isHighlighted = record->highlightSegmentArray != nullptr;
    editing({mCurrent}, [&] {
        kv::SubselectionPaths::removeAt(mSets.at(mCurrent), position, edge);
        if (isHighlighted && edges > 1) {
            GxapSelectSet::Iterator it = edit().iteratorAt(position);
            setHighlights(edit(), it);
        }
        return true;
    });
}

// ---- highlights

void Session::highlight(const std::vector<int>& positions) {
    for (const int position : positions)
        expectPosition(position);
    editing({mCurrent}, [&] {
        for (const int position : positions) {
            GxapSelectSet::Iterator it = edit().iteratorAt(position);
            setHighlights(edit(), it);
        }
        return true;
    });
}

void Session::unhighlight(const std::vector<int>& positions) {
    for (const int position : positions)
        expectPosition(position);
    editing({mCurrent}, [&] {
        for (const int position : positions) {
            GxapSelectSet::Iterator it = edit().iteratorAt(position);
            edit().setHighlightSegment(it, nullptr);
        }
        return true;
    });
}

void Session::highlightAll() {
    editing({mCurrent}, [&] {
        for (GxapSelectSet::Iterator it = edit().begin(); !it.isDone(); it.step())
            setHighlights(edit(), it);
        return true;
    });
}

void Session::unhighlightAll() {
    if (!hasHighlights(set()))
        return;
    editing({mCurrent}, [&] {
        for (GxapSelectSet::Iterator it = edit().begin(); !it.isDone(); it.step())
            edit().setHighlightSegment(it, nullptr);
        return true;
    });
}

std::optional<int> Session::highlightSegment(Point p, double aperture) {
    const std::optional<Pick> nearest = Picker(drawing(), &mInterrupt).nearest(p, aperture);
    if (!nearest)
        return std::nullopt;
    const bool isNested = nearest->isNested();
    const KvVector<GxDbObjectId> path = isNested ? toVector(nearest->path) : KvVector<GxDbObjectId>();
    const GxDbObjectId subId = isNested ? nearest->path.back() : GxDbObjectId::kNull;
    const int position = set().sharedData ? set().find(nearest->path.front(), subId, &path) : -1;
    if (position < 0)
        throw CommandError(drawing().label(nearest->path.back()) + " is not in set " + mCurrent);
    const GxDbFullSubentPath segment = partOf(nearest->path, kEdgePart, nearest->gsMarker);
    if (hasSegment(set().iteratorAt(position), segment))
        return position;
    return editing({mCurrent}, [&] {
        GxapSelectSet::Iterator it = edit().iteratorAt(position);
        edit().setHighlightSegment(it, &segment);
        return std::optional(position);
    });
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
    editing({mCurrent}, [&] {
        mSets.at(mCurrent) = saved(name);
        return true;
    });
}

void Session::drop(const std::string& name) {
    (void)saved(name); // throws if there is none
    GxapSelectSetListManager::getInstance()->list->delSelectSet(mSaved.at(name).data());
    mSaved.erase(name);
    showHighlights();
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

Tally Session::collect(const PickFunction& pick) {
    return editing({mCurrent}, [&] {
        Picker picker(drawing(), &mInterrupt);
        const std::uint32_t before = itemCount(set());
        Tally tally;
        pick(picker, [&](const Pick& found) {
            add(found);
            ++tally.found;
        });
        tally.added = itemCount(set()) - before;
        return tally;
    });
}

void Session::add(const Pick& pick) {
    kv::OwnedInfo info = infoOf(pick);
    const bool isNested = pick.isNested();
    const KvVector<GxDbObjectId> path = isNested ? toVector(pick.path) : KvVector<GxDbObjectId>();
    const GxDbObjectId subId = isNested ? pick.path.back() : GxDbObjectId::kNull;
    // The set owns the info from this call on, even if the set refuses the item or runs out of memory. If it
    // refuses the item, shared data stays shared.
    accessorOf(mSets.at(mCurrent))
        .select(pick.path.front(), subId, pick.gsMarker, info.release(), isNested ? &path : nullptr);
}

} // namespace picker
