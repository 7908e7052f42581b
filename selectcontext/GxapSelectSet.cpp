#include "selectcontext/GxapSelectSet.h"
#include "selectcontext/detail/OwnedInfo.h"
#include "selectcontext/detail/SetData.h"
#include "selectcontext/detail/SharedPaths.h"

#include <cstdint>
#include <memory>
#include <new>
#include <utility>

namespace {

using kvdetail::SetData;
using kvdetail::Store;

// Returns a list that shares the block of `list`. Returns null for a null or empty list.
std::unique_ptr<KvVector<GxDbFullSubentPath*>> shareList(const KvVector<GxDbFullSubentPath*>* list) {
    if (!list || list->logicalLength() == 0)
        return nullptr;
    return std::make_unique<KvVector<GxDbFullSubentPath*>>(*list);
}

// Shares the block of all empty vectors with new records. Takes many references to the block at a time, and
// gives unused ones back at the end. Nearly every record needs two references, and each would otherwise cost
// an atomic operation.
class EmptyBlockShares {
public:
    EmptyBlockShares() = default;
    EmptyBlockShares(const EmptyBlockShares&) = delete;
    EmptyBlockShares& operator=(const EmptyBlockShares&) = delete;
    ~EmptyBlockShares() {
        if (mLeft > 0)
            mBlock->refCount.fetch_sub(mLeft); // the platform's own reference always remains
    }

    // `fresh` must not have a block.
    template <class T>
    void share(KvVector<T>& fresh, const KvVector<T>& source) {
        if (!mBlock || source.data.block != mBlock) {
            fresh = source;
            return;
        }
        if (mLeft == 0) {
            mBlock->refCount.fetch_add(kTakenAtOnce);
            mLeft = kTakenAtOnce;
        }
        --mLeft;
        fresh.data.block = mBlock;
    }

private:
    static constexpr std::uint32_t kTakenAtOnce = 256;

    KvVectorBlock* const mBlock = gpEmptyVectorData;
    std::uint32_t mLeft = 0;
};

void copyFields(const selected_entity& source, selected_entity& copy, EmptyBlockShares& empty) {
    copy.mainEntId = source.mainEntId;
    copy.subEntId = source.subEntId;
    copy.gsMarker = source.gsMarker;
    empty.share(copy.hlVpArray, source.hlVpArray);
    empty.share(copy.nestedEntFullPath, source.nestedEntFullPath);
    copy.hasSubselPaths = source.hasSubselPaths;
    copy.selectedEntityInfo = kvdetail::copyInfo(source.selectedEntityInfo).release();
    copy.subselPathArray = shareList(source.subselPathArray).release();
    if (auto segments = shareList(source.highlightSegmentArray)) {
        kvdetail::addPathOwners(*segments);
        copy.highlightSegmentArray = segments.release();
    }
}

// Clones the records of `source` into the empty store of `copy`.
void cloneRecords(const GxapSelectSet::SSetData& source, GxapSelectSet::SSetData& copy) {
    kvdetail::RecordPool& records = SetData::of(copy).records;
    records.expectMany(source.entityCount);
    EmptyBlockShares empty;
    kvdetail::forEachOccupied(*source.entities, [&](const Store::Slot* slot) {
        if (!slot->value)
            return;
        std::unique_ptr<selected_entity> record(::new (records.allocate())
                                                    selected_entity(kvdetail::NoBlock()));
        copyFields(*slot->value, *record, empty);
        copy.entities->append(record.get());
        record.release();
    });
}

} // namespace

GxapSelectSet::SSetData::SSetData()
    : refCount(0), unique(true), selectByNestedMode(false), entityCount(0), entities(nullptr),
      mInside(std::make_unique<SetData>(*this)) {}

GxapSelectSet::SSetData::~SSetData() {
    clear();
    delete entities;
}

void GxapSelectSet::SSetData::destroy() const {
    delete this;
}

void GxapSelectSet::SSetData::clear() {
    if (refCount.load() > 1)
        return;
    mInside->index.clear();
    entityCount = 0;
    if (!entities)
        return;
    kvdetail::RecordPool::Destroyer destroyer;
    kvdetail::forEachOccupied(*entities,
                              [&destroyer](const Store::Slot* slot) { destroyer.destroy(slot->value); });
    entities->freeAllPages();
    mInside->records.close();
}

GxapSelectSet::SSetData* GxapSelectSet::SSetData::clone() const {
    auto copy = kvdetail::makeData();
    copy->unique = unique;
    copy->selectByNestedMode = selectByNestedMode;
    copy->entityCount = entityCount;
    if (!entities)
        return copy.release();
    cloneRecords(*this, *copy);
    copy->mInside->index.rebuild();
    return copy.release();
}

GxapSelectSet::GxapSelectSet(bool /*ignored*/) : sharedData(nullptr), lispRefCnt(0) {
    createData();
}

GxapSelectSet& GxapSelectSet::operator=(const GxapSelectSet& other) {
    assignData(other.sharedData);
    return *this;
}

// Disables the iterators and sets their `set` to null. So an iterator that outlives this set does not use it.
void GxapSelectSet::orphanIterators() const {
    for (int i = 0; i < iterators.logicalLength(); ++i)
        iterators[i]->set = nullptr;
    disableAllIterator();
}

// Makes the new data before it releases the old data. So if there is no memory, the set keeps its data.
GxapSelectSet::SSetData* GxapSelectSet::createData() {
    assignData(kvdetail::makeData().release());
    return sharedData;
}

void GxapSelectSet::assignData(SSetData* data) {
    if (data == sharedData)
        return;
    releaseData();
    if (!data)
        return;
    sharedData = data;
    sharedData->addRef();
}

void GxapSelectSet::releaseData() {
    if (!sharedData)
        return;
    disableAllIterator();
    sharedData->delRef();
    sharedData = nullptr;
}

bool GxapSelectSet::isSelectByNestedMode() const {
    return sharedData && sharedData->selectByNestedMode;
}

long GxapSelectSet::getLispRefCnt() {
    if (lispRefCnt < 0)
        lispRefCnt = 0;
    return lispRefCnt;
}

long GxapSelectSet::addLispRefCnt() {
    // Adds unsigned numbers, so that the count wraps around instead of overflowing.
    lispRefCnt = lispRefCnt < 0 ? 1 : static_cast<std::int64_t>(static_cast<std::uint64_t>(lispRefCnt) + 1);
    return lispRefCnt;
}

long GxapSelectSet::subtractLispRefCnt() {
    const auto less = static_cast<std::int64_t>(static_cast<std::uint64_t>(lispRefCnt) - 1);
    lispRefCnt = less < 0 ? 0 : less;
    return lispRefCnt;
}
