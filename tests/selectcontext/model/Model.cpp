#include "tests/selectcontext/model/Model.h"

#include <algorithm>
#include <cstddef>
#include <set>
#include <tuple>

namespace kvmodel {

long PathObject::liveCount = 0;
bool Model::hasMetReusedAddress = false;
std::vector<const void*> Record::orphanedLists;
long Record::liveCount = 0;

Record::~Record() {
    --liveCount;
    if (subselection && !hasSubselection)
        orphanedLists.push_back(actualSubselection);
}

// ---- Ids

IdRules::IdRules(int count) {
    for (int id = 0; id < count; ++id)
        mRank.push_back(id);
}

void IdRules::makeEqual(int a, int b) {
    const int low = std::min(rank(a), rank(b));
    const int high = std::max(rank(a), rank(b));
    std::replace(mRank.begin(), mRank.end(), high, low);
}

bool sameMarker(long a, long b) {
    const bool aIsNone = a == 0 || a == -1;
    const bool bIsNone = b == 0 || b == -1;
    return (aIsNone && bIsNone) || a == b;
}

namespace {

// Returns the same number for matrices that are equal within the tolerance.
int kindOf(int matrix) {
    return matrix == 2 ? 1 : matrix;
}

bool sameMatrix(int a, int b) {
    return kindOf(a) == kindOf(b);
}

template <class T>
bool sameObject(const std::shared_ptr<T>& a, const std::shared_ptr<T>& b) {
    if (a == b)
        return true;
    const bool isReused = a && b && a->actual && a->actual == b->actual;
    Model::hasMetReusedAddress |= isReused;
    return isReused;
}

const char* slotAddress(const Position& at) {
    return at.page && at.page->actualSlots ? at.page->actualSlots + at.slot * kSlotBytes : nullptr;
}

bool isOccupied(const Page& page, int slot) {
    return slot < static_cast<int>(page.slots.size()) && page.slots[static_cast<std::size_t>(slot)];
}

std::optional<int> firstOccupied(const Page& page, int from) {
    for (int slot = from; slot < static_cast<int>(page.slots.size()); ++slot) {
        if (isOccupied(page, slot))
            return slot;
    }
    return std::nullopt;
}

RecordPtr copyOf(const Record& source) {
    const auto shared = [](const std::optional<PathList>& list) {
        return list && list->size() > 0 ? list : std::nullopt;
    };
    auto copy = std::make_shared<Record>();
    copy->main = source.main;
    copy->sub = source.sub;
    copy->marker = source.marker;
    copy->viewports = source.viewports;
    copy->segments = shared(source.segments);
    copy->subselection = shared(source.subselection);
    copy->hasSubselection = source.hasSubselection;
    copy->path = source.path;
    copy->info = source.info;
    return copy;
}

PathList* subselectionOf(const RecordPtr& record) {
    return record && record->hasSubselection && record->subselection ? &*record->subselection : nullptr;
}

} // namespace

// ---- Store

Place Store::append(const RecordPtr& record) {
    if (pages.empty() || pages.back()->slots.size() == kPageSlots)
        pages.push_back(std::make_shared<Page>());
    Page& page = *pages.back();
    page.slots.push_back(record);
    ++page.live;
    return {pages.back(), static_cast<int>(page.slots.size()) - 1};
}

void Store::free(const Place& place) {
    place.page->slots[static_cast<std::size_t>(place.slot)].reset();
    if (--place.page->live == 0)
        pages.erase(std::find(pages.begin(), pages.end(), place.page));
}

void Store::clear() {
    for (const PagePtr& page : pages) {
        page->slots.clear();
        page->live = 0;
    }
    pages.clear();
}

std::optional<Place> Store::elementAt(int index) const {
    for (const PagePtr& page : pages) {
        if (index >= page->live) {
            index -= page->live;
            continue;
        }
        std::optional<int> slot = firstOccupied(*page, 0);
        while (index-- > 0)
            slot = firstOccupied(*page, *slot + 1);
        return Place{page, *slot};
    }
    return std::nullopt;
}

int Store::positionOf(const Place& place) const {
    int before = 0;
    for (const PagePtr& page : pages) {
        if (page == place.page) {
            const auto& slots = page->slots;
            return before + static_cast<int>(std::count_if(slots.begin(), slots.begin() + place.slot,
                                                           [](const RecordPtr& r) { return r != nullptr; }));
        }
        before += page->live;
    }
    return -1;
}

std::vector<Place> Store::places() const {
    std::vector<Place> found;
    for (const PagePtr& page : pages) {
        for (int slot = 0; slot < static_cast<int>(page->slots.size()); ++slot) {
            if (isOccupied(*page, slot))
                found.push_back({page, slot});
        }
    }
    return found;
}

std::vector<RecordPtr> Store::records() const {
    std::vector<RecordPtr> found;
    for (const PagePtr& page : pages)
        std::copy_if(page->slots.begin(), page->slots.end(), std::back_inserter(found),
                     [](const RecordPtr& record) { return record != nullptr; });
    return found;
}

// ---- Store cursors

Position Model::endOf(const StorePtr& store) {
    if (store->pages.empty())
        return {store, nullptr, 0, 0};
    const PagePtr& tail = store->pages.back();
    return {store, tail, kPageSlots, static_cast<std::uint32_t>(tail->live)};
}

Position Model::positionAt(const StorePtr& store, int index) {
    if (index < 0)
        return endOf(store);
    int inPage = index;
    for (const PagePtr& page : store->pages) {
        if (inPage < page->live)
            return {store, page, store->elementAt(index)->slot, static_cast<std::uint32_t>(inPage) + 1};
        inPage -= page->live;
    }
    // An index beyond the last item gives a cursor without a page.
    return {store, nullptr, 0, 0};
}

bool Model::isEnd(const StorePtr& store, const Position& at) {
    const Position end = endOf(store);
    if (!sameObject(at.store, store) || at.position != end.position || !sameObject(at.page, end.page))
        return false;
    return at.page == end.page ? !end.page || at.slot == end.slot : slotAddress(at) == slotAddress(end);
}

// Returns whether the page of the cursor is still in the store. A newer page is another page, even if the
// library makes it at the same address.
bool Model::resolve(const Store& store, const Position& at) {
    return std::find(store.pages.begin(), store.pages.end(), at.page) != store.pages.end();
}

// Steps as the library does. If `position` is too high, the walk leaves the page early.
void Model::next(Position& at) {
    const std::vector<PagePtr>& pages = at.store->pages;
    int from = 0;
    if (at.position == kBeforeFirst) {
        if (pages.empty())
            return;
        at.page = pages.front();
        at.slot = 0;
        at.position = 0;
        if (isOccupied(*at.page, 0))
            return;
    } else {
        if (!at.page)
            return;
        if (!resolve(*at.store, at)) {
            at = endOf(at.store);
            return;
        }
        from = at.slot + 1;
    }

    if (at.position < static_cast<std::uint32_t>(at.page->live)) {
        if (const auto slot = firstOccupied(*at.page, from)) {
            at.slot = *slot;
            ++at.position;
            return;
        }
    }
    auto page = std::find(pages.begin(), pages.end(), at.page);
    for (++page; page != pages.end(); ++page) {
        if (const auto slot = firstOccupied(**page, 0)) {
            at = {at.store, *page, *slot, 1};
            return;
        }
    }
    at = endOf(at.store);
}

void Model::back(const StorePtr& store, Position& at) {
    if (at.position == kBeforeFirst || !at.page)
        return;
    bool onPage = store && sameObject(at.store, store) && resolve(*store, at);
    while (onPage) {
        for (int slot = at.slot - 1; slot >= 0 && at.position != 0; --slot) {
            if (isOccupied(*at.page, slot)) {
                at.slot = slot;
                --at.position;
                return;
            }
        }
        const auto page = std::find(store->pages.begin(), store->pages.end(), at.page);
        onPage = page != store->pages.begin();
        if (onPage) {
            at.page = *(page - 1);
            at.slot = static_cast<int>(at.page->slots.size());
            at.position = static_cast<std::uint32_t>(at.page->live);
        }
    }
    at = {at.store, nullptr, 0, kBeforeFirst};
}

// ---- Handles

Model::Model(const IdRules& rules) : ids(rules) {
    for (Set& set : sets)
        createData(set);
}

void Model::createData(Set& set) {
    assignData(set, std::make_shared<Data>());
}

void Model::assignData(Set& set, const DataPtr& data) {
    if (data == set.data)
        return;
    const DataPtr kept = data;
    releaseData(set);
    set.data = kept;
}

void Model::releaseData(Set& set) {
    if (!set.data)
        return;
    for (Cursor* cursor : set.registry)
        cursor->at.reset();
    set.registry.clear();
    set.data.reset();
}

void Model::destroySet(Set& set) {
    for (Cursor* cursor : set.registry)
        cursor->set = nullptr;
    releaseData(set);
    set = Set();
}

DataPtr Model::clone(const Data& data) const {
    auto copy = std::make_shared<Data>();
    copy->unique = data.unique;
    copy->nestedMode = data.nestedMode;
    for (const RecordPtr& record : data.store->records())
        addRecord(*copy, copyOf(*record));
    copy->count = data.count;
    return copy;
}

void Model::clearData(const DataPtr& data) {
    if (data.use_count() > 1)
        return;
    data->index.clear();
    data->count = 0;
    data->added.clear();
    data->store->clear();
}

long Model::lispCount(Set& set) {
    set.lispCount = std::max(set.lispCount, 0L);
    return set.lispCount;
}

long Model::addLispCount(Set& set) {
    set.lispCount = set.lispCount < 0 ? 1 : set.lispCount + 1;
    return set.lispCount;
}

long Model::subtractLispCount(Set& set) {
    set.lispCount = std::max(set.lispCount - 1, 0L);
    return set.lispCount;
}

// ---- Cursors

void Model::registerCursor(Set& set, Cursor& cursor) const {
    if (std::find(set.registry.begin(), set.registry.end(), &cursor) == set.registry.end())
        set.registry.push_back(&cursor);
}

void Model::unregisterCursor(Set& set, const Cursor& cursor) const {
    const auto entry = std::find(set.registry.begin(), set.registry.end(), &cursor);
    if (entry != set.registry.end())
        set.registry.erase(entry);
}

void Model::construct(Cursor& cursor, Set* set, int index) {
    cursor = Cursor{set, index, std::nullopt};
    if (!set || !set->data)
        return;
    registerCursor(*set, cursor);
    const Data& data = *set->data;
    const bool atEnd = index >= 0 && static_cast<std::uint32_t>(index) == data.count;
    cursor.at = atEnd ? endOf(data.store) : positionAt(data.store, index);
}

void Model::constructCopy(Cursor& cursor, const Cursor& other) {
    cursor = Cursor{other.set, other.index, std::nullopt};
    if (!other.set || !other.set->data || !other.at)
        return;
    registerCursor(*other.set, cursor);
    cursor.at = other.at;
}

void Model::assign(Cursor& cursor, const Cursor& other) {
    if (&cursor == &other)
        return;
    Set* const old = cursor.set;
    if (old && old != other.set)
        unregisterCursor(*old, cursor);
    cursor = Cursor{other.set, other.index, std::nullopt};
    if (!other.at || !other.set || !other.set->data)
        return;
    if (old != other.set)
        registerCursor(*other.set, cursor);
    cursor.at = other.at;
}

void Model::destroy(Cursor& cursor) {
    if (cursor.set)
        unregisterCursor(*cursor.set, cursor);
    cursor = Cursor();
}

bool Model::isDone(const Cursor& cursor) const {
    if (!cursor.at || !cursor.set || !cursor.set->data)
        return true;
    return isEnd(cursor.set->data->store, *cursor.at);
}

bool Model::step(Cursor& cursor) {
    if (isDone(cursor))
        return false;
    ++cursor.index;
    const StorePtr& store = cursor.set->data->store;
    if (sameObject(cursor.at->store, store)) {
        cursor.at->store = store;
        next(*cursor.at);
    } else {
        cursor.at = endOf(store);
    }
    return !isDone(cursor);
}

bool Model::previous(const Cursor& cursor, Cursor& before) {
    if (!cursor.at || cursor.index < 1 || !cursor.set->data)
        return false;
    assign(before, cursor);
    --before.index;
    if (before.at)
        back(before.set->data->store, *before.at);
    return true;
}

bool Model::equal(const Cursor& a, const Cursor& b) const {
    if (!a.at || !b.at || a.set != b.set || a.index != b.index)
        return false;
    const bool sameSlot = a.at->page == b.at->page ? !a.at->page || a.at->slot == b.at->slot
                                                   : slotAddress(*a.at) == slotAddress(*b.at);
    return sameObject(a.at->store, b.at->store) && sameObject(a.at->page, b.at->page) && sameSlot &&
           a.at->position == b.at->position;
}

RecordPtr Model::get(const Cursor& cursor) const {
    if (isDone(cursor))
        return nullptr;
    Position at = *cursor.at;
    const StorePtr& store = cursor.set->data->store;
    if (!sameObject(at.store, store) || !at.page || !resolve(*store, at) || !isOccupied(*at.page, at.slot))
        throw Raised{kStoreAccess};
    return at.page->slots[static_cast<std::size_t>(at.slot)];
}

void Model::iteratorAt(Cursor& cursor, Set& set, int index) {
    if (!set.data)
        createData(set);
    construct(cursor, &set, std::min(index, static_cast<int>(set.data->count)));
}

void Model::begin(Cursor& cursor, Set& set) {
    iteratorAt(cursor, set, 0);
}

void Model::end(Cursor& cursor, Set& set) {
    if (!set.data)
        createData(set);
    iteratorAt(cursor, set, static_cast<int>(set.data->count));
}

bool Model::isNested(const Cursor& cursor) const {
    const RecordPtr record = get(cursor);
    if (!record)
        return false;
    if (record->path.size() != 2)
        return record->path.size() > 1;
    return ids.isNull(record->sub) || ids.same(record->main, record->sub);
}

std::optional<std::vector<int>> Model::fullPath(const Cursor& cursor) const {
    const RecordPtr record = get(cursor);
    if (!record)
        return std::nullopt;
    std::vector<int> found;
    for (int i = 0; i < record->path.size(); ++i) {
        found.push_back(record->path[i]);
        if (ids.same(record->path[i], record->main))
            return found;
    }
    return std::nullopt;
}

// ---- Lookup

bool Model::sameIds(const Vector<int>& a, const Vector<int>& b) const {
    if (a.size() != b.size())
        return false;
    for (int i = 0; i < a.size(); ++i) {
        if (!ids.same(a[i], b[i]))
            return false;
    }
    return true;
}

bool Model::matches(const Record& record, const Keys& keys) const {
    if (!ids.same(record.main, keys.main) || !ids.same(record.sub, *keys.sub))
        return false;
    if (keys.marker && !sameMarker(record.marker, *keys.marker))
        return false;
    if (!keys.path)
        return true;
    if (!sameIds(record.path, *keys.path))
        return false;
    return !keys.matrix || sameMatrix(record.info ? record.info->matrix : 0, *keys.matrix);
}

Index::const_iterator Model::findInMap(const Set& set, const Keys& keys) const {
    if (!set.data)
        throw Raised{kMisuse};
    const Data& data = *set.data;
    if (data.count == 0)
        return data.index.end();
    const auto range = data.index.equal_range(ids.rank(keys.main));
    if (!keys.sub)
        return range.first == range.second ? data.index.end() : range.first;
    for (auto entry = range.first; entry != range.second; ++entry) {
        if (matches(*entry->second.place.record(), keys))
            return entry;
    }
    return data.index.end();
}

int Model::find(const Set& set, const Keys& keys) const {
    if (!set.hasItems())
        return -1;
    const auto entry = findInMap(set, keys);
    return entry == set.data->index.end() ? -1 : set.data->store->positionOf(entry->second.place);
}

void Model::findIterator(Cursor& cursor, Set& set, const Keys& keys) {
    const int position = find(set, keys);
    if (position < 0)
        end(cursor, set);
    else
        construct(cursor, &set, position);
}

void Model::findMainSubselection(Cursor& cursor, Set& set, int id) {
    placeOnMainSubselection(cursor, set, id, &Model::iteratorAt);
}

void Model::placeOnMainSubselection(Cursor& cursor, Set& set, int id, PlaceAt placeAt) {
    if (!set.hasItems()) {
        construct(cursor, &set, 0);
        return;
    }
    const int position = ids.isNull(id) ? -1 : find(set, Keys{id, {}, {}, nullptr, {}});
    if (position < 0)
        end(cursor, set);
    else
        (this->*placeAt)(cursor, set, position);
}

// ---- Positions and comparison

RecordPtr Model::getAt(const Set& set, int index) const {
    if (!set.hasItems() || index < 0)
        return nullptr;
    const auto place = set.data->store->elementAt(index);
    return place ? place->record() : nullptr;
}

bool Model::contains(const Set& set, const Set* other) const {
    if (!other || !other->hasItems() || !set.hasItems())
        return false;
    const auto records = other->data->store->records();
    return std::all_of(records.begin(), records.end(), [&](const RecordPtr& r) {
        return findInMap(set, {r->main, r->sub, r->marker, &r->path, {}}) != set.data->index.end();
    });
}

bool Model::intersects(const Set& set, const Set* other) const {
    if (!other || !other->hasItems() || !set.hasItems())
        return false;
    const auto records = other->data->store->records();
    return std::any_of(records.begin(), records.end(), [&](const RecordPtr& r) {
        return findInMap(set, {r->main, r->sub, r->marker, &r->path, {}}) != set.data->index.end();
    });
}

// ---- The write accessor

Data& Model::writeData(Set& set) {
    if (!set.data)
        createData(set);
    else if (set.data.use_count() >= 2)
        assignData(set, clone(*set.data));
    return *set.data;
}

void Model::updateDataMap(Set& set) {
    if (!set.data)
        createData(set);
    Data& data = *set.data;
    data.index.clear();
    for (const Place& place : data.store->places()) {
        const int id = place.record()->main;
        data.index.insert({ids.rank(id), {id, place}});
    }
}

void Model::clear(Set& set) {
    if (set.data && set.data.use_count() < 2)
        clearData(set.data);
    else
        createData(set);
}

RecordPtr Model::writeAt(Set& set, int index) {
    if (!set.hasItems() || index < 0)
        return nullptr;
    writeData(set);
    return getAt(set, index);
}

void Model::setNestedMode(Set& set, bool on) {
    if (!set.data)
        createData(set);
    if (set.data->nestedMode != on)
        writeData(set).nestedMode = on;
}

void Model::writeIteratorAt(Cursor& cursor, Set& set, int index) {
    const Data& data = writeData(set);
    construct(cursor, &set, std::min(index, static_cast<int>(data.count)));
}

void Model::writeBegin(Cursor& cursor, Set& set) {
    writeIteratorAt(cursor, set, 0);
}

void Model::writeFind(Cursor& cursor, Set& set, const Keys& keys) {
    writeData(set);
    findIterator(cursor, set, keys);
}

void Model::writeFindMainSubselection(Cursor& cursor, Set& set, int id) {
    placeOnMainSubselection(cursor, set, id, &Model::writeIteratorAt);
}

void Model::setSegment(Cursor& cursor, const SubentPath* path) {
    const int count = cursor.set && cursor.set->data ? static_cast<int>(cursor.set->data->count) : 0;
    if (cursor.index >= count)
        return;
    const RecordPtr record = get(cursor);
    if (!record)
        return;
    if (!path) {
        record->segments.reset();
        return;
    }
    if (!record->segments)
        record->segments.emplace();
    record->segments->push(std::make_shared<PathObject>(*path));
}

// ---- Editing

void Model::addRecord(Data& data, const RecordPtr& record) const {
    const Place place = data.store->append(record);
    ++data.count;
    data.index.insert({ids.rank(record->main), {record->main, place}});
    if (!data.isNew)
        data.added.push_back(place);
}

void Model::takeOut(Data& data, const Place& place) {
    removed.push_back(place.record());
    data.store->free(place);
    data.added.erase(
        std::remove_if(data.added.begin(), data.added.end(),
                       [&place](const Place& p) { return p.page == place.page && p.slot == place.slot; }),
        data.added.end());
}

std::pair<Index::iterator, Index::iterator> Model::run(Data& data, int id) const {
    return data.index.equal_range(ids.rank(id));
}

void Model::select(Set& set, int main, int sub, long marker, const std::optional<Info>& info,
                   const Vector<int>* path) {
    if (ids.isNull(main))
        return;
    if (!set.data)
        createData(set);
    const Keys keys{main, sub, marker, path, info ? info->matrix : 0};
    if (set.data->unique && findInMap(set, keys) != set.data->index.end())
        return;
    auto record = std::make_shared<Record>();
    record->main = main;
    record->sub = sub;
    record->marker = marker;
    record->info = info;
    if (path)
        record->path = *path;
    addRecord(writeData(set), record);
}

bool Model::append(Set& set, const RecordPtr& record) {
    if (!record)
        return false;
    select(set, record->main, record->sub, record->marker, record->info, &record->path);
    return true;
}

bool Model::remove(Set& set, int main) {
    if (ids.isNull(main) || !set.hasItems() ||
        findInMap(set, {main, {}, {}, nullptr, {}}) == set.data->index.end())
        return false;
    Data& data = writeData(set);
    const auto range = run(data, main);
    for (auto entry = range.first; entry != range.second; ++entry) {
        takeOut(data, entry->second.place);
        --data.count;
    }
    // The range may be empty: writeData() may have copied the data, and the index of the copy has the present
    // main ids of the records. A caller may have changed these.
    const bool any = range.first != range.second;
    data.index.erase(range.first, range.second);
    return any;
}

bool Model::remove(Set& set, int main, int sub) {
    if (ids.isNull(main) || !set.hasItems() ||
        findInMap(set, {main, sub, {}, nullptr, {}}) == set.data->index.end())
        return false;
    Data& data = writeData(set);
    bool any = false;
    const auto range = run(data, main);
    for (auto entry = range.first; entry != range.second; ++entry) {
        if (!ids.same(entry->second.place.record()->sub, sub))
            continue;
        takeOut(data, entry->second.place);
        --data.count;
        any = true;
    }
    // Like the library, also erases the entries of records that stay.
    data.index.erase(range.first, range.second);
    return any;
}

bool Model::remove(Set& set, int main, int sub, long marker) {
    if (ids.isNull(main) || !set.hasItems() ||
        findInMap(set, {main, sub, marker, nullptr, {}}) == set.data->index.end())
        return false;
    Data& data = writeData(set);
    const auto range = run(data, main);
    for (auto entry = range.first; entry != range.second; ++entry) {
        const RecordPtr& record = entry->second.place.record();
        if (!ids.same(record->sub, sub) || record->marker != marker)
            continue;
        takeOut(data, entry->second.place);
        data.index.erase(entry);
        --data.count;
        return true;
    }
    return false;
}

bool Model::removeAt(Set& set, Cursor& cursor) {
    if (!set.hasItems() || isDone(cursor))
        return false;
    Cursor before;
    construct(before, &set, 0);
    bool gone = false;
    try {
        const bool hasBefore = previous(cursor, before);
        const RecordPtr record = get(cursor);
        gone = remove(set, record->main, record->sub, record->marker);
        if (gone && hasBefore)
            assign(cursor, before);
    } catch (const Raised&) {
        destroy(before);
        throw;
    }
    destroy(before);
    return gone;
}

bool Model::removeAt(Set& set, int index) {
    if (!set.hasItems() || index < 0 || static_cast<std::uint32_t>(index) >= set.data->count)
        return false;
    writeData(set);
    const RecordPtr record = getAt(set, index);
    return record && remove(set, record->main, record->sub, record->marker);
}

void Model::merge(Set& set, Set* a, Set* b) {
    if (&set != a && &set != b)
        clear(set);
    if (!a && !b)
        return;
    if (!a || !b) {
        assignData(set, a ? a->data : b->data);
        return;
    }
    if (!a->hasItems()) {
        assignData(set, b->data);
        return;
    }
    assignData(set, a->data);
    if (!b->hasItems())
        return;
    const std::vector<RecordPtr> records = b->data->store->records();
    const bool unique = set.data->unique || b->data->unique;
    if (b->data->nestedMode)
        setNestedMode(set, true);
    writeData(set).unique = unique;
    for (const RecordPtr& record : records)
        append(set, record);
}

void Model::minus(Set& set, Set* a, Set* b) {
    if (&set != a)
        clear(set);
    if (!a || !a->hasItems())
        return;
    assignData(set, a->data);
    if (!b || !b->hasItems())
        return;
    for (const RecordPtr& record : b->data->store->records())
        remove(set, record->main, record->sub, record->marker);
}

void Model::transfer(Set& set, Set& target, const std::function<bool(int)>* isExcluded, Set* excludedOut) {
    if (!isExcluded) {
        assignData(target, set.data);
        return;
    }
    if (!set.data)
        createData(set);
    const Data* const walked = set.data.get();
    for (const RecordPtr& record : set.data->store->records()) {
        // If an append has copied the data of the walked set, the library ends the walk.
        if (set.data.get() != walked)
            return;
        if (ids.isNull(record->main))
            continue;
        if (!(*isExcluded)(record->main))
            append(target, record);
        else if (excludedOut)
            append(*excludedOut, record);
    }
}

void Model::setUnique(Set& set, bool on) {
    if (!set.data)
        createData(set);
    if (set.data->unique == on)
        return;
    Data& data = writeData(set);
    data.unique = on;
    if (!on || data.count == 0)
        return;
    data.index.clear();
    data.count = 0;
    for (const Place& place : data.store->places()) {
        const int id = place.record()->main;
        if (data.index.count(ids.rank(id)) != 0) {
            takeOut(data, place);
            continue;
        }
        data.index.insert({ids.rank(id), {id, place}});
        ++data.count;
    }
}

// ---- Sub-selections

bool Model::samePath(const SubentPath& a, const SubentPath& b) const {
    return a.type == b.type && a.index == b.index &&
           std::equal(a.ids.begin(), a.ids.end(), b.ids.begin(), b.ids.end(),
                      [this](int x, int y) { return ids.same(x, y); });
}

// Makes the list private, since the library reads it with write access.
int Model::positionIn(PathList& list, const SubentPath& path) const {
    for (int i = 0; i < list.size(); ++i) {
        list.makePrivate();
        if (list[i] && samePath(list[i]->value, path))
            return i;
    }
    return -1;
}

bool Model::appendSubselection(Set& set, const SubentPath& path) {
    const std::optional<int> id = entityOf(path);
    if (!id)
        return false;
    Cursor cursor;
    writeFindMainSubselection(cursor, set, *id);
    const RecordPtr found = get(cursor);
    destroy(cursor);
    if (found) {
        PathList* const list = subselectionOf(found);
        if (!list)
            return false;
        loosePaths.push_back(std::make_shared<PathObject>(path));
        list->push(loosePaths.back());
        return true;
    }
    // The new item has no sub-selection, and does not get the path.
    Info info;
    info.word0 = 6;
    const Vector<int> noPath;
    select(set, *id, 0, -1, info, &noPath);
    return true;
}

bool Model::removeSubselection(Set& set, const SubentPath& path) {
    const std::optional<int> id = entityOf(path);
    if (!id)
        return false;
    Cursor cursor;
    writeFindMainSubselection(cursor, set, *id);
    PathList* const list = subselectionOf(get(cursor));
    int position = -1;
    if (list) {
        position = positionIn(*list, path);
        if (position >= 0)
            list->removeAt(position);
        if (list->size() == 0)
            removeAt(set, cursor);
    }
    destroy(cursor);
    return position >= 0;
}

bool Model::removeSubselectionAt(Set& set, int entityIndex, int pathIndex) {
    if (!set.hasItems() || entityIndex < 0 || static_cast<std::uint32_t>(entityIndex) >= set.data->count)
        return false;
    PathList* const list = subselectionOf(writeAt(set, entityIndex));
    if (!list || pathIndex < 0 || pathIndex > list->size())
        return false;
    if (pathIndex == list->size())
        throw Raised{kInvalidIndex};
    list->removeAt(pathIndex);
    if (list->size() == 0)
        removeAt(set, entityIndex);
    return true;
}

int Model::findSubselection(const Set& set, int id, const SubentPath& path) {
    if (!set.hasItems() || ids.isNull(id))
        return -1;
    const int position = find(set, {id, {}, {}, nullptr, {}});
    PathList* const list = subselectionOf(position < 0 ? nullptr : getAt(set, position));
    return list ? positionIn(*list, path) : -1;
}

PathPtr Model::subselectionAt(const Set& set, int entityIndex, int pathIndex, bool& found) {
    found = false;
    if (!set.hasItems() || entityIndex < 0 || static_cast<std::uint32_t>(entityIndex) >= set.data->count)
        return nullptr;
    const PathList* const list = subselectionOf(getAt(set, entityIndex));
    if (!list || pathIndex < 0 || pathIndex > list->size())
        return nullptr;
    if (pathIndex == list->size())
        throw Raised{kInvalidIndex};
    found = (*list)[pathIndex] != nullptr;
    return (*list)[pathIndex];
}

// ---- Soundness

bool Model::isSound(const Data& data) const {
    return isIndexSound(data) && !(data.unique && hasEqualRecords(data));
}

bool Model::isIndexSound(const Data& data) const {
    std::map<const Record*, std::size_t> positions;
    for (const RecordPtr& record : data.store->records())
        positions.emplace(record.get(), positions.size());
    if (positions.size() != data.index.size() || positions.size() != data.count)
        return false;
    const Record* before = nullptr;
    for (const auto& [rank, entry] : data.index) {
        const RecordPtr& record = entry.place.record();
        const auto found = positions.find(record.get());
        if (found == positions.end() || !ids.same(entry.id, record->main) || ids.isNull(record->main))
            return false;
        if (before && ids.same(before->main, record->main) && positions.at(before) >= found->second)
            return false;
        before = record.get();
    }
    return true;
}

bool Model::hasEqualRecords(const Data& data) const {
    using ItemKey = std::tuple<int, int, long, std::vector<int>, int>;
    std::set<ItemKey> keys;
    for (const RecordPtr& record : data.store->records()) {
        std::vector<int> path;
        for (int i = 0; i < record->path.size(); ++i)
            path.push_back(ids.rank(record->path[i]));
        const int matrix = record->info ? kindOf(record->info->matrix) : 0;
        const long marker = record->marker == 0 ? -1 : record->marker;
        if (!keys.emplace(ids.rank(record->main), ids.rank(record->sub), marker, path, matrix).second)
            return true;
    }
    return false;
}

} // namespace kvmodel
