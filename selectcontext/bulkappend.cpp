// Appending many records.

#include "selectcontext/BulkAppend.h"
#include "base/KvLargeBlocks.h"
#include "base/KvShortcuts.h"
#include "selectcontext/OwnedInfo.h"
#include "selectcontext/SetShortcuts.h"
#include "selectcontext/StubOrder.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>
#include <vector>

namespace kvdetail {

namespace {

std::uintptr_t stubOf(const selected_entity& record) noexcept {
    return reinterpret_cast<std::uintptr_t>(record.mainEntId.stub());
}

GxDbObjectId idOf(std::uintptr_t stub) noexcept {
    return GxDbObjectId(reinterpret_cast<GxDbStub*>(stub));
}

ItemKeys keysOf(const selected_entity& record) noexcept {
    return {record.mainEntId, record.subEntId, record.gsMarker, &record.nestedEntFullPath};
}

std::size_t usedSlots(const Store& store) noexcept {
    std::size_t used = 0;
    for (const Store::Page* page = store.head; page; page = page->next)
        used += static_cast<std::size_t>(page->fillEnd - page->slots);
    return used;
}

// Whether among the first records one in eight, or more, lies before the one that it follows: then guessing
// the next entry of the index does not work.
bool beginsUnordered(const Store& store) noexcept {
    constexpr unsigned kSample = 64;
    constexpr unsigned kRecordsPerDescent = 8;
    std::uintptr_t last = 0;
    unsigned seen = 0;
    unsigned descents = 0;
    anyOccupied(store, [&](const Store::Slot* slot) {
        if (!slot->value)
            return false;
        const std::uintptr_t stub = stubOf(*slot->value);
        if (stub < last)
            ++descents;
        last = stub;
        return ++seen == kSample;
    });
    return descents * kRecordsPerDescent >= seen;
}

// The entries of an id, given that it is not before `place`. A few entries of other ids are walked over: in
// the index of a copy they lie one behind the other.
Run runFrom(const DataMap& map, DataMap::const_iterator place, const GxDbObjectId& id) {
    constexpr unsigned kMostSteps = 8;
    unsigned steps = 0;
    while (place != map.end() && place->first < id) {
        if (++steps > kMostSteps) {
            place = map.lower_bound(id);
            break;
        }
        ++place;
    }
    return {place, place != map.end() && place->first == id};
}

// The records that one call appends.
//
// Invariants, from enter() on:
//  1. A record that is to be appended has an entry in the index; the others have the end of the index.
//  2. The entries of the first mAppended records name the slots of their copies, the others name none. Those
//     go with this.
//
// Thread safety: belongs to the thread that may edit the data.
class Arrivals {
public:
    explicit Arrivals(SSetData& data) : mData(data) {}
    Arrivals(const Arrivals&) = delete;
    Arrivals& operator=(const Arrivals&) = delete;
    ~Arrivals() {
        for (; mAppended < mArrivals.size(); ++mAppended) {
            if (isNew(mArrivals[mAppended]))
                mData.dataMap.erase(mArrivals[mAppended].entry);
        }
    }

    // False where the order of their ids is not that of the stubs, or cannot be made.
    bool arrange(const SSetData& added) try {
        mArrivals.reserve(usedSlots(*added.entities));
        mOrder.reserve(mArrivals.capacity());
        forEachOccupied(*added.entities, [this](const Store::Slot* slot) {
            if (!slot->value || slot->value->mainEntId.isNull())
                return;
            mOrder.push_back({stubOf(*slot->value), mArrivals.size()});
            mArrivals.push_back({slot->value, mData.dataMap.end()});
        });
        sortByStub(mOrder);
        return std::adjacent_find(mOrder.begin(), mOrder.end(), isOutOfOrder) == mOrder.end();
    } catch (const std::bad_alloc&) {
        return false;
    }

