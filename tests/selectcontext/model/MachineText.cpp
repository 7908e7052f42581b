// Describes the sets and cursors of a machine. A description has no addresses, so that two builds of the
// library can be compared.

#include "tests/selectcontext/model/Machine.h"

#include <algorithm>
#include <cstddef>
#include <sstream>

namespace kvmodel {

namespace {

using ActualStore = GxapSelectSet::SSetData::Store;

// Writes lines of names and values.
class Text {
public:
    void line(const char* name) { mText << (mText.tellp() > 0 ? "\n" : "") << name; }
    void value(const char* name, long value) { mText << ' ' << name << ' ' << value; }
    std::string text() const { return mText.str(); }

private:
    std::ostringstream mText;
};

// Makes a number of the values, without their names.
class Hash {
public:
    void line(const char* /*name*/) { value(nullptr, 0x5EED); }
    void value(const char* /*name*/, long value) {
        mHash = (mHash ^ static_cast<std::uint64_t>(value)) * 0x9E3779B97F4A7C15U;
        mHash ^= mHash >> 29U;
    }
    std::uint64_t number() const { return mHash; }

private:
    std::uint64_t mHash = 0;
};

// Returns the number of the slot at this address, counted over all pages. Returns -1 if there is none.
long slotNumber(const ActualStore& store, unsigned long address) {
    long before = 0;
    for (const ActualStore::Page* page = store.head; page; page = page->next) {
        const unsigned long offset = address - reinterpret_cast<unsigned long>(page->slots);
        if (offset < kPageSlots * kSlotBytes)
            return before + static_cast<long>(offset / kSlotBytes);
        before += kPageSlots;
    }
    return -1;
}

// Writes the number of owners, the capacity and the length of a vector.
template <class Out, class T>
void describeVector(Out& out, const char* name, const KvVector<T>& vector) {
    if (vector.data.block == gpEmptyVectorData)
        return out.value(name, -1);
    out.value(name, vector.logicalLength());
    out.value("of", vector.physicalLength());
    out.value("shared by", vector.data.block->refCount.load());
}

} // namespace

std::string Machine::text() const {
    Text out;
    describe(out, true);
    return out.text();
}

std::uint64_t Machine::number() const {
    Hash out;
    describe(out, isFull());
    return out.number();
}

template <class Out>
void Machine::describe(Out& out, bool full) const {
    for (int s = 0; s < kSetCount; ++s)
        describeSet(out, s, full);
    for (int c = 0; c < kCursorCount; ++c)
        describeCursor(out, c);
}

template <class Out>
void Machine::describeSet(Out& out, int s, bool full) const {
    const GxapSelectSet& actual = set(s);
    out.line("set");
    out.value("number", s);
    out.value("LISP count", actual.lispRefCnt);
    for (int i = 0; i < actual.iterators.logicalLength(); ++i)
        out.value("cursor", numberOf(*actual.iterators[i]));
    if (!actual.sharedData)
        return out.value("no data", 0);
    int first = 0;
    while (set(first).sharedData != actual.sharedData)
        ++first;
    out.value("data of set", first);
    if (first == s)
        describeData(out, *actual.sharedData, full);
}

template <class Out>
void Machine::describeData(Out& out, const GxapSelectSet::SSetData& data, bool full) const {
    out.value("handles", data.refCount.load());
    out.value("unique", data.unique);
    out.value("nested mode", data.selectByNestedMode);
    out.value("items", data.entityCount);
    out.value("entries", static_cast<long>(data.dataMap.size()));
    for (const ActualStore::Page* page = data.entities->head; page; page = page->next) {
        out.line("  page");
        out.value("items", page->liveCount);
        out.value("slots", page->fillEnd - page->slots);
        for (const ActualStore::Slot* slot = page->slots; full && slot < page->fillEnd; ++slot) {
            if (slot->free)
                continue;
            out.line("    item");
            out.value("slot", slot - page->slots);
            describeRecord(out, *slot->value);
        }
    }
    if (!full)
        return;
    out.line("  index");
    for (const auto& [id, address] : data.dataMap) {
        out.value("id", mWorld.numberOf(id));
        out.value("slot", slotNumber(*data.entities, address));
    }
}

template <class Out>
void Machine::describeRecord(Out& out, const selected_entity& record) const {
    out.value("main", mWorld.numberOf(record.mainEntId));
    out.value("sub", mWorld.numberOf(record.subEntId));
    out.value("marker", record.gsMarker);
    describeVector(out, "viewports", record.hlVpArray);
    for (int i = 0; i < record.hlVpArray.logicalLength(); ++i)
        out.value("viewport", record.hlVpArray.at(i));
    describeVector(out, "path", record.nestedEntFullPath);
    for (int i = 0; i < record.nestedEntFullPath.logicalLength(); ++i)
        out.value("id", mWorld.numberOf(record.nestedEntFullPath.at(i)));
    describeList(out, "segments", record.highlightSegmentArray);
    out.value("has parts", record.hasSubselPaths);
    describeList(out, "parts", record.subselPathArray);
    const GxapSelectedEntInfo* const info = record.selectedEntityInfo;
    if (!info)
        return;
    out.value("info", info->word0);
    const GxGeMatrix3d* const matrix = info->getBTRMatPtr();
    out.value("matrix", matrix ? static_cast<long>(matrix->entry[0][3]) : -1);
    SelFenceIntersectInfo fence{};
    out.value("fence", info->getSelFenceResultInfo(fence) ? fence.index : -1);
}

template <class Out>
void Machine::describeList(Out& out, const char* name, const SegmentList* list) const {
    if (!list)
        return out.value(name, -2);
    describeVector(out, name, *list);
    for (int i = 0; i < list->logicalLength(); ++i) {
        const GxDbFullSubentPath* const path = list->at(i);
        if (!path) {
            out.value("none", 0);
            continue;
        }
        out.value("part", path->subentId().index);
        out.value("type", path->subentId().type);
        for (int at = 0; at < path->objectIds().logicalLength(); ++at)
            out.value("id", mWorld.numberOf(path->objectIds()[at]));
    }
}

template <class Out>
void Machine::describeCursor(Out& out, int c) const {
    const ConstIterator& actual = cursor(c);
    out.line("cursor");
    out.value("number", c);
    const auto owner = std::find(mSets.begin(), mSets.end(), actual.set);
    out.value("set", owner == mSets.end() ? -1 : owner - mSets.begin());
    out.value("index", actual.index);
    out.value("done", actual.isDone());
    if (actual.truckerIterator)
        out.value("position", actual.truckerIterator->position);
}

// ---- Two builds in step

bool Machine::mayDiffer() const {
    return mHasTakenOver || Model::hasMetReusedAddress;
}

void Machine::reset() {
    for (int c = 0; c < kCursorCount; ++c)
        dropCursor(c);
    for (int s = 0; s < kSetCount; ++s) {
        set(s).createData();
        mModel.createData(modelSet(s));
        set(s).lispRefCnt = 0;
        modelSet(s).lispCount = 0;
    }
    compare();
    forgetDifferences();
}

void Machine::forgetDifferences() {
    mHasTakenOver = false;
    Model::hasMetReusedAddress = false;
}

} // namespace kvmodel
