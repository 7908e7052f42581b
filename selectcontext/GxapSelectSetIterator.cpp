// Iterators over a set, their registry, and their access to the current record.

#include "selectcontext/GxapSelectSet.h"
#include "selectcontext/IteratorTrace.h"
#include "selectcontext/detail/SetData.h"
#include "selectcontext/detail/SharedPaths.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <utility>

namespace {

using kvdetail::Store;

// Two empty vectors that exist while the library is loaded. No code uses sEmptyNumbers, but it must not be
// removed. Each vector holds a reference to the block of all empty vectors, and callers can see the number of
// these references.
const KvVector<GxDbObjectId> sEmptyPath;
const KvVector<int> sEmptyNumbers;

// Returns the store of the set. Returns null for a null set and for a set without data.
const Store* storeOf(const GxapSelectSet* set) {
    return set && set->sharedData ? set->sharedData->entities : nullptr;
}

std::int32_t clamped(int index, const GxapSelectSet::SSetData& data) {
    return std::min(index, static_cast<std::int32_t>(data.entityCount));
}

// Appends a copy of the path to the record's segments. If the record has no list, fills a new list first. So
// if there is no memory, the record does not get an empty list.
void addSegment(selected_entity& record, const GxDbFullSubentPath& path) {
    if (record.highlightSegmentArray) {
        kvdetail::appendPathCopy(*record.highlightSegmentArray, path);
        return;
    }
    auto segments = std::make_unique<KvVector<GxDbFullSubentPath*>>();
    kvdetail::appendPathCopy(*segments, path);
    record.highlightSegmentArray = segments.release();
}

// Removes all segments of the record. Reads the list without making its block private, so needs no memory.
void clearSegments(selected_entity& record) {
    const std::unique_ptr<KvVector<GxDbFullSubentPath*>> segments(
        std::exchange(record.highlightSegmentArray, nullptr));
    if (segments)
        kvdetail::dropPathOwners(*segments);
}

} // namespace

void GxapSelectSet::addIterator(ConstIterator* it) const {
    if (!it)
        return;
    const int count = iterators.logicalLength();
    ConstIterator** const registered = iterators.mArray;
    if (std::find(registered, registered + count, it) != registered + count)
        return;
    iterators.setLogicalLength(count + 1);
    iterators[count] = it;
}

void GxapSelectSet::removeIterator(ConstIterator* it) const {
    if (!it)
        return;
    ConstIterator** const registered = iterators.mArray;
    ConstIterator** const last = registered + iterators.logicalLength();
    ConstIterator** const found = std::find(registered, last, it);
    if (found == last)
        return;
    std::copy(found + 1, last, found);
    iterators.setLogicalLength(iterators.logicalLength() - 1);
}

void GxapSelectSet::disableAllIterator() const {
    for (int i = 0; i < iterators.logicalLength(); ++i) {
#ifdef KV_TRACE_ITERATORS
        kvtrace::noteDisabling(iterators[i]);
#endif
        iterators[i]->disable();
    }
    iterators.setLogicalLength(0);
}

GxapSelectSet::ConstIterator GxapSelectSet::iteratorAt(int index) const {
    return ConstIterator(this, clamped(index, kvdetail::dataOf(*this)));
}

GxapSelectSet::ConstIterator GxapSelectSet::begin() const {
    kvdetail::dataOf(*this);
    return iteratorAt(0);
}

GxapSelectSet::ConstIterator GxapSelectSet::end() const {
    return iteratorAt(static_cast<int>(kvdetail::dataOf(*this).entityCount));
}

GxapSelectSet::ConstIterator GxapSelectSet::cbegin() {
    kvdetail::dataOf(*this);
    return ConstIterator(this, 0);
}

GxapSelectSet::ConstIterator GxapSelectSet::cend() {
    const Iterator atEnd(this, static_cast<int>(kvdetail::dataOf(*this).entityCount));
    return ConstIterator(atEnd);
}

// Allocates the position before it registers the iterator. So if there is no memory, no iterator stays
// registered.
GxapSelectSet::ConstIterator::ConstIterator(const GxapSelectSet* ofSet, int atIndex)
    : set(ofSet), index(atIndex), truckerIterator(nullptr) {
    const Store* const store = storeOf(set);
    if (!store)
        return;
    const bool atEnd = static_cast<std::uint32_t>(index) == set->sharedData->entityCount;
    auto position = std::make_unique<Store::iterator>(atEnd ? store->end() : store->iteratorAt(index));
    set->addIterator(this);
    truckerIterator = position.release();
}

GxapSelectSet::ConstIterator::ConstIterator(const ConstIterator& other)
    : set(other.set), index(other.index), truckerIterator(nullptr) {
    if (!storeOf(set) || !other.truckerIterator)
        return;
    auto position = std::make_unique<Store::iterator>(*other.truckerIterator);
    set->addIterator(this);
    truckerIterator = position.release();
}

// First does what can fail: allocates the position and registers the iterator. So a failed assignment changes
// nothing.
GxapSelectSet::ConstIterator& GxapSelectSet::ConstIterator::operator=(const ConstIterator& other) {
    if (this == &other)
        return *this;
    std::unique_ptr<Store::iterator> position;
    if (storeOf(other.set) && other.truckerIterator)
        position = std::make_unique<Store::iterator>(*other.truckerIterator);

    if (set != other.set) {
        if (position)
            other.set->addIterator(this);
        if (set)
            set->removeIterator(this);
    }
    disable();
    set = other.set;
    index = other.index;
    truckerIterator = position.release();
    return *this;
}

