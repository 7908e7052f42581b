// Compares library and model after each operation.

#include "aids/Inspect.h"
#include "tests/selectcontext/model/Machine.h"

#include "platform/KvOsBase.h"
#include "tests/base/StoreSlots.h"

#include <algorithm>
#include <sstream>
#include <unordered_set>

namespace kvmodel {

namespace {

using ActualStore = GxapSelectSet::SSetData::Store;

constexpr int kValidatedEvery = 100; // steps between calls of validate()

} // namespace

void Machine::compare() {
    deleteOrphanedLists(); // otherwise these lists would count as owners of blocks
    mEmptyVectors = 0;
    const bool full = mRecordsChanged || isFull();
    for (const GxapSelectSet* s : mSets)
        mTracker.ignore(s->sharedData);
    if (full)
        expectSame(static_cast<long>(mTracker.liveCount()), Record::liveCount, "records that exist");

    for (int s = 0; s < kSetCount; ++s) {
        compareHandle(s);
        const Set& model = modelSet(s);
        const bool isSeen = std::any_of(mModel.sets.begin(), mModel.sets.begin() + s,
                                        [&model](const Set& other) { return other.data == model.data; });
        if (model.data && !isSeen)
            compareData(*set(s).sharedData, *model.data, full || model.data->isNew);
    }
    for (int c = 0; c < kCursorCount; ++c)
        compareCursor(c);
    for (const auto& [actual, model] : mReturned)
        expectSame(actual, model->actual, "the record returned");
    mReturned.clear();

    if (mStep % kValidatedEvery == 0)
        validateSets();

    bindLeftBehind();
    for (const RecordPtr& record : mModel.removed) {
        expect(mTracker.isLive(record->actual), "a removed record is not destroyed");
        compareRecord(*static_cast<const selected_entity*>(record->actual), *record);
    }
    if (full)
        expectSame(static_cast<long>(gpEmptyVectorData->refCount.load()),
                   mOtherEmptyVectors + mEmptyVectors + mHeldInfos, "sharers of the empty block");
    expectSame(kvinmemory::livePaths(), mOtherPaths + PathObject::liveCount + mHeldPaths,
               "sub-entity paths that exist");
    deleteLeftBehind();
}

// validate() finds nothing exactly if the model's data is sound.
void Machine::validateSets() {
    for (int s = 0; s < kSetCount; ++s) {
        const DataPtr& model = modelSet(s).data;
        const bool isSound = !model || mModel.isSound(*model);
        const std::vector<std::string> found = kv::validate(set(s));
        if (isSound && !found.empty())
            throw Mismatch{"validate() reports of sound data: " + found.front()};
        expect(isSound || !found.empty(), "validate() finds what is not as one expects");
    }
}

// ---- Records that were removed

// Some removed records of the model do not know the address of their record in the library yet: the operation
// has both made and removed them. Finds the addresses of these records among the records that are in no set.
void Machine::bindLeftBehind() {
    const auto isUnknown = [](const RecordPtr& model) { return !model->actual; };
    if (std::none_of(mModel.removed.begin(), mModel.removed.end(), isUnknown))
        return;
    std::vector<selected_entity*> candidates = recordsInNoSet();
    for (const RecordPtr& model : mModel.removed) {
        const auto known = std::find(candidates.begin(), candidates.end(), model->actual);
        if (known != candidates.end())
            candidates.erase(known);
    }
    for (const RecordPtr& model : mModel.removed) {
        if (model->actual)
            continue;
        const auto found =
            std::find_if(candidates.begin(), candidates.end(),
                         [&](const selected_entity* candidate) { return couldBe(*candidate, *model); });
        expect(found != candidates.end(), "a copy that was removed is left");
        model->actual = *found;
        candidates.erase(found);
    }
}

// Returns them in the order of their addresses.
std::vector<selected_entity*> Machine::recordsInNoSet() const {
    std::unordered_set<const selected_entity*> held;
    for (const GxapSelectSet* each : mSets) {
        const GxapSelectSet::SSetData* const data = each->sharedData;
        mTracker.ignore(data);
        if (!data)
            continue;
        for (const auto* slot : kvtest::occupiedSlots(*data->entities))
            held.insert(slot->value);
    }
    std::vector<selected_entity*> records = mTracker.live();
    records.erase(std::remove_if(records.begin(), records.end(),
                                 [&held](const selected_entity* each) { return held.count(each) != 0; }),
                  records.end());
    return records;
}

bool Machine::couldBe(const selected_entity& actual, const Record& model) const {
    // If the operation has made the block, the model does not know the address of the block yet.
    const auto onBlock = [](const KvVectorBlock* block, const auto& vector) {
        if (vector.isOnEmptyBlock())
            return block == gpEmptyVectorData;
        return block != gpEmptyVectorData && (!vector.block()->actual || vector.block()->actual == block);
    };
    const auto onList = [&onBlock](const SegmentList* list, const std::optional<PathList>& modelList) {
        return list && modelList ? onBlock(list->data.block, *modelList) : !list && !modelList;
    };
    const GxapSelectedEntInfo* const info = actual.selectedEntityInfo;
    if ((info != nullptr) != model.info.has_value() || (info && info->word0 != model.info->word0))
        return false;
    return actual.mainEntId.stub() == mWorld.id(model.main).stub() &&
           actual.subEntId.stub() == mWorld.id(model.sub).stub() && actual.gsMarker == model.marker &&
           actual.hasSubselPaths == model.hasSubselection &&
           onBlock(actual.hlVpArray.data.block, model.viewports) &&
           onBlock(actual.nestedEntFullPath.data.block, model.path) &&
           onList(actual.highlightSegmentArray, model.segments) &&
           onList(actual.subselPathArray, model.subselection);
}

void Machine::deleteLeftBehind() {
    for (const RecordPtr& record : mModel.removed)
        delete static_cast<const selected_entity*>(record->actual);
    mModel.removed.clear();
    deleteOrphanedLists();
}

void Machine::deleteOrphanedLists() {
    for (const void* list : Record::orphanedLists)
        delete static_cast<const SegmentList*>(list);
    Record::orphanedLists.clear();
}

// ---- Handles and cursors

void Machine::compareHandle(int s) {
    const GxapSelectSet& actual = set(s);
    const Set& model = modelSet(s);
    expectSame(actual.lispRefCnt, model.lispCount, "lispRefCnt");
    expectSame(actual.sharedData != nullptr, model.data != nullptr, "the set has data");
    expectSame(actual.iterators.logicalLength(), static_cast<long>(model.registry.size()),
               "registered iterators");
    for (int i = 0; i < actual.iterators.logicalLength(); ++i) {
        const auto number = model.registry[static_cast<std::size_t>(i)] - mModel.cursors.data();
        expectSame(actual.iterators[i], &cursor(static_cast<int>(number)), "a registered iterator");
    }
    if (!model.data)
        return;
    bind<const void*>(actual.sharedData, model.data->actual, "the data of the set");
    expectSame(actual.sharedData->refCount.load(), model.data.use_count(), "handles of the data");
}

void Machine::compareCursor(int c) {
    const ConstIterator& actual = cursor(c);
    const Cursor& model = modelCursor(c);
    expectSame(actual.set, model.set ? &set(numberOf(model.set)) : nullptr, "the set of a cursor");
    expectSame(actual.index, model.index, "the index of a cursor");
    expectSame(actual.truckerIterator != nullptr, model.at.has_value(), "a cursor has a position");
    expectSame(actual.isDone(), mModel.isDone(model), "a cursor is done");
    if (!model.at)
        return;
    const auto& it = *actual.truckerIterator;
    if (model.at->page && !model.at->page->actual) { // the page was made and freed since the last comparison
        model.at->page->actual = it.page;
        model.at->page->actualSlots = reinterpret_cast<const char*>(it.pageEnd) - kPageSlots * kSlotBytes;
    }
    const char* const slots = model.at->page ? model.at->page->actualSlots : nullptr;
    expectSame(it.trucker, model.at->store->actual, "the store of a cursor");
    expectSame(it.page, model.at->page ? model.at->page->actual : nullptr, "the page of a cursor");
    expectSame(it.slot, slots ? slots + model.at->slot * kSlotBytes : nullptr, "the slot of a cursor");
    expectSame(it.pageEnd, slots ? slots + kPageSlots * kSlotBytes : nullptr, "the page's end of a cursor");
    expectSame(it.position, model.at->position, "the position of a cursor");
}

// ---- Data

void Machine::compareData(const GxapSelectSet::SSetData& actual, Data& model, bool full) {
    expectSame(actual.unique, model.unique, "unique");
    expectSame(actual.selectByNestedMode, model.nestedMode, "selectByNestedMode");
    expectSame(actual.entityCount, model.count, "entityCount");
    bind<const void*>(actual.entities, model.store->actual, "the store");
    comparePages(*actual.entities, *model.store, full);
    for (const Place& place : model.added) {
        if (!full)
            compareSlot(*place.page, place.slot);
    }
    model.added.clear();
    model.isNew = false;
    expectSame(static_cast<long>(actual.dataMap.size()), static_cast<long>(model.index.size()),
               "entries of the index");
    if (full)
        compareIndex(actual, model);
}

void Machine::comparePages(const ActualStore& actual, const Store& model, bool full) {
    const ActualStore::Page* page = actual.head;
    for (const PagePtr& modelPage : model.pages) {
        expect(page != nullptr, "the store has as many pages");
        bind<const void*>(page, modelPage->actual, "a page");
        bind<const char*>(reinterpret_cast<const char*>(page->slots), modelPage->actualSlots,
                          "a page's slots");
        expectSame(page->liveCount, modelPage->live, "liveCount");
        const int used = static_cast<int>(modelPage->slots.size());
        expectSame(page->fillEnd - page->slots, used, "used slots of a page");
        for (int slot = 0; full && slot < used; ++slot)
            compareSlot(*modelPage, slot);
        if (!full) {
            compareSlot(*modelPage, 0);
            compareSlot(*modelPage, used - 1);
        }
        if (page->next == nullptr)
            expectSame(page, actual.tail, "the tail of the store");
        page = page->next;
    }
    expect(page == nullptr, "the store has no more pages");
    if (model.pages.empty())
        expect(actual.tail == nullptr, "an empty store has no tail");
}

void Machine::compareSlot(const Page& page, int slot) {
    const void* const address = page.actualSlots + slot * kSlotBytes;
    const auto& actual = *static_cast<const ActualStore::Slot*>(address);
    const RecordPtr& model = page.slots[static_cast<std::size_t>(slot)];
    expectSame(actual.free, model ? 0 : 1, "a slot is free");
    if (!model)
        return;
    bind<const void*>(actual.value, model->actual, "the record of a slot");
    expect(mTracker.isLive(actual.value), "a record in a slot exists");
    compareRecord(*actual.value, *model);
}

void Machine::compareIndex(const GxapSelectSet::SSetData& actual, const Data& model) const {
    auto entry = actual.dataMap.begin();
    for (const auto& [rank, modelEntry] : model.index) {
        expectSame(entry->first.stub(), mWorld.id(modelEntry.id).stub(), "the key of an index entry");
        const Place& place = modelEntry.place;
        expectSame(reinterpret_cast<const void*>(entry->second),
                   place.page->actualSlots + place.slot * kSlotBytes, "the slot of an index entry");
        ++entry;
    }
}

// ---- Records

template <class T, class U, class Same>
void Machine::compareVector(const char* what, const KvVector<T>& actual, const Vector<U>& model,
                            const Same& same) {
    if (model.isOnEmptyBlock()) {
        ++mEmptyVectors;
        expectSame(actual.data.block, gpEmptyVectorData, what);
        return;
    }
    bind<const void*>(actual.data.block, model.block()->actual, what);
    expectSame(actual.data.block->refCount.load(), model.owners(), what);
    expectSame(actual.logicalLength(), model.size(), what);
    expectSame(actual.physicalLength(), model.capacity(), what);
    expectSame(actual.growLength(), Vector<U>::kGrowLength, what);
    for (int i = 0; i < model.size(); ++i)
        same(actual.at(i), model[i]);
}

void Machine::compareRecord(const selected_entity& actual, Record& model) {
    expectSame(actual.mainEntId.stub(), mWorld.id(model.main).stub(), "mainEntId");
    expectSame(actual.subEntId.stub(), mWorld.id(model.sub).stub(), "subEntId");
    expectSame(actual.gsMarker, model.marker, "gsMarker");
    compareVector("hlVpArray", actual.hlVpArray, model.viewports,
                  [](int a, int b) { expectSame(a, b, "a viewport"); });
    compareList("highlightSegmentArray", actual.highlightSegmentArray, model.segments);
    compareList("subselPathArray", actual.subselPathArray, model.subselection);
    model.actualSubselection = actual.subselPathArray;
    expectSame(actual.hasSubselPaths, model.hasSubselection, "hasSubselPaths");
    compareVector(
        "nestedEntFullPath", actual.nestedEntFullPath, model.path,
        [this](const GxDbObjectId& a, int b) { expectSame(a.stub(), mWorld.id(b).stub(), "an id"); });
    compareInfo(actual.selectedEntityInfo, model.info);
}

void Machine::compareList(const char* what, const SegmentList* actual, std::optional<PathList>& model) {
    expectSame(actual != nullptr, model.has_value(), what);
    if (!actual)
        return;
    compareVector(what, *actual, *model,
                  [this](const GxDbFullSubentPath* a, const PathPtr& b) { comparePath(a, b); });
}

void Machine::comparePath(const GxDbFullSubentPath* actual, const PathPtr& model) const {
    expectSame(actual != nullptr, model != nullptr, "a path in a list");
    if (!actual)
        return;
    bind<const void*>(actual, model->actual, "a path in a list");
    const auto& ids = actual->objectIds();
    expectSame(ids.logicalLength(), static_cast<long>(model->value.ids.size()), "ids of a path");
    for (int i = 0; i < ids.logicalLength(); ++i)
        expectSame(ids[i].stub(), mWorld.id(model->value.ids[static_cast<std::size_t>(i)]).stub(),
                   "an id of a path");
    expectSame(actual->subentId().type, model->value.type, "type of a path");
    expectSame(actual->subentId().index, model->value.index, "index of a path");
}

void Machine::compareInfo(const GxapSelectedEntInfo* actual, const std::optional<Info>& model) {
    expectSame(actual != nullptr, model.has_value(), "selectedEntityInfo");
    if (!actual)
        return;
    ++mEmptyVectors; // the `pointArray` of the info
    expectSame(actual->word0, model->word0, "word0");
    const GxGeMatrix3d* const matrix = actual->getBTRMatPtr();
    expectSame(matrix != nullptr, model->matrix != 0, "the info's matrix");
    if (matrix)
        expect(matrix->entry[0][3] == World::matrix(model->matrix).entry[0][3], "the matrix' entry");
    SelFenceIntersectInfo fence{};
    expectSame(actual->getSelFenceResultInfo(fence), model->fenceIndex >= 0, "the info's fence result");
    if (model->fenceIndex >= 0) {
        expectSame(fence.index, model->fenceIndex, "the fence's index");
        expect(fence.param == model->fenceParam, "the fence's parameter");
    }
}

} // namespace kvmodel
