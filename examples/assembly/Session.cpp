#include "examples/assembly/Session.h"

#include "examples/assembly/StepFile.h"

#include <algorithm>
#include <set>
#include <utility>

namespace assembly {

using kvopencascade::Database;
using kvopencascade::IdPath;
using kvopencascade::Place;

namespace {

GxapSSetWriteAccessor& editing(GxapSelectSet& set) {
    return static_cast<GxapSSetWriteAccessor&>(set);
}

KvVector<GxDbObjectId> vectorOf(const IdPath& ids) {
    KvVector<GxDbObjectId> vector;
    vector.setLogicalLength(static_cast<int>(ids.size()));
    for (std::size_t i = 0; i < ids.size(); ++i)
        vector.at(static_cast<int>(i)) = ids[i];
    return vector;
}

IdPath idsOf(const selected_entity& item) {
    IdPath ids;
    for (int i = 0; i < item.nestedEntFullPath.logicalLength(); ++i)
        ids.push_back(item.nestedEntFullPath.at(i));
    return ids;
}

kv::OwnedInfo infoOf(const IdPath& ids) {
    Place place;
    kv::InfoFields fields;
    if (Database::locate(kvopencascade::subentPathOf(ids), place))
        fields.transform = kvopencascade::matrixOf(place.placement);
    return kv::makeInfo(fields);
}

// Gives the item that an iterator is on what it highlights: the picked part, or the parts of its
// sub-selection.
void addSegments(GxapSelectSet::Iterator& it) {
    const selected_entity& item = *it.get();
    if (!item.hasSubselPaths || item.subselPathArray == nullptr) {
        const GxDbFullSubentPath path =
            kvopencascade::subentPathOf(idsOf(item), kvopencascade::partOf(item.gsMarker));
        return it.setHighlightSegment(&path);
    }
    for (int i = 0; i < item.subselPathArray->logicalLength(); ++i)
        it.setHighlightSegment(item.subselPathArray->at(i));
}

void dropSegments(GxapSelectSet& set) {
    for (auto it = editing(set).begin(); !it.isDone(); it.step())
        it.setHighlightSegment(nullptr);
}

void undrawAndDrop(GxapSelectSet& set) {
    set.draw(false, false);
    dropSegments(set);
}

bool has(const GxapSelectSet& set, const selected_entity& item) {
    return set.findInMap(item.mainEntId, item.subEntId, item.gsMarker, &item.nestedEntFullPath) !=
           set.sharedData->dataMap.end();
}

} // namespace

Session::OpenDocument::~OpenDocument() {
    closeDocument(document);
}

Session::Session(const Handle(TDocStd_Document) & document, const ViewSize& size, bool hasWindow)
    : mOpen{document}, mDatabase(document), mInstances(mDatabase.instances()),
      mView(mInstances, size, hasWindow), mHighlighter(mView.context()) {
    mDatabase.setHighlighter(&mHighlighter);
}

Session::~Session() {
    mDatabase.setHighlighter(nullptr);
}

// ---- Picks

void Session::setMode(PickMode mode) {
    mView.setMode(mode);
}

int Session::pick(int x, int y) {
    const std::optional<Hit> hit = mView.at(x, y);
    return hit ? add(std::vector<Hit>{*hit}) : 0;
}

int Session::pickBox(int x1, int y1, int x2, int y2, bool crossing) {
    return add(mView.inBox(x1, y1, x2, y2, crossing));
}

int Session::pickByName(const std::string& name) {
    std::vector<Hit> hits;
    for (std::size_t i = 0; i < mInstances.size(); ++i) {
        if (Database::nameOf(mInstances[i].back()) == name)
            hits.push_back({i, {}});
    }
    if (hits.empty())
        throw CommandError("no part is called " + name);
    return add(hits);
}

int Session::pickSameParts() {
    std::set<GxDbObjectId> parts;
    for (const selected_entity& item : kv::items(mPicked))
        parts.insert(item.subEntId.isNull() ? item.mainEntId : item.subEntId);
    std::vector<Hit> hits;
    for (std::size_t i = 0; i < mInstances.size(); ++i) {
        if (parts.count(mInstances[i].back()) != 0)
            hits.push_back({i, {}});
    }
    return add(hits);
}

int Session::add(const std::vector<Hit>& hits) {
    const int before = count();
    for (const Hit& hit : hits)
        add(hit);
    return count() - before;
}

// The outermost component is the main id, so that a look-up by it finds all picks in it.
void Session::add(const Hit& hit) {
    const IdPath& ids = mInstances[hit.instance];
    const GxDbObjectId subId = ids.size() > 1 ? ids.back() : GxDbObjectId();
    const KvVector<GxDbObjectId> path = vectorOf(ids);
    editing(mPicked).select(ids.front(), subId, kvopencascade::markerOf(hit.part), infoOf(ids).release(),
                            &path);
}

// ---- The current set

int Session::count() const {
    return static_cast<int>(mPicked.sharedData->entityCount);
}

void Session::remove(int index) {
    GxapSelectSet::ConstIterator it = mPicked.iteratorAt(index);
    if (index < 0 || index >= count())
        throw CommandError("there is no item " + std::to_string(index));
    mPicked.draw(it, false, false);
    kv::takeAt(mPicked, index);
}

void Session::clear() {
    mPicked.draw(false, false);
    editing(mPicked).clear();
}

void Session::combine(Combination how, const std::string& name) {
    const GxapSelectSet other(find(name));
    undrawAndDrop(mPicked);
    const GxapSelectSet before(mPicked);
    switch (how) {
    case Combination::kUnion:
        editing(mPicked).merge(&before, &other);
        break;
    case Combination::kDifference:
        kv::takeIf(mPicked, [&](const selected_entity& item) { return has(other, item); });
        break;
    case Combination::kIntersection:
        kv::takeIf(mPicked, [&](const selected_entity& item) { return !has(other, item); });
        break;
    }
    dropSegments(mPicked); // those of the other set
}

void Session::subselectFace(int x, int y) {
    mView.setMode(PickMode::kFace);
    const std::optional<Hit> hit = mView.at(x, y);
    mView.setMode(PickMode::kPart);
    if (!hit)
        throw CommandError("there is no face");
    if (!mSubselections.add(mPicked, kvopencascade::subentPathOf(mInstances[hit->instance], hit->part)))
        throw CommandError("the item of this part takes no faces");
}

void Session::highlight() {
    undrawAndDrop(mPicked);
    for (auto it = editing(mPicked).begin(); !it.isDone(); it.step())
        addSegments(it);
    mPicked.draw(false, true);
    mView.redraw();
}

void Session::unhighlight() {
    undrawAndDrop(mPicked);
    mView.redraw();
}

// ---- Named sets

const GxapSelectSet& Session::find(const std::string& name) const {
    const auto found = mNamed.find(name);
    if (found == mNamed.end())
        throw CommandError("no set is called " + name);
    return found->second;
}

void Session::save(const std::string& name) {
    GxapSelectSet& named = mNamed[name];
    mPicked.draw(false, true); // for the new owner
    named.draw(false, false);
    named = mPicked;
}

void Session::load(const std::string& name) {
    const GxapSelectSet& named = find(name);
    named.draw(false, true);
    mPicked.draw(false, false);
    mPicked = named;
}

void Session::fitPicked() {
    std::vector<std::size_t> seen;
    for (std::size_t i = 0; i < mInstances.size(); ++i) {
        const KvVector<GxDbObjectId> path = vectorOf(mInstances[i]);
        for (const selected_entity& item : kv::items(mPicked)) {
            if (item.nestedEntFullPath == path)
                seen.push_back(i);
        }
    }
    mView.fit(seen);
}

} // namespace assembly
