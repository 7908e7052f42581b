// Calls of the library that fail: what must hold afterwards, and how library and model go on.
//
// A failure ends a call of the library at most once. Then library and model are compared. After that, the
// call is repeated with enough memory, and the model does the operation. An operation on whole sets may have
// done a part of its work, so it is not repeated: its receivers get new data.

#include "tests/selectcontext/model/Machine.h"

#include "platform/KvOsBase.h"
#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/base/StoreSlots.h"
#include "tests/support/NewTracking.h"
#include "tests/support/SetInvariants.h"

#include <algorithm>
#include <memory>
#include <new>

namespace kvmodel {

namespace {

constexpr int kOutOfMemory = 6;

using kvtest::RecordTracker;

// Makes calls fail while the object lives.
class ArmedFailure {
public:
    explicit ArmedFailure(const Failure& failure) {
        switch (failure.source) {
        case Failure::kMalloc:
            kvinmemory::failMalloc(failure.nth, failure.andLater ? kvinmemory::FailureMode::FromThenOn
                                                                 : kvinmemory::FailureMode::Once);
            break;
        case Failure::kNew:
            kvtest::failNew(failure.nth, failure.andLater);
            break;
        case Failure::kPathCopy:
            kvinmemory::throwFromPathCopy(failure.nth);
        }
    }
    ArmedFailure(const ArmedFailure&) = delete;
    ArmedFailure& operator=(const ArmedFailure&) = delete;
    ~ArmedFailure() {
        kvinmemory::allowMalloc();
        kvtest::allowNew();
        kvinmemory::throwFromPathCopy(0);
    }
};

template <class Keys>
bool beginsWith(const std::vector<Keys>& all, const std::vector<Keys>& first) {
    return first.size() <= all.size() && std::equal(first.begin(), first.end(), all.begin());
}

template <class Keys>
bool isPartOf(const std::vector<Keys>& all, const std::vector<Keys>& some) {
    auto next = all.begin();
    for (const Keys& keys : some) {
        next = std::find(next, all.end(), keys);
        if (next == all.end())
            return false;
        ++next;
    }
    return true;
}

} // namespace

// Returns the failure if the next call of the library is the one that fails.
std::optional<Failure> Machine::takeFailure() {
    if (!mFailure || mFailure->callsToPass-- > 0)
        return std::nullopt;
    const std::optional<Failure> failure = std::exchange(mFailure, std::nullopt);
    return mayLoseLists() ? std::nullopt : failure;
}

// A record whose `hasSubselPaths` is false does not delete its list. If a failure destroys a copy of such a
// record, nobody knows the address of the copy's list.
bool Machine::mayLoseLists() const {
    const auto losesList = [](const RecordPtr& record) {
        return record->subselection && !record->hasSubselection;
    };
    return std::any_of(mModel.sets.begin(), mModel.sets.end(), [&](const Set& each) {
        if (!each.data)
            return false;
        const std::vector<RecordPtr> records = each.data->store->records();
        return std::any_of(records.begin(), records.end(), losesList);
    });
}

// Calls the library, and once more if a failure has ended the first call.
void Machine::callLibrary(const Work& call, AfterFailure after) {
    if (const std::optional<Failure> failure = takeFailure()) {
        mRecordsChanged = true; // makes the comparisons full ones
        if (after == AfterFailure::kUnchanged)
            compare();
        const bool wereSound = after == AfterFailure::kIndexLost && areSound(kvtest::IndexState::kComplete);
        if (!isEndedBy(*failure, call))
            return;
        if (after == AfterFailure::kUnchanged) {
            takeOverCopies();
            compare();
        }
        if (wereSound)
            expect(areSound(kvtest::IndexState::kMayLackEntries), "a set is whole without memory");
    }
    const RecordTracker::Recording recording(mTracker, true);
    call();
}

// Makes the call while the failure is armed. Returns whether the failure has ended the call.
bool Machine::isEndedBy(const Failure& failure, const Work& call) {
    const RecordTracker::Recording recording(mTracker, true);
    const ArmedFailure armed(failure);
    try {
        call();
        return false;
    } catch (KvErrorStatus* exception) {
        if (exception->status() != kOutOfMemory)
            throw;
        const std::unique_ptr<KvErrorStatus> owner(exception);
    } catch (const std::bad_alloc&) {
    } catch (const kvinmemory::PlatformFailure&) {}
    ++mFailedCalls;
    return true;
}

// A call that fails may already have made shared data private, or have given data to a set without data. The
// model does the same.
void Machine::takeOverCopies() {
    for (int s = 0; s < kSetCount; ++s) {
        Set& model = modelSet(s);
        const void* const actual = set(s).sharedData;
        if (actual == (model.data ? model.data->actual : nullptr))
            continue;
        expect(actual != nullptr, "a set keeps its data if a call fails");
        expect(!model.data || model.data.use_count() > 1, "a set keeps its private data if a call fails");
        mModel.writeData(model);
        mHasTakenOver = true;
    }
}

bool Machine::areSound(kvtest::IndexState state) const {
    return std::all_of(mSets.begin(), mSets.end(),
                       [state](const GxapSelectSet* each) { return kvtest::invariants(*each, state); });
}

// ---- Operations on whole sets

// A receiver may have its old items, no items, or a part of its result. Afterwards it gets new data, whether
// the failure has ended the operation or not: another build may allocate more often, or less.
void Machine::failWhole(const WholeSets& operation, const Failure& failure) {
    const bool wereSound = areSound(kvtest::IndexState::kComplete);
    std::vector<Receiver> receivers;
    if (wereSound)
        receivers = receiversOf(operation);
    const bool isEnded = isEndedBy(failure, operation.actual);
    for (const Receiver& receiver : receivers) {
        expect(kvtest::invariants(set(receiver.set)), "a receiver is whole after a failure");
        const std::vector<ItemKeys> items = actualKeysOf(receiver.set);
        if (isEnded)
            expect(receiver.mayHave(items), "a receiver has a part of its result after a failure");
        else
            expect(items == receiver.result, "a receiver has its result");
    }
    for (int s : operation.receivers) {
        if (s < 0)
            continue;
        set(s).createData();
        mModel.createData(modelSet(s));
    }
    deleteStrayRecords();
}

bool Machine::Receiver::mayHave(const std::vector<ItemKeys>& items) const {
    if (items == before || items.empty())
        return true;
    return reduced ? isPartOf(*reduced, items) && isPartOf(items, result) : beginsWith(result, items);
}

// Runs the operation on other sets of the model: copies that share data where the sets do.
std::vector<Machine::Receiver> Machine::receiversOf(const WholeSets& operation) {
    std::array<Set, kSetCount> copies;
    for (std::size_t s = 0; s < copies.size(); ++s) {
        const DataPtr& data = mModel.sets.at(s).data;
        const auto first = std::find_if(mModel.sets.begin(), mModel.sets.end(),
                                        [&data](const Set& each) { return each.data == data; });
        const auto at = static_cast<std::size_t>(first - mModel.sets.begin());
        mModel.assignData(copies.at(s), at < s || !data ? copies.at(at).data : mModel.clone(*data));
    }
    const auto copy = [&](int s) { return s < 0 ? nullptr : &copies.at(static_cast<std::size_t>(s)); };
    const std::size_t removedBefore = mModel.removed.size();
    operation.model(copy);
    mModel.removed.resize(removedBefore);

    std::vector<Receiver> receivers;
    for (int s : operation.receivers) {
        if (s < 0)
            continue;
        Receiver receiver{s, keysOf(modelSet(s)), keysOf(*copy(s)), std::nullopt};
        if (operation.isReducing)
            receiver.reduced =
                operation.source < 0 ? std::vector<ItemKeys>() : keysOf(modelSet(operation.source));
        receivers.push_back(std::move(receiver));
    }
    for (Set& each : copies)
        mModel.releaseData(each);
    return receivers;
}

std::vector<ItemKeys> Machine::keysOf(const Set& set) {
    std::vector<ItemKeys> keys;
    if (!set.data)
        return keys;
    for (const RecordPtr& record : set.data->store->records())
        keys.push_back({record->main, record->sub, record->marker});
    return keys;
}

std::vector<ItemKeys> Machine::actualKeysOf(int s) const {
    std::vector<ItemKeys> keys;
    if (!set(s).sharedData)
        return keys;
    for (const auto* slot : kvtest::occupiedSlots(*set(s).sharedData->entities)) {
        const selected_entity& record = *slot->value;
        keys.push_back(
            {mWorld.numberOf(record.mainEntId), mWorld.numberOf(record.subEntId), record.gsMarker});
    }
    return keys;
}

// Deletes the records that an operation has removed, but that the model has not.
void Machine::deleteStrayRecords() {
    for (const selected_entity* record : recordsInNoSet())
        delete record;
}

} // namespace kvmodel