GxapSelectSet::ConstIterator::~ConstIterator() {
    if (set)
        set->removeIterator(this);
    disable();
}

void GxapSelectSet::ConstIterator::disable() {
    delete truckerIterator;
    truckerIterator = nullptr;
}

bool GxapSelectSet::ConstIterator::getPrevIterator(ConstIterator& prev) const {
    const Store* const store = storeOf(set);
    if (!truckerIterator || !store || index < 1)
        return false;
    prev = *this;
    --prev.index;
    kvdetail::stepBack(store, *prev.truckerIterator);
    return true;
}

bool GxapSelectSet::ConstIterator::operator==(const ConstIterator& other) const {
    if (!truckerIterator || !other.truckerIterator)
        return false;
    const Store::iterator& a = *truckerIterator;
    const Store::iterator& b = *other.truckerIterator;
    return set == other.set && index == other.index && a.trucker == b.trucker && a.slot == b.slot &&
           a.page == b.page && a.position == b.position;
}

bool GxapSelectSet::ConstIterator::operator!=(const ConstIterator& other) const {
    return !(*this == other);
}

GxapSelectedEntInfo* GxapSelectSet::ConstIterator::selectedEntityInfo() const {
    const selected_entity* const record = get();
    return record ? record->selectedEntityInfo : nullptr;
}

KvVector<GxDbFullSubentPath*>* GxapSelectSet::ConstIterator::highlightSegmentArray() const {
    const selected_entity* const record = get();
    return record ? record->highlightSegmentArray : nullptr;
}

KvVector<int>* GxapSelectSet::ConstIterator::hlVpArray() const {
    selected_entity* const record = get();
    return record ? &record->hlVpArray : nullptr;
}

const KvVector<GxDbObjectId>& GxapSelectSet::ConstIterator::nestedEntFullPath() const {
    const selected_entity* const record = get();
    return record ? record->nestedEntFullPath : sEmptyPath;
}

bool GxapSelectSet::ConstIterator::isNestedEnt() const {
    const selected_entity* const record = get();
    if (!record || !record->nestedEntFullPath.data.block)
        return false;
    const int length = record->nestedEntFullPath.logicalLength();
    if (length != 2)
        return length > 1;
    return record->subEntId.isNull() || record->mainEntId == record->subEntId;
}

bool GxapSelectSet::ConstIterator::getFullSubentPath(GxDbFullSubentPath& path) const {
    if (!truckerIterator)
        return false;
    const KvVector<GxDbObjectId>& nested = nestedEntFullPath();
    const GxDbObjectId mainId = mainEntId();
    int last = 0;
    while (last < nested.logicalLength() && nested.at(last) != mainId)
        ++last;
    if (last == nested.logicalLength())
        return false;

    path.objectIds().setLogicalLength(last + 1);
    for (int i = 0; i <= last; ++i)
        path.objectIds()[i] = nested.at(i);
    path.subentId() = {0, gsMarker(), nullptr};
    return true;
}

bool GxapSelectSet::ConstIterator::getFilteredNestedFullPath(KvVector<GxDbObjectId>& ids) const {
    if (!truckerIterator)
        return false;
    ids.setLogicalLength(0);
    // Copies the path, since opening an entity may change the record. The copy shares the block.
    const KvVector<GxDbObjectId> nested = nestedEntFullPath();
    if (nested == sEmptyPath)
        return false;
    for (int i = 0; i < nested.logicalLength(); ++i) {
        GxDbObjectPointerBase<GxDbEntity> entity;
        if (entity.open(nested.at(i), GxDb::kForRead, false) == eOk) {
            const int length = ids.logicalLength();
            ids.setLogicalLength(length + 1);
            ids.at(length) = nested.at(i);
        }
        // Closes the entity here: the destructor of `entity` could not pass an exception on to the caller.
        entity.closeInternal();
    }
    return true;
}

GxapSelectSet::Iterator::Iterator(const GxapSelectSet* ofSet, int atIndex) : ConstIterator(ofSet, atIndex) {}

GxapSelectSet::Iterator::Iterator(const Iterator& other) : ConstIterator(other) {}

GxapSelectSet::Iterator& GxapSelectSet::Iterator::operator=(const Iterator& other) {
    ConstIterator::operator=(other);
    return *this;
}

selected_entity* GxapSelectSet::Iterator::get() {
    return ConstIterator::get();
}

void GxapSelectSet::Iterator::setNestedEntFullPath(const KvVector<GxDbObjectId>& path) {
    if (get())
        kvdetail::indexOf(*set->sharedData).changePath(truckerIterator->slot, path);
}

void GxapSelectSet::Iterator::setHighlightSegment(const GxDbFullSubentPath* path) {
    const std::int64_t count = set && set->sharedData ? set->sharedData->entityCount : 0;
    selected_entity* const record = index < count ? get() : nullptr;
    if (!record)
        return;
    if (path)
        addSegment(*record, *path);
    else
        clearSegments(*record);
}