    // Gives those that are new their entries. Their records come in no order: the ones ahead are drawn into
    // the caches, in two steps. That is done here and not in a function of its own, which compilers take for
    // one without effect and leave out.
    void enter() {
        constexpr std::ptrdiff_t kArrivalAhead = 16;
        constexpr std::ptrdiff_t kRecordAhead = 8;
        DataMap::const_iterator place = mData.dataMap.begin();
        const Ordered* const end = mOrder.data() + mOrder.size();
        for (const Ordered* first = mOrder.data(); first != end;) {
            const Ordered* last = first;
            for (; last != end && last->stub == first->stub; ++last) {
                if (end - last <= kArrivalAhead)
                    continue;
                __builtin_prefetch(&mArrivals[last[kArrivalAhead].number], 1);
                __builtin_prefetch(mArrivals[last[kRecordAhead].number].record);
            }
            place = enterId(first, last, runFrom(mData.dataMap, place, idOf(first->stub)));
            first = last;
        }
    }

    // Copies those that are new into the store, in the order in which they come.
    void append() {
        constexpr std::size_t kAhead = 8;
        for (; mAppended < mArrivals.size(); ++mAppended) {
            if (mAppended + kAhead < mArrivals.size() && isNew(mArrivals[mAppended + kAhead]))
                __builtin_prefetch(&*mArrivals[mAppended + kAhead].entry, 1);
            if (isNew(mArrivals[mAppended]))
                append(mArrivals[mAppended]);
        }
    }

private:
    struct Arrival {
        const selected_entity* record;
        DataMap::iterator entry;
    };
    struct Ordered {
        std::uintptr_t stub;
        std::size_t number; // of the arrival
    };

    static bool isOutOfOrder(const Ordered& a, const Ordered& b) {
        return a.stub != b.stub && !(idOf(a.stub) < idOf(b.stub));
    }

    bool isNew(const Arrival& arrival) const { return arrival.entry != mData.dataMap.end(); }

    // Those of one id; returns the place behind its entries.
    DataMap::const_iterator enterId(const Ordered* first, const Ordered* last, const Run& run) {
        DataMap::const_iterator behind = run.first;
        while (run.isHeld && isOfId(mData.dataMap, behind, idOf(first->stub)))
            ++behind;
        mNewOfId.clear();
        for (; first != last; ++first) {
            Arrival& arrival = mArrivals[first->number];
            if (mData.unique && isHeld(*arrival.record, run))
                continue;
            mNewOfId.push_back(arrival.record);
            arrival.entry = mData.dataMap.emplace_hint(behind, arrival.record->mainEntId, 0);
        }
        return behind;
    }

    // By the data, or by one that is new and comes before it.
    bool isHeld(const selected_entity& record, const Run& run) const {
        const ItemKeys keys = keysOf(record);
        const GxGeMatrix3d* const matrix = matrixOf(record.selectedEntityInfo);
        return findItem(mData, keys, run, matrix).entry != mData.dataMap.end() ||
               std::any_of(mNewOfId.begin(), mNewOfId.end(),
                           [&](const selected_entity* other) { return isItem(*other, keys, matrix); });
    }

    void append(const Arrival& arrival) {
        OwnedInfo info = copyInfo(arrival.record->selectedEntityInfo);
        auto record = newRecord(mData);
        setKeys(*record, keysOf(*arrival.record), std::move(info));
        arrival.entry->second = slotAddress(mData.entities->append(record.get()));
        record.release();
        ++mData.entityCount;
    }

    SSetData& mData;
    std::vector<Arrival, LargeArrayAllocator<Arrival>> mArrivals; // in store order
    std::vector<Ordered, LargeArrayAllocator<Ordered>> mOrder;    // by stub, those of one stub in store order
    std::vector<const selected_entity*> mNewOfId;                 // of the id that is being entered
    std::size_t mAppended = 0;
};

} // namespace

bool isWorthAppendingInBulk(const SSetData& data, const SSetData& added) noexcept {
    constexpr std::size_t kFewestRecords = 16;       // below, sorting takes as long as it saves
    constexpr std::size_t kMostEntriesPerRecord = 4; // beyond, the walk passes many that nobody asks for
    return kHasBulkAppend && data.entities && added.entityCount >= kFewestRecords &&
           data.dataMap.size() / kMostEntriesPerRecord <= added.entityCount &&
           beginsUnordered(*added.entities);
}

bool appendInBulk(SSetData& data, const SSetData& added) {
    Arrivals arrivals(data);
    if (!arrivals.arrange(added))
        return false;
    SetShortcuts::of(data).dropHash(); // one that has fallen behind would be in the way of the next
    arrivals.enter();
    arrivals.append();
    return true;
}

} // namespace kvdetail
