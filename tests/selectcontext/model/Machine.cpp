#include "tests/selectcontext/model/Machine.h"

#include "platform/KvOsBase.h"
#include "tests/selectcontext/support/RecordTestSupport.h"
#include "tests/support/Infos.h"
#include "tests/support/NewTracking.h"

#include <algorithm>
#include <cwchar>
#include <sstream>

namespace kvmodel {

namespace {

using kvtest::RecordTracker;
using DataMap = GxapSelectSet::SSetData::DataMap;

long asNumber(const void* pointer) {
    return static_cast<long>(reinterpret_cast<std::uintptr_t>(pointer));
}

Outcome outcomeOf(KvException* thrown) {
    const std::unique_ptr<KvException> exception(thrown);
    if (const auto* status = dynamic_cast<const KvErrorStatus*>(thrown))
        return status->status() == kInvalidIndex ? kInvalidIndex : kOtherError;
    const auto* message = dynamic_cast<const KvExceptionWithMsg*>(thrown);
    if (!message)
        return kOtherError;
    if (std::wcscmp(message->message(), L"Error access KvTrucker") == 0)
        return kStoreAccess;
    const bool isMisuse = std::wcscmp(message->message(),
                                      L"Wrong way to use GxapSelectSet::findInMap, please check the sset is "
                                      L"not a null data set!") == 0;
    return isMisuse ? kMisuse : kOtherError;
}

template <class Call>
Outcome outcomeOfCall(const Call& call) {
    try {
        call();
    } catch (KvException* exception) {
        return outcomeOf(exception);
    } catch (const CallbackFailure&) {
        return kCallbackThrows;
    }
    return kReturned;
}

template <class Call>
Outcome outcomeOfModel(const Call& call) {
    try {
        call();
    } catch (const Raised& raised) {
        return raised.outcome;
    }
    return kReturned;
}

void expectOutcome(Outcome actual, Outcome model, const char* what) {
    if (actual != model)
        expectSame(actual, model, (std::string(what) + ", outcome").c_str());
}

GxDbFullSubentPath* actualPath(const PathPtr& path) {
    return path ? static_cast<GxDbFullSubentPath*>(const_cast<void*>(path->actual)) : nullptr;
}

// Makes operator new fail while the object lives.
class NewFailure {
public:
    NewFailure(long nth, bool andLater) { kvtest::failNew(nth, andLater); }
    NewFailure(const NewFailure&) = delete;
    NewFailure& operator=(const NewFailure&) = delete;
    ~NewFailure() { kvtest::allowNew(); }
};

class MaskExcluder : public IGxapSSetEntityExcluder {
public:
    MaskExcluder(const World& world, unsigned mask, int throwAt)
        : mWorld(world), mMask(mask), mThrowAt(throwAt) {}

    bool isExcluded(GxDbObjectId mainEntId) override {
        const int id = mWorld.numberOf(mainEntId);
        mAsked.push_back(id);
        if (static_cast<int>(mAsked.size()) == mThrowAt)
            throw CallbackFailure();
        return excludes(id);
    }
    bool excludes(int id) const { return ((mMask >> (id % 8)) & 1U) != 0; }
    const std::vector<int>& asked() const { return mAsked; }

private:
    const World& mWorld;
    unsigned mMask;
    int mThrowAt; // the call that throws, counted from 1; 0: none
    std::vector<int> mAsked;
};

// Infos for a call of select(). A call that fails frees its info, and is repeated with another.
class Infos {
public:
    Infos(int number, bool areTwo, long& held)
        : mHeld(held), mInfos{World::makeInfo(number), areTwo ? World::makeInfo(number) : nullptr} {
        for (const GxapSelectedEntInfo* info : mInfos)
            mHeld += info ? 1 : 0;
    }
    Infos(const Infos&) = delete;
    Infos& operator=(const Infos&) = delete;
    ~Infos() {
        while (mTaken < mInfos.size())
            kvtest::freeInfo(take());
    }

    GxapSelectedEntInfo* first() const { return mInfos.front(); }

    GxapSelectedEntInfo* take() {
        GxapSelectedEntInfo* const info = mInfos.at(mTaken++);
        mHeld -= info ? 1 : 0;
        return info;
    }

    // select() refuses a null id, and leaves the info to its caller.
    void freeRefused() {
        for (std::size_t i = 0; i < mTaken; ++i)
            kvtest::freeInfo(mInfos.at(i));
    }

private:
    long& mHeld;
    std::array<GxapSelectedEntInfo*, 2> mInfos;
    std::size_t mTaken = 0;
};

// A path that a call of the library writes.
class WrittenPath {
public:
    explicit WrittenPath(long& held) : mHeld(held) { ++mHeld; }
    WrittenPath(const WrittenPath&) = delete;
    WrittenPath& operator=(const WrittenPath&) = delete;
    ~WrittenPath() { --mHeld; }

    GxDbFullSubentPath& operator*() { return mPath; }

private:
    long& mHeld;
    GxDbFullSubentPath mPath;
};

// Returns the path copies that were logged from entry `from` on and still exist.
std::vector<const GxDbFullSubentPath*> pathsLeft(std::size_t from) {
    std::vector<const GxDbFullSubentPath*> left;
    const auto events = kvinmemory::databaseEvents();
    for (std::size_t i = from; i < events.size(); ++i) {
        if (events[i].call == kvinmemory::DatabaseCall::PathCopy)
            left.push_back(events[i].path);
        else if (events[i].call == kvinmemory::DatabaseCall::PathDestruction)
            left.erase(std::remove(left.begin(), left.end(), events[i].path), left.end());
    }
    return left;
}

} // namespace

// ---- Beginning and end

Machine::Machine(const Profile& profile, kvtest::RecordTracker& tracker)
    : mProfile(profile), mTracker(tracker), mWorld(profile), mModel(mWorld.rules()),
      mIsUsed(static_cast<std::size_t>(profile.idCount) + 2) {
    forgetDifferences();
    mModel.entityOf = [this](const SubentPath& path) { return mWorld.entityOf(path); };
    mOtherEmptyVectors = static_cast<long>(gpEmptyVectorData->refCount.load());
    mOtherPaths = kvinmemory::livePaths();
    for (int s = 0; s < kSetCount; ++s)
        makeSet(s, 0, s);
    for (auto& slot : mConst)
        slot = std::make_unique<ConstIterator>(nullptr, 0);
    for (auto& slot : mWritable)
        slot = std::make_unique<Iterator>(nullptr, 0);
}

Machine::~Machine() = default;

void Machine::finish() {
    for (int c = 0; c < kCursorCount; ++c)
        dropCursor(c);
    for (auto& slot : mConst)
        slot.reset();
    for (auto& slot : mWritable)
        slot.reset();
    for (int s = 0; s < kSetCount; ++s) {
        mModel.destroySet(modelSet(s));
        if (mIsNamed[static_cast<std::size_t>(s)])
            mNamed.delSelectSet(mNames[static_cast<std::size_t>(s)]);
        else
            delete mSets[static_cast<std::size_t>(s)];
    }
    for (const PathPtr& path : mModel.loosePaths)
        delete actualPath(path);
    mModel.loosePaths.clear();
    deleteLeftBehind();
}

void Machine::perform(const Operation& operation) {
    if (isFull())
        forgetDifferences();
    mRecordsChanged = false;
    limitSizes();
    switch (operation.kind) {
#define KV_MODEL_CASE(name, roles, small, middle, large, runs)                                               \
    case Kind::name:                                                                                         \
        name(operation);                                                                                     \
        break;
        KV_MODEL_OPERATIONS(KV_MODEL_CASE)
#undef KV_MODEL_CASE
    }
    ++mStep;
    compare();
}

Session::Counts::Counts()
    : blocks(kvtest::liveNewBlocks()), paths(kvinmemory::livePaths()),
      emptyVectors(static_cast<long>(gpEmptyVectorData->refCount.load())) {}

Session::Session(const Profile& profile, bool tracksMemory) : mProfile(profile) {
    kvinmemory::resetAll();
    kvinmemory::trackMemory(tracksMemory);
    mBefore.emplace();
    mTracker.emplace(RecordTracker::Start::kPaused);
    mMachine = std::make_unique<Machine>(mProfile, *mTracker);
}

Session::~Session() = default;

void Session::finish() {
    mMachine->finish();
    mMachine.reset();
    std::vector<const void*>().swap(Record::orphanedLists);
    expectSame(static_cast<long>(mTracker->liveCount()), 0, "records at the end");
    mTracker.reset();
    expectSame(kvinmemory::livePaths(), mBefore->paths, "sub-entity paths at the end");
    expectSame(static_cast<long>(gpEmptyVectorData->refCount.load()), mBefore->emptyVectors,
               "sharers of the empty block at the end");
    expectSame(kvinmemory::liveBlocks(), 0, "blocks of _kvMalloc at the end");
    expectSame(kvinmemory::foreignFrees() + kvinmemory::doubleFrees(), 0, "wrong calls of _kvFree");
    expectSame(kvtest::liveNewBlocks(), mBefore->blocks, "blocks of operator new at the end");
}

void runOperations(const Episode& episode, const Progress& progress, std::uint64_t* digest) {
    Session session(episode.profile, episode.tracksMemory);
    Machine& machine = session.machine();
    for (std::size_t i = 0; i < episode.operations.size(); ++i) {
        progress(static_cast<int>(i));
        machine.perform(episode.operations[i]);
        if (digest) {
            machine.dropStaleCursors();
            *digest = (*digest ^ machine.number()) * 0x9E3779B97F4A7C15U;
        }
    }
    session.finish();
}

// ---- Helpers

GxapSelectSet::ConstIterator& Machine::cursor(int c) const {
    return c < kConstCount ? *mConst[static_cast<std::size_t>(c)] : writable(c);
}

int Machine::countOf(int s) const {
    const Set& model = modelSet(s);
    return model.data ? static_cast<int>(model.data->count) : 0;
}

int Machine::numberOf(const Set* set) const {
    return set ? static_cast<int>(set - mModel.sets.data()) : -1;
}

int Machine::numberOf(const ConstIterator& wanted) const {
    int c = 0;
    while (&cursor(c) != &wanted)
        ++c;
    return c;
}

long Machine::stubOf(int id) const {
    return asNumber(mWorld.id(id).stub());
}

Outcome Machine::outcomeOfActual(const Work& call, AfterFailure after) {
    return outcomeOfCall([&] { callLibrary(call, after); });
}

long Machine::both(const char* what, const Call& actual, const Call& model) {
    long got = 0;
    long wanted = 0;
    const Outcome outcome = outcomeOfActual([&] { got = actual(); });
    expectOutcome(outcome, outcomeOfModel([&] { wanted = model(); }), what);
    if (outcome == kReturned)
        expectSame(got, wanted, what);
    return got;
}

void Machine::bothDo(const char* what, const Work& actual, const Work& model, AfterFailure after) {
    const Outcome outcome = outcomeOfActual(actual, after);
    expectOutcome(outcome, outcomeOfModel(model), what);
}

void Machine::bothRecords(const char* what, const std::function<selected_entity*()>& actual,
                          const std::function<RecordPtr()>& model) {
    selected_entity* got = nullptr;
    RecordPtr wanted;
    const Outcome outcome = outcomeOfActual([&] { got = actual(); });
    expectOutcome(outcome, outcomeOfModel([&] { wanted = model(); }), what);
    expectSame(got != nullptr, wanted != nullptr, what);
    if (got)
        mReturned.emplace_back(got, wanted);
}

void Machine::limitSizes() {
    for (int s = 0; s < kSetCount; ++s) {
        if (countOf(s) <= mProfile.itemLimit)
            continue;
        accessor(s).clear();
        mModel.clear(modelSet(s));
    }
}

void Machine::dropCursor(int c) {
    if (c < kConstCount) {
        mConst[static_cast<std::size_t>(c)].reset();
        mConst[static_cast<std::size_t>(c)] = std::make_unique<ConstIterator>(nullptr, 0);
    } else {
        mWritable[static_cast<std::size_t>(c - kConstCount)].reset();
        mWritable[static_cast<std::size_t>(c - kConstCount)] = std::make_unique<Iterator>(nullptr, 0);
    }
    mModel.destroy(modelCursor(c));
}

bool Machine::isStale(const Cursor& cursor) const {
    if (!cursor.at)
        return false;
    if (!cursor.set || !cursor.set->data || cursor.set->data->store != cursor.at->store)
        return true;
    const std::vector<PagePtr>& pages = cursor.at->store->pages;
    return cursor.at->page && std::find(pages.begin(), pages.end(), cursor.at->page) == pages.end();
}

void Machine::dropStaleCursors() {
    for (int c = 0; c < kCursorCount; ++c) {
        if (isStale(modelCursor(c)))
            dropCursor(c);
    }
}

template <class Slot, class Make>
void Machine::placeActual(Slot& slot, bool assigned, const Make& make) {
    using ActualCursor = typename Slot::element_type;
    if (assigned)
        callLibrary([&] { *slot = make(); });
    else
        callLibrary([&] { slot.reset(new ActualCursor(make())); });
}

template <class Slot, class Make>
void Machine::place(Slot& slot, Cursor& cursor, bool assigned, const Make& make,
                    const std::function<void(Cursor&)>& makeModel) {
    if (!assigned)
        dropCursor(static_cast<int>(&cursor - mModel.cursors.data()));
    placeActual(slot, assigned, make);
    placeModel(cursor, assigned, makeModel);
}

void Machine::placeModel(Cursor& cursor, bool assigned, const std::function<void(Cursor&)>& make) {
    if (!assigned) {
        make(cursor);
        return;
    }
    Cursor fresh;
    make(fresh);
    mModel.assign(cursor, fresh);
    mModel.destroy(fresh);
}

// ---- Handles

void Machine::makeSet(int s, int mode, int source) {
    const auto at = static_cast<std::size_t>(s);
    const bool copies = (mode == 2 || mode == 4) && source != s;
    mIsNamed[at] = mode >= 3;
    callLibrary(
        [&] {
            if (mode >= 3)
                mSets[at] =
                    copies ? mNamed.addSelectSet(set(source), mNames[at]) : mNamed.newSelectSet(mNames[at]);
            else
                mSets[at] = copies ? new GxapSelectSet(set(source)) : new GxapSelectSet(mode == 1);
            if (!mSets[at]) // newSelectSet() returns null if there is no memory
                throw std::bad_alloc();
        },
        AfterFailure::kNoSet);
    if (mode >= 3)
        expect(mNamed.getSSetByName(mNames[at]) == mSets[at], "the named set is found by its name");
    if (copies)
        mModel.assignData(modelSet(s), modelSet(source).data);
    else
        mModel.createData(modelSet(s));
}

void Machine::construct(const Operation& o) {
    const int s = o[0];
    const auto at = static_cast<std::size_t>(s);
    // The destructor of a set disables only the registered cursors. So the other cursors of the set must be
    // destroyed first.
    for (int c = 0; c < kCursorCount; ++c) {
        const auto& registry = modelSet(s).registry;
        const bool isRegistered =
            std::find(registry.begin(), registry.end(), &modelCursor(c)) != registry.end();
        if (modelCursor(c).set == &modelSet(s) && !isRegistered)
            dropCursor(c);
    }
    if (mIsNamed[at]) {
        mNamed.delSelectSet(mNames[at]);
        expect(!mNamed.getSSetByName(mNames[at]), "a deleted set is not found by its name");
    } else {
        delete mSets[at];
    }
    mModel.destroySet(modelSet(s));
    makeSet(s, o[1] % 5, o[2]);
}

void Machine::assign(const Operation& o) {
    set(o[0]) = set(o[1]);
    mModel.assignData(modelSet(o[0]), modelSet(o[1]).data);
}

void Machine::copyFrom(const Operation& o) {
    expect(&accessor(o[0]).copyFrom(set(o[1])) == &set(o[0]), "copyFrom returns its set");
    mModel.assignData(modelSet(o[0]), modelSet(o[1]).data);
}

void Machine::createData(const Operation& o) {
    const GxapSelectSet::SSetData* data = nullptr;
    callLibrary([&] { data = set(o[0]).createData(); });
    expect(data == set(o[0]).sharedData, "createData returns the data");
    mModel.createData(modelSet(o[0]));
}

void Machine::releaseData(const Operation& o) {
    set(o[0]).releaseData();
    mModel.releaseData(modelSet(o[0]));
}

void Machine::assignData(const Operation& o) {
    const int source = o[1];
    set(o[0]).assignData(source < 0 ? nullptr : set(source).sharedData);
    mModel.assignData(modelSet(o[0]), source < 0 ? nullptr : modelSet(source).data);
}

void Machine::assignClone(const Operation& o) {
    if (!modelSet(o[0]).data)
        return;
    GxapSelectSet::SSetData* copy = nullptr;
    callLibrary([&] { copy = set(o[0]).sharedData->clone(); });
    expectSame(copy->refCount.load(), 0, "handles of a fresh clone");
    set(o[1]).assignData(copy);
    mModel.assignData(modelSet(o[1]), mModel.clone(*modelSet(o[0]).data));
}

void Machine::countForLisp(const Operation& o) {
    GxapSelectSet& actual = set(o[0]);
    Set& model = modelSet(o[0]);
    switch (o[1] % 4) {
    case 0:
        expectSame(actual.getLispRefCnt(), mModel.lispCount(model), "getLispRefCnt");
        break;
    case 1:
        expectSame(actual.addLispRefCnt(), mModel.addLispCount(model), "addLispRefCnt");
        break;
    case 2:
        expectSame(actual.subtractLispRefCnt(), mModel.subtractLispCount(model), "subtractLispRefCnt");
        break;
    default:
        actual.lispRefCnt = o[1] % 7 - 3;
        model.lispCount = o[1] % 7 - 3;
    }
}

void Machine::clear(const Operation& o) {
    callLibrary([&] { accessor(o[0]).clear(); });
    mModel.clear(modelSet(o[0]));
}

void Machine::clearData(const Operation& o) {
    if (!modelSet(o[0]).data)
        return;
    set(o[0]).sharedData->clear();
    mModel.clearData(modelSet(o[0]).data);
}

void Machine::writeData(const Operation& o) {
    const GxapSelectSet::SSetData* data = nullptr;
    callLibrary([&] { data = accessor(o[0]).writeData(); });
    expect(data == set(o[0]).sharedData, "writeData returns the data");
    mModel.writeData(modelSet(o[0]));
}

void Machine::updateDataMap(const Operation& o) {
    bothDo(
        "updateDataMap", [&] { accessor(o[0]).updateDataMap(); },
        [&] { mModel.updateDataMap(modelSet(o[0])); }, AfterFailure::kIndexLost);
}

void Machine::setNestedMode(const Operation& o) {
    both(
        "setSelectByNestedMode",
        [&] {
            accessor(o[0]).setSelectByNestedMode(o[1] != 0);
            return long{set(o[0]).isSelectByNestedMode()};
        },
        [&] {
            mModel.setNestedMode(modelSet(o[0]), o[1] != 0);
            return long{modelSet(o[0]).data->nestedMode};
        });
}

void Machine::setUnique(const Operation& o) {
    bothDo(
        "setUnique", [&] { accessor(o[0]).setUnique(o[1] != 0); },
        [&] { mModel.setUnique(modelSet(o[0]), o[1] != 0); });
}

// ---- Adding

void Machine::select(const Operation& o) {
    noteUsed(o[1], o[2], o[5]);
    Infos infos(o[4], mFailure.has_value(), mHeldInfos);
    bothDo(
        "select",
        [&] {
            accessor(o[0]).select(mWorld.id(o[1]), mWorld.id(o[2]), o[3], infos.take(),
                                  mWorld.nestedPath(o[5]));
        },
        [&] {
            mModel.select(modelSet(o[0]), o[1], o[2], o[3], World::modelInfo(o[4]),
                          mWorld.modelNestedPath(o[5]));
        });
    if (mWorld.rules().isNull(o[1]))
        infos.freeRefused();
}

// Passes parts of a record to select(). The record may be in the set that select() changes.
void Machine::selectKeysOf(const Operation& o) {
    const int at = positionOf(o[2], countOf(o[1]));
    const RecordPtr model = mModel.getAt(modelSet(o[1]), at);
    if (!model)
        return;
    const selected_entity* const record = set(o[1]).getAt(at);
    Infos infos(o[3], mFailure.has_value(), mHeldInfos);
    bothDo(
        "select",
        [&] {
            accessor(o[0]).select(record->mainEntId, record->subEntId, record->gsMarker, infos.take(),
                                  &record->nestedEntFullPath);
        },
        [&] {
            mModel.select(modelSet(o[0]), model->main, model->sub, model->marker, World::modelInfo(o[3]),
                          &model->path);
        });
    if (mWorld.rules().isNull(model->main))
        infos.freeRefused();
}

void Machine::append(const Operation& o) {
    noteUsed(o[1], o[2]);
    bothDo(
        "append", [&] { accessor(o[0]).append(mWorld.id(o[1]), mWorld.id(o[2])); },
        [&] { mModel.select(modelSet(o[0]), o[1], o[2], -1, std::nullopt, nullptr); });
}

void Machine::appendRecord(const Operation& o) {
    const int at = positionOf(o[2], countOf(o[1]));
    both(
        "append", [&] { return long{accessor(o[0]).append(set(o[1]).getAt(at))}; },
        [&] { return long{mModel.append(modelSet(o[0]), mModel.getAt(modelSet(o[1]), at))}; });
}

void Machine::fill(const Operation& o) {
    const auto idOf = [&](int i) { return 1 + (o[1] + i) % mProfile.idCount; };
    for (int i = 0; i < o[1]; ++i) {
        callLibrary(
            [&] { accessor(o[0]).select(mWorld.id(idOf(i)), mWorld.id(i % 3), -1, nullptr, nullptr); });
        mModel.select(modelSet(o[0]), idOf(i), i % 3, -1, std::nullopt, nullptr);
    }
}

void Machine::addToRun(int s, int main, int sub, long marker, int info, int path) {
    Infos infos(info, mFailure.has_value(), mHeldInfos);
    callLibrary([&] {
        accessor(s).select(mWorld.id(main), mWorld.id(sub), marker, infos.take(), mWorld.nestedPath(path));
    });
    mModel.select(modelSet(s), main, sub, marker, World::modelInfo(info), mWorld.modelNestedPath(path));
    if (mWorld.rules().isNull(main))
        infos.freeRefused();
}

// Adds many items. `pattern` says how many different sub ids, markers, paths and infos these items have. If
// `areMany` is true, all main ids of runs take turns. Otherwise all items have the same main id.
void Machine::fillRun(const Operation& o) {
    const int pattern = o[4];
    constexpr int kSubCounts[] = {1, 5, 37};
    constexpr int kMarkerCounts[] = {1, 2, 4, 50};
    constexpr int kPathCounts[] = {1, 3, World::kPathCountOfRuns};
    const int subs = kSubCounts[pattern % 3];
    const int markers = kMarkerCounts[pattern / 3 % 4];
    const int paths = kPathCounts[pattern / 12 % 3];
    const bool areMany = pattern % 8 == 7;
    const int length = areMany ? World::kMainCountOfRuns * (60 + o[3] % 40) : o[3];
    const int infos = pattern / 36 % 2 != 0 ? World::kInfoCount : 1;
    constexpr int kMarkers[] = {0, -1, 1, 5};
    for (int i = 0; i < length; ++i) {
        const int main = areMany ? World::mainOfRun(i % World::kMainCountOfRuns) : o[1];
        const int sub = (o[2] + i % subs) % World::kFirstSpare;
        const int marker = (i / subs + i) % markers;
        const int path = (i / markers + i) % paths - (paths == 1 ? 1 : 0);
        noteUsed(main, sub, path);
        addToRun(o[0], main, sub, marker < 4 ? kMarkers[marker] : marker, i % 7 % infos - 1, path);
    }
}

void Machine::selectWithoutMemory(const Operation& o) {
    mFailure = Failure{Failure::kNew, 1 + o[6] % 8, false, 0};
    select(o);
}

// ---- Equal ids

void Machine::noteUsed(int main, int sub, int path) {
    mIsUsed[static_cast<std::size_t>(main)] = true;
    mIsUsed[static_cast<std::size_t>(sub)] = true;
    const Vector<int>* const ids = mWorld.modelNestedPath(path);
    for (int i = 0; ids && i < ids->size(); ++i)
        mIsUsed[static_cast<std::size_t>((*ids)[i])] = true;
}

// Returns true if no item has ever had `id`, or another id that equals `id`.
bool Machine::isMovable(int id) const {
    for (std::size_t other = 0; other < mIsUsed.size(); ++other) {
        if (mIsUsed[other] && mWorld.rules().same(static_cast<int>(other), id))
            return false;
    }
    return true;
}

// Makes two ids equal. The higher id then moves to the place of the lower one in the order of ids. The
// function does nothing if an item has had the higher id: the order of the index would be wrong.
void Machine::uniteIds(const Operation& o) {
    const IdRules& rules = mWorld.rules();
    const int higher = rules.rank(o[0]) > rules.rank(o[1]) ? o[0] : o[1];
    if (mProfile.hasEqualIds && !rules.same(o[0], o[1]) && isMovable(higher))
        mWorld.makeEqual(o[0], o[1]);
}

// ---- Removing

void Machine::removeMain(const Operation& o) {
    both(
        "remove by one key", [&] { return long{accessor(o[0]).remove(mWorld.id(o[1]))}; },
        [&] { return long{mModel.remove(modelSet(o[0]), o[1])}; });
}

void Machine::removeSub(const Operation& o) {
    both(
        "remove by two keys", [&] { return long{accessor(o[0]).remove(mWorld.id(o[1]), mWorld.id(o[2]))}; },
        [&] { return long{mModel.remove(modelSet(o[0]), o[1], o[2])}; });
}

void Machine::removeMarker(const Operation& o) {
    both(
        "remove by three keys",
        [&] { return long{accessor(o[0]).remove(mWorld.id(o[1]), mWorld.id(o[2]), o[3])}; },
        [&] { return long{mModel.remove(modelSet(o[0]), o[1], o[2], o[3])}; });
}

// Passes parts of a record to remove(). The record may be in the set that remove() changes.
void Machine::removeKeysOf(const Operation& o) {
    const int at = positionOf(o[2], countOf(o[1]));
    const RecordPtr model = mModel.getAt(modelSet(o[1]), at);
    if (!model)
        return;
    const selected_entity* const record = set(o[1]).getAt(at);
    const int form = o[3] % 4;
    both(
        "remove by keys of a record",
        [&] {
            if (form == 0)
                return long{accessor(o[0]).remove(record->mainEntId)};
            if (form == 1)
                return long{accessor(o[0]).remove(record->mainEntId, record->subEntId)};
            return long{accessor(o[0]).remove(record->mainEntId, record->subEntId, record->gsMarker)};
        },
        [&] {
            if (form == 0)
                return long{mModel.remove(modelSet(o[0]), model->main)};
            if (form == 1)
                return long{mModel.remove(modelSet(o[0]), model->main, model->sub)};
            return long{mModel.remove(modelSet(o[0]), model->main, model->sub, model->marker)};
        });
}

void Machine::removeAtIndex(const Operation& o) {
    const int at = positionOf(o[1], countOf(o[0]));
    both(
        "removeAt a position", [&] { return long{accessor(o[0]).removeAt(at)}; },
        [&] { return long{mModel.removeAt(modelSet(o[0]), at)}; });
}

void Machine::removeAtCursor(const Operation& o) {
    const int own = numberOf(modelCursor(o[1]).set);
    const int s = o[2] != 0 && own >= 0 ? own : o[0];
    both(
        "removeAt a cursor", [&] { return long{accessor(s).removeAt(writable(o[1]))}; },
        [&] { return long{mModel.removeAt(modelSet(s), modelCursor(o[1]))}; });
}

void Machine::removeRun(const Operation& o) {
    for (int i = 0; i < o[2] / 4; ++i) {
        const int at = positionOf(o[1], countOf(o[0]));
        if (!both(
                "removeAt a position", [&] { return long{accessor(o[0]).removeAt(at)}; },
                [&] { return long{mModel.removeAt(modelSet(o[0]), at)}; }))
            return;
    }
}

void Machine::removeThroughCursor(const Operation& o) {
    const int s = o[0];
    const int c = o[1];
    const int at = positionOf(o[2], countOf(s));
    place(
        mWritable[static_cast<std::size_t>(c - kConstCount)], modelCursor(c), true,
        [&] { return accessor(s).iteratorAt(at); },
        [&](Cursor& it) { mModel.writeIteratorAt(it, modelSet(s), at); });
    for (int i = 0; i < o[3] && !mModel.isDone(modelCursor(c)); ++i) {
        both(
            "removeAt a cursor", [&] { return long{accessor(s).removeAt(writable(c))}; },
            [&] { return long{mModel.removeAt(modelSet(s), modelCursor(c))}; });
        both(
            "step", [&] { return long{writable(c).step(true)}; },
            [&] { return long{mModel.step(modelCursor(c))}; });
    }
}

// ---- Set algebra

void Machine::bothDoWhole(const WholeSets& operation) {
    if (const std::optional<Failure> failure = takeFailure())
        return failWhole(operation, *failure);
    const Outcome outcome = outcomeOfCall([&] {
        const RecordTracker::Recording recording(mTracker, true);
        operation.actual();
    });
    const SetAt at = [this](int s) { return modelSetOrNull(s); };
    expectOutcome(outcome, outcomeOfModel([&] { operation.model(at); }), operation.what);
}

void Machine::merge(const Operation& o) {
    bothDoWhole({"merge",
                 {o[0]},
                 false,
                 -1,
                 [&] { accessor(o[0]).merge(setOrNull(o[1]), setOrNull(o[2])); },
                 [&](const SetAt& at) { mModel.merge(*at(o[0]), at(o[1]), at(o[2])); }});
}

void Machine::minus(const Operation& o) {
    bothDoWhole({"minus",
                 {o[0]},
                 true,
                 o[1],
                 [&] { accessor(o[0]).minus(setOrNull(o[1]), setOrNull(o[2])); },
                 [&](const SetAt& at) { mModel.minus(*at(o[0]), at(o[1]), at(o[2])); }});
}

void Machine::transfer(const Operation& o) {
    const bool hasExcluder = o[4] != 0 || o[3] % 4 != 0;
    const bool isHurt = mFailure.has_value();
    const int throwAt = hasExcluder && !isHurt ? takeThrow() : 0;
    MaskExcluder excluder(mWorld, static_cast<unsigned>(o[3]), throwAt);
    std::vector<int> asked;
    const std::function<bool(int)> isExcluded = [&](int id) {
        asked.push_back(id);
        if (static_cast<int>(asked.size()) == throwAt)
            throw Raised{kCallbackThrows};
        return excluder.excludes(id);
    };
    bothDoWhole({"transfer",
                 {o[1], o[2], modelSet(o[0]).data ? -1 : o[0]}, // a set without data gets data
                 false,
                 -1,
                 [&] { set(o[0]).transfer(set(o[1]), hasExcluder ? &excluder : nullptr, setOrNull(o[2])); },
                 [&](const SetAt& at) {
                     mModel.transfer(*at(o[0]), *at(o[1]), hasExcluder ? &isExcluded : nullptr, at(o[2]));
                 }});
    if (!isHurt)
        expect(excluder.asked() == asked, "the excluder is asked once for every item, in order");
}

// ---- Cursors

void Machine::makeCursor(const Operation& o) {
    const int s = o[1];
    const GxapSelectSet& from = set(s);
    GxapSelectSet& nonConst = set(s);
    Set& model = modelSet(s);
    auto& slot = mConst[static_cast<std::size_t>(o[0])];
    Cursor& cursor = modelCursor(o[0]);
    const GxDbObjectId& main = mWorld.id(o[3]);
    const GxDbObjectId& sub = mWorld.id(o[4]);
    const long marker = o[5];
    const KvVector<GxDbObjectId>* const path = mWorld.nestedPath(o[6]);
    const Vector<int>* const modelPath = mWorld.modelNestedPath(o[6]);
    const int at = positionOf(o[7], countOf(s));
    const bool assigned = o[8] != 0;
    const auto make = [&](const auto& actual, const std::function<void(Cursor&)>& modelMake) {
        place(slot, cursor, assigned, actual, modelMake);
    };
    const auto find = [&](const Keys& keys) {
        return [&, keys](Cursor& it) { mModel.findIterator(it, model, keys); };
    };
    switch (o[2] % 14) {
    case 0:
        return make([&] { return from.begin(); }, [&](Cursor& it) { mModel.begin(it, model); });
    case 1:
        return make([&] { return from.end(); }, [&](Cursor& it) { mModel.end(it, model); });
    case 2:
        return make([&] { return nonConst.cbegin(); }, [&](Cursor& it) { mModel.begin(it, model); });
    case 3:
        return make([&] { return nonConst.cend(); }, [&](Cursor& it) { mModel.end(it, model); });
    case 4:
    case 5:
        return make([&] { return from.iteratorAt(at); },
                    [&](Cursor& it) { mModel.iteratorAt(it, model, at); });
    case 6:
        return make([&] { return from.findItr(main); }, find({o[3], {}, {}, nullptr, {}}));
    case 7:
        return make([&] { return from.findItr(main, sub); }, find({o[3], o[4], {}, nullptr, {}}));
    case 8:
        return make([&] { return from.findItr(main, sub, marker); }, find({o[3], o[4], marker, nullptr, {}}));
    case 9:
        return make([&] { return from.findItr(main, sub, path); }, find({o[3], o[4], {}, modelPath, {}}));
    case 10:
        return make([&] { return from.findItr(main, sub, marker, path); },
                    find({o[3], o[4], marker, modelPath, {}}));
    case 11:
        return make([&] { return from.findMain(main); }, find({o[3], {}, {}, nullptr, {}}));
    case 12:
        return make([&] { return from.findMainSubsel(main); },
                    [&](Cursor& it) { mModel.findMainSubselection(it, model, o[3]); });
    default:
        return make([&] { return ConstIterator(&from, at); },
                    [&](Cursor& it) { mModel.construct(it, &model, at); });
    }
}

void Machine::makeWritableCursor(const Operation& o) {
    const int s = o[1];
    GxapSSetWriteAccessor& from = accessor(s);
    Set& model = modelSet(s);
    auto& slot = mWritable[static_cast<std::size_t>(o[0] - kConstCount)];
    Cursor& cursor = modelCursor(o[0]);
    const GxDbObjectId& main = mWorld.id(o[3]);
    const GxDbObjectId& sub = mWorld.id(o[4]);
    const long marker = o[5];
    const int at = positionOf(o[6], countOf(s));
    const bool assigned = o[7] != 0;
    const auto make = [&](const auto& actual, const std::function<void(Cursor&)>& modelMake) {
        place(slot, cursor, assigned, actual, modelMake);
    };
    const auto find = [&](const Keys& keys) {
        return [&, keys](Cursor& it) { mModel.writeFind(it, model, keys); };
    };
    switch (o[2] % 10) {
    case 0:
        return make([&] { return from.begin(); }, [&](Cursor& it) { mModel.writeBegin(it, model); });
    case 1:
        return make([&] { return from.end(); }, [&](Cursor& it) { mModel.end(it, model); });
    case 2:
    case 3:
    case 4:
        return make([&] { return from.iteratorAt(at); },
                    [&](Cursor& it) { mModel.writeIteratorAt(it, model, at); });
    case 5:
        return make([&] { return from.findItr(main); }, find({o[3], {}, {}, nullptr, {}}));
    case 6:
        return make([&] { return from.findItr(main, sub); }, find({o[3], o[4], {}, nullptr, {}}));
    case 7:
        return make([&] { return from.findItr(main, sub, marker); }, find({o[3], o[4], marker, nullptr, {}}));
    case 8:
        return make([&] { return from.findMainSubsel(main); },
                    [&](Cursor& it) { mModel.writeFindMainSubselection(it, model, o[3]); });
    default:
        return make([&] { return from.findMain(main); }, find({o[3], {}, {}, nullptr, {}}));
    }
}

// Returns the number of the cursor to copy. A writable cursor can only be made from a writable cursor.
int Machine::sourceOf(const Operation& o) {
    return o[0] < kConstCount ? o[1] : kConstCount + o[1] % kConstCount;
}

void Machine::copyCursor(const Operation& o) {
    const int to = o[0];
    const int from = sourceOf(o);
    if (from == to)
        return;
    dropCursor(to);
    callLibrary([&] {
        if (to < kConstCount)
            mConst[static_cast<std::size_t>(to)] = std::make_unique<ConstIterator>(cursor(from));
        else
            mWritable[static_cast<std::size_t>(to - kConstCount)] =
                std::make_unique<Iterator>(writable(from));
    });
    mModel.constructCopy(modelCursor(to), modelCursor(from));
}

void Machine::assignCursor(const Operation& o) {
    const int to = o[0];
    const int from = sourceOf(o);
    callLibrary([&] {
        if (to < kConstCount)
            *mConst[static_cast<std::size_t>(to)] = cursor(from);
        else
            writable(to) = writable(from);
    });
    mModel.assign(modelCursor(to), modelCursor(from));
}

void Machine::step(const Operation& o) {
    both(
        "step", [&] { return long{cursor(o[0]).step(true)}; },
        [&] { return long{mModel.step(modelCursor(o[0]))}; });
}

void Machine::previous(const Operation& o) {
    both(
        "getPrevIterator", [&] { return long{cursor(o[0]).getPrevIterator(cursor(o[1]))}; },
        [&] { return long{mModel.previous(modelCursor(o[0]), modelCursor(o[1]))}; });
}

void Machine::disable(const Operation& o) {
    cursor(o[0]).disable();
    modelCursor(o[0]).at.reset();
}

void Machine::destroyCursor(const Operation& o) {
    dropCursor(o[0]);
}

void Machine::compareCursors(const Operation& o) {
    const bool equal = cursor(o[0]) == cursor(o[1]);
    expectSame(equal, mModel.equal(modelCursor(o[0]), modelCursor(o[1])), "comparison of cursors");
    expect(equal != (cursor(o[0]) != cursor(o[1])), "cursors are either equal or not");
}

void Machine::readCursor(const Operation& o) {
    readRecord(cursor(o[0]), modelCursor(o[0]));
    readPaths(cursor(o[0]), modelCursor(o[0]));
}

void Machine::readRecord(const ConstIterator& it, const Cursor& model) {
    const selected_entity* record = nullptr;
    bothRecords(
        "get", [&] { return it.get(); }, [&] { return mModel.get(model); });
    const Outcome readable = outcomeOfActual([&] { record = it.get(); });
    if (readable != kReturned)
        record = nullptr;
    const auto reads = [&](const char* what, const Call& actual, long wanted) {
        both(what, actual, [&]() -> long {
            if (readable != kReturned)
                throw Raised{readable};
            return wanted;
        });
    };
    reads(
        "mainEntId", [&] { return asNumber(it.mainEntId().stub()); },
        record ? asNumber(record->mainEntId.stub()) : 0);
    reads(
        "subEntId", [&] { return asNumber(it.subEntId().stub()); },
        record ? asNumber(record->subEntId.stub()) : 0);
    reads(
        "gsMarker", [&] { return it.gsMarker(); }, record ? record->gsMarker : 0);
    reads(
        "selectedEntityInfo", [&] { return asNumber(it.selectedEntityInfo()); },
        record ? asNumber(record->selectedEntityInfo) : 0);
    reads(
        "highlightSegmentArray", [&] { return asNumber(it.highlightSegmentArray()); },
        record ? asNumber(record->highlightSegmentArray) : 0);
    reads(
        "hlVpArray", [&] { return asNumber(it.hlVpArray()); }, record ? asNumber(&record->hlVpArray) : 0);
    reads(
        "nestedEntFullPath",
        [&] {
            const auto& path = it.nestedEntFullPath();
            return record ? asNumber(&path) : long{path.logicalLength()};
        },
        record ? asNumber(&record->nestedEntFullPath) : 0);
}

void Machine::readPaths(const ConstIterator& it, const Cursor& model) {
    both(
        "isNestedEnt", [&] { return long{it.isNestedEnt()}; }, [&] { return long{mModel.isNested(model)}; });

    WrittenPath written(mHeldPaths);
    GxDbFullSubentPath& full = *written;
    std::optional<std::vector<int>> wanted;
    if (both(
            "getFullSubentPath", [&] { return long{it.getFullSubentPath(full)}; },
            [&] {
                wanted = mModel.fullPath(model);
                return long{wanted.has_value()};
            })) {
        expectSame(full.objectIds().logicalLength(), static_cast<long>(wanted->size()),
                   "ids of the full path");
        for (int i = 0; i < full.objectIds().logicalLength(); ++i)
            expectSame(asNumber(full.objectIds()[i].stub()), stubOf((*wanted)[static_cast<std::size_t>(i)]),
                       "id of the full path");
        expectSame(full.subentId().type, 0, "type of the full path");
        expectSame(full.subentId().index, it.gsMarker(), "index of the full path");
    }

    KvVector<GxDbObjectId> filtered;
    filtered.setLogicalLength(1);
    filtered.at(0) = mWorld.id(1);
    std::vector<int> openable{1};
    both(
        "getFilteredNestedFullPath", [&] { return long{it.getFilteredNestedFullPath(filtered)}; },
        [&] {
            if (!model.at)
                return 0L;
            openable.clear();
            const RecordPtr record = mModel.get(model);
            for (int i = 0; record && i < record->path.size(); ++i) {
                if (mWorld.opens(record->path[i]))
                    openable.push_back(record->path[i]);
            }
            return long{record && record->path.size() > 0};
        });
    expectSame(filtered.logicalLength(), static_cast<long>(openable.size()), "ids that open");
    for (int i = 0; i < filtered.logicalLength(); ++i)
        expectSame(asNumber(filtered.at(i).stub()), stubOf(openable[static_cast<std::size_t>(i)]),
                   "id that opens");
}

// ---- Changing the record of a cursor

void Machine::setNestedPath(const Operation& o) {
    if (o[1] < 0)
        return;
    mRecordsChanged = true;
    noteUsed(0, 0, o[1]);
    bothDo(
        "setNestedEntFullPath", [&] { writable(o[0]).setNestedEntFullPath(*mWorld.nestedPath(o[1])); },
        [&] {
            if (const RecordPtr record = mModel.get(modelCursor(o[0])))
                record->path = *mWorld.modelNestedPath(o[1]);
        });
}

void Machine::setSegment(const Operation& o) {
    mRecordsChanged = true;
    const GxDbFullSubentPath* const path = o[1] < 0 ? nullptr : &mWorld.subentPath(o[1]);
    bothDo(
        "setHighlightSegment",
        [&] {
            if (o[2] != 0)
                accessor(o[3]).setHighlightSegment(writable(o[0]), path);
            else
                writable(o[0]).setHighlightSegment(path);
        },
        [&] { mModel.setSegment(modelCursor(o[0]), path ? &mWorld.modelSubentPath(o[1]) : nullptr); });
}

void Machine::writeViewports(const Operation& o) {
    mRecordsChanged = true;
    const int length = o[1] % 3;
    both(
        "hlVpArray",
        [&] {
            KvVector<int>* const viewports = cursor(o[0]).hlVpArray();
            if (!viewports)
                return 0L;
            viewports->setLogicalLength(length);
            if (length > 0)
                viewports->at(length - 1) = o[1];
            return 1L;
        },
        [&] {
            const RecordPtr record = mModel.get(modelCursor(o[0]));
            if (!record)
                return 0L;
            record->viewports.resize(length);
            if (length > 0)
                record->viewports.set(length - 1, o[1]);
            return 1L;
        });
}

// ---- Lookup, positions, comparison

void Machine::lookUpForm(int s, const Keys& keys, const std::function<DataMap::const_iterator()>& findInMap,
                         const std::function<int()>& find, const std::function<ConstIterator()>& findItr) {
    const GxapSelectSet& actual = set(s);
    Set& model = modelSet(s);
    both(
        "findInMap",
        [&]() -> long {
            const auto entry = findInMap();
            return entry == actual.sharedData->dataMap.end() ? 0 : static_cast<long>(entry->second);
        },
        [&]() -> long {
            const auto entry = mModel.findInMap(model, keys);
            if (entry == model.data->index.end())
                return 0;
            const Place& place = entry->second.place;
            return asNumber(place.page->actualSlots + place.slot * kSlotBytes);
        });
    if (!find)
        return;
    both(
        "find", [&]() -> long { return find(); }, [&]() -> long { return mModel.find(model, keys); });
    both(
        "findItr", [&]() -> long { return findItr().index; },
        [&]() -> long {
            Cursor found;
            mModel.findIterator(found, model, keys);
            const int index = found.index;
            mModel.destroy(found);
            return index;
        });
}

void Machine::lookUpAll(int s, const ActualKeys& k, const Keys& all) {
    const GxapSelectSet& in = set(s);
    lookUpForm(
        s, {all.main, {}, {}, nullptr, {}}, [&] { return in.findInMap(k.main); },
        [&] { return in.find(k.main); }, [&] { return in.findItr(k.main); });
    lookUpForm(
        s, {all.main, all.sub, {}, nullptr, {}}, [&] { return in.findInMap(k.main, k.sub); },
        [&] { return in.find(k.main, k.sub); }, [&] { return in.findItr(k.main, k.sub); });
    lookUpForm(
        s, {all.main, all.sub, all.marker, nullptr, {}},
        [&] { return in.findInMap(k.main, k.sub, k.marker); },
        [&] { return in.find(k.main, k.sub, k.marker); },
        [&] { return in.findItr(k.main, k.sub, static_cast<int>(k.marker)); });
    lookUpForm(
        s, {all.main, all.sub, {}, all.path, {}}, [&] { return in.findInMap(k.main, k.sub, k.path); },
        [&] { return in.find(k.main, k.sub, k.path); }, [&] { return in.findItr(k.main, k.sub, k.path); });
    lookUpForm(
        s, {all.main, all.sub, all.marker, all.path, {}},
        [&] { return in.findInMap(k.main, k.sub, k.marker, k.path); },
        [&] { return in.find(k.main, k.sub, k.marker, k.path); },
        [&] { return in.findItr(k.main, k.sub, k.marker, k.path); });

    const Infos infos(k.info, false, mHeldInfos);
    lookUpForm(
        s, all, [&] { return in.findInMap(k.main, k.sub, k.marker, k.path, infos.first()); }, nullptr,
        nullptr);
}

void Machine::lookUp(const Operation& o) {
    const auto info = World::modelInfo(o[5]);
    lookUpAll(o[0], {mWorld.id(o[1]), mWorld.id(o[2]), o[3], mWorld.nestedPath(o[4]), o[5]},
              {o[1], o[2], o[3], mWorld.modelNestedPath(o[4]), info ? info->matrix : 0});
    for (long other : {-1, 0, 1, 5})
        expectSame(isGsMarkEqual(o[3], other), sameMarker(o[3], other), "isGsMarkEqual");
}

// Looks items up while allocations fail. A look-up must give the right result even if there is no memory for
// a hash.
void Machine::lookUpWithoutMemory(const Operation& o) {
    const GxapSelectSet& in = set(o[0]);
    const GxDbObjectId& main = mWorld.id(o[1]);
    const GxDbObjectId& sub = mWorld.id(o[2]);
    const long marker = o[3];
    const KvVector<GxDbObjectId>* const path = mWorld.nestedPath(o[4]);
    const auto find = [&](const char* what, const std::function<int()>& actual, const Keys& keys) {
        both(
            what,
            [&]() -> long {
                const NewFailure failure(1 + o[5] / 2, o[5] % 2 != 0);
                return actual();
            },
            [&]() -> long { return mModel.find(modelSet(o[0]), keys); });
    };
    const Vector<int>* const modelPath = mWorld.modelNestedPath(o[4]);
    find("find by three keys", [&] { return in.find(main, sub, marker); }, {o[1], o[2], marker, nullptr, {}});
    find("find by all keys", [&] { return in.find(main, sub, marker, path); },
         {o[1], o[2], marker, modelPath, {}});
}

void Machine::lookUpKeysOf(const Operation& o) {
    const int at = positionOf(o[2], countOf(o[1]));
    const RecordPtr model = mModel.getAt(modelSet(o[1]), at);
    if (!model)
        return;
    const selected_entity* const record = set(o[1]).getAt(at);
    const auto info = World::modelInfo(o[3]);
    lookUpAll(o[4] != 0 ? o[1] : o[0],
              {record->mainEntId, record->subEntId, record->gsMarker, &record->nestedEntFullPath, o[3]},
              {model->main, model->sub, model->marker, &model->path, info ? info->matrix : 0});
}

void Machine::readPositions(const Operation& o) {
    const GxapSelectSet& actual = set(o[0]);
    const Set& model = modelSet(o[0]);
    const int count = countOf(o[0]);
    const GxDbObjectId untouched = mWorld.id(1);
    const auto readIds = [&](const char* what, int at, const std::function<bool(GxDbObjectId&)>& one,
                             const std::function<bool(GxDbObjectId&, GxDbObjectId&)>& two) {
        const RecordPtr record = mModel.getAt(model, at);
        GxDbObjectId main = untouched;
        both(
            what, [&] { return long{one(main)}; }, [&] { return long{record != nullptr}; });
        expectSame(asNumber(main.stub()), record ? stubOf(record->main) : stubOf(1), what);
        main = untouched;
        GxDbObjectId sub = untouched;
        both(
            what, [&] { return long{two(main, sub)}; }, [&] { return long{record != nullptr}; });
        expectSame(asNumber(main.stub()), record ? stubOf(record->main) : stubOf(1), what);
        expectSame(asNumber(sub.stub()), record ? stubOf(record->sub) : stubOf(1), what);
    };
    const int at = positionOf(o[1], count);
    bothRecords(
        "getAt", [&] { return actual.getAt(at); }, [&] { return mModel.getAt(model, at); });
    bothRecords(
        "getFirst", [&] { return actual.getFirst(); }, [&] { return mModel.getAt(model, 0); });
    bothRecords(
        "getLast", [&] { return actual.getLast(); }, [&] { return mModel.getAt(model, count - 1); });
    readIds(
        "getAt", at, [&](auto& main) { return actual.getAt(at, main); },
        [&](auto& main, auto& sub) { return actual.getAt(at, main, sub); });
    readIds(
        "getFirst", 0, [&](auto& main) { return actual.getFirst(main); },
        [&](auto& main, auto& sub) { return actual.getFirst(main, sub); });
    readIds(
        "getLast", count - 1, [&](auto& main) { return actual.getLast(main); },
        [&](auto& main, auto& sub) { return actual.getLast(main, sub); });
    expectSame(actual.isSelectByNestedMode(), model.data && model.data->nestedMode, "isSelectByNestedMode");
}

void Machine::compareSets(const Operation& o) {
    const GxapSelectSet* const other = setOrNull(o[1]);
    Set* const modelOther = modelSetOrNull(o[1]);
    both(
        "contains", [&] { return long{set(o[0]).contains(other)}; },
        [&] { return long{mModel.contains(modelSet(o[0]), modelOther)}; });
    both(
        "intersectedWith", [&] { return long{set(o[0]).intersectedWith(other)}; },
        [&] { return long{mModel.intersects(modelSet(o[0]), modelOther)}; });
}

// ---- Drawing

std::vector<std::string> Machine::highlightsOf(const std::vector<RecordPtr>& records, bool flag,
                                               bool on) const {
    std::vector<std::string> calls;
    for (const RecordPtr& record : records) {
        if (!record->segments || !mWorld.opens(record->main))
            continue;
        for (int i = 0; i < record->segments->size(); ++i)
            calls.push_back(World::highlightCall(on, flag, (*record->segments)[i]->actual));
    }
    return calls;
}

// Draws with library and model. The model returns the records that are drawn.
void Machine::drawRecords(const char* what, bool flag, bool on, const Work& actual,
                          const std::function<std::vector<RecordPtr>()>& model) {
    const int throwAt = takeThrow();
    std::vector<std::string> wanted;
    bothDo(
        what,
        [&] {
            mWorld.takeHighlightCalls();
            World::throwAtHighlight(throwAt);
            actual();
        },
        [&] {
            wanted = highlightsOf(model(), flag, on);
            if (throwAt == 0 || static_cast<std::size_t>(throwAt) > wanted.size())
                return;
            wanted.resize(static_cast<std::size_t>(throwAt));
            throw Raised{kCallbackThrows};
        });
    World::throwAtHighlight(0);
    expect(mWorld.takeHighlightCalls() == wanted, "every segment is drawn once, in order");
    expectSame(kvinmemory::openObjects(), 0, "entities that are left open");
}

void Machine::draw(const Operation& o) {
    const bool flag = o[1] != 0;
    const bool on = o[2] != 0;
    drawRecords(
        "draw a set", flag, on, [&] { set(o[0]).draw(flag, on); },
        [&] {
            if (!modelSet(o[0]).data)
                mModel.createData(modelSet(o[0]));
            return modelSet(o[0]).data->store->records();
        });
}

void Machine::drawCursor(const Operation& o) {
    const bool flag = o[2] != 0;
    const bool on = o[3] != 0;
    drawRecords(
        "draw an item", flag, on, [&] { set(o[0]).draw(cursor(o[1]), flag, on); },
        [&] {
            const RecordPtr record = mModel.get(modelCursor(o[1]));
            return record ? std::vector<RecordPtr>{record} : std::vector<RecordPtr>();
        });
}

// ---- Sub-selections

// Gives an item a sub-selection of up to three paths.
void Machine::makeSubselection(const Operation& o) {
    mRecordsChanged = true;
    const int at = positionOf(o[1], countOf(o[0]));
    selected_entity** slot = nullptr;
    RecordPtr model;
    both(
        "the accessor's getAt",
        [&] {
            slot = accessor(o[0]).getAt(at);
            return long{slot != nullptr};
        },
        [&] {
            model = mModel.writeAt(modelSet(o[0]), at);
            return long{model != nullptr};
        });
    if (!slot)
        return;
    selected_entity& record = **slot;
    record.hasSubselPaths = true;
    model->hasSubselection = true;
    if (record.subselPathArray)
        return;
    record.subselPathArray = new SegmentList;
    model->subselection.emplace();
    for (int i = 0; i < o[3] % 4; ++i) {
        const int number = (o[2] + i * (o[3] % 3)) % World::kSubentPathCount;
        const bool isNull = o[3] % 16 == i;
        auto* const path = isNull ? nullptr : new GxDbFullSubentPath(mWorld.subentPath(number));
        kvtest::append(*record.subselPathArray, path);
        if (isNull) {
            model->subselection->push(nullptr);
            continue;
        }
        mModel.loosePaths.push_back(std::make_shared<PathObject>(mWorld.modelSubentPath(number)));
        mModel.loosePaths.back()->actual = path;
        model->subselection->push(mModel.loosePaths.back());
    }
}

void Machine::toggleSubselection(const Operation& o) {
    mRecordsChanged = true;
    const int at = positionOf(o[1], countOf(o[0]));
    both(
        "the accessor's getAt",
        [&] {
            selected_entity** const slot = accessor(o[0]).getAt(at);
            if (slot)
                (*slot)->hasSubselPaths = !(*slot)->hasSubselPaths;
            return long{slot != nullptr};
        },
        [&] {
            const RecordPtr record = mModel.writeAt(modelSet(o[0]), at);
            if (record)
                record->hasSubselection = !record->hasSubselection;
            return long{record != nullptr};
        });
}

// If the call makes a new item, nobody owns the copy of the path. Its address is only in the log of the
// database. The test deletes the copy.
void Machine::appendSubselection(const Operation& o) {
    noteUsed(mWorld.entityOf(mWorld.modelSubentPath(o[1])).value_or(0), 0);
    mRecordsChanged = true;
    const std::size_t loggedBefore = kvinmemory::databaseEvents().size();
    kvinmemory::setLogging(true);
    const std::size_t listed = mModel.loosePaths.size();
    const bool stored =
        both(
            "appendSubentPathSubsel",
            [&] { return long{accessor(o[0]).appendSubentPathSubsel(mWorld.subentPath(o[1]))}; },
            [&] { return long{mModel.appendSubselection(modelSet(o[0]), mWorld.modelSubentPath(o[1]))}; }) !=
        0;
    kvinmemory::setLogging(false);
    const bool isListed = mModel.loosePaths.size() > listed;
    const auto left = pathsLeft(loggedBefore);
    expectSame(static_cast<long>(left.size()), stored ? 1 : 0, "copies of the path that appending leaves");
    if (stored && !isListed)
        delete left.front();
}

void Machine::removeSubselection(const Operation& o) {
    mRecordsChanged = true;
    both(
        "removeSubentPathSubsel",
        [&] { return long{accessor(o[0]).removeSubentPathSubsel(mWorld.subentPath(o[1]))}; },
        [&] { return long{mModel.removeSubselection(modelSet(o[0]), mWorld.modelSubentPath(o[1]))}; });
}

void Machine::removeSubselectionAt(const Operation& o) {
    mRecordsChanged = true;
    const int at = positionOf(o[1], countOf(o[0]));
    both(
        "removeSubentPathAtSubsel", [&] { return long{accessor(o[0]).removeSubentPathAtSubsel(at, o[2])}; },
        [&] { return long{mModel.removeSubselectionAt(modelSet(o[0]), at, o[2])}; });
}

void Machine::findSubselection(const Operation& o) {
    mRecordsChanged = true; // the call may make a list of paths private
    both(
        "findSubentPathSubsel",
        [&]() -> long { return set(o[0]).findSubentPathSubsel(mWorld.id(o[1]), mWorld.subentPath(o[2])); },
        [&]() -> long {
            return mModel.findSubselection(modelSet(o[0]), o[1], mWorld.modelSubentPath(o[2]));
        });
}

void Machine::readSubselection(const Operation& o) {
    const int at = positionOf(o[1], countOf(o[0]));
    WrittenPath written(mHeldPaths);
    GxDbFullSubentPath& read = *written;
    PathPtr wanted;
    both(
        "getSubentPathAtSubsel", [&] { return long{set(o[0]).getSubentPathAtSubsel(at, o[2], read)}; },
        [&] {
            bool found = false;
            wanted = mModel.subselectionAt(modelSet(o[0]), at, o[2], found);
            return long{found};
        });
    if (wanted)
        expect(read == *actualPath(wanted), "the path read is the one stored");
    else
        expect(read == GxDbFullSubentPath(), "no path is read");
}

// ---- Records changed by the caller

void Machine::editRecord(const Operation& o) {
    noteUsed(o[2], o[3]);
    mRecordsChanged = true;
    const int at = positionOf(o[1], countOf(o[0]));
    both(
        "the accessor's getAt",
        [&] {
            selected_entity** const slot = accessor(o[0]).getAt(at);
            if (!slot)
                return 0L;
            (*slot)->mainEntId = mWorld.id(o[2]);
            (*slot)->subEntId = mWorld.id(o[3]);
            (*slot)->gsMarker = o[4];
            return 1L;
        },
        [&] {
            const RecordPtr record = mModel.writeAt(modelSet(o[0]), at);
            if (!record)
                return 0L;
            record->main = o[2];
            record->sub = o[3];
            record->marker = o[4];
            return 1L;
        });
    if (o[5] != 0 || hasRuns())
        updateDataMap(o);
}

void Machine::replaceRecord(const Operation& o) {
    noteUsed(o[2], o[3]);
    mRecordsChanged = true;
    const int at = positionOf(o[1], countOf(o[0]));
    both(
        "the accessor's getAt",
        [&] {
            selected_entity** const slot = accessor(o[0]).getAt(at);
            if (!slot)
                return 0L;
            *slot = new selected_entity;
            (*slot)->mainEntId = mWorld.id(o[2]);
            (*slot)->subEntId = mWorld.id(o[3]);
            (*slot)->gsMarker = o[4];
            return 1L;
        },
        [&] {
            if (!mModel.writeAt(modelSet(o[0]), at))
                return 0L;
            const Place place = *modelSet(o[0]).data->store->elementAt(at);
            auto record = std::make_shared<Record>();
            record->main = o[2];
            record->sub = o[3];
            record->marker = o[4];
            mModel.removed.push_back(place.record());
            place.page->slots[static_cast<std::size_t>(place.slot)] = record;
            return 1L;
        });
    if (o[5] != 0 || hasRuns())
        updateDataMap(o);
}

// Erases the index entry of an item, or moves the entry behind the other entries of the same id. Then looks
// the item up, before and after adding another item of the id.
void Machine::editIndex(const Operation& o) {
    Set& model = modelSet(o[0]);
    const int at = positionOf(o[1], countOf(o[0]));
    const RecordPtr record = mModel.getAt(model, at);
    if (!record || model.data.use_count() > 1)
        return;
    Index& index = model.data->index;
    const auto entry = std::find_if(index.begin(), index.end(),
                                    [&](const auto& each) { return each.second.place.record() == record; });
    if (entry == index.end())
        return;
    DataMap& actual = set(o[0]).sharedData->dataMap;
    auto node = actual.extract(std::next(actual.begin(), std::distance(index.begin(), entry)));
    auto modelNode = index.extract(entry);
    if (o[2] != 0) {
        actual.insert(std::move(node));
        index.insert(std::move(modelNode));
    }
    const Operation lookingUp{Kind::lookUpKeysOf, {o[0], o[0], at, -1, 1}};
    lookUpKeysOf(lookingUp);
    const int sub = mStep % (hasRuns() ? World::kFirstSpare : 3);
    noteUsed(record->main, sub);
    addToRun(o[0], record->main, sub, record->marker, -1, -1);
    // The item may be on a new page, which the model has to know.
    comparePages(*set(o[0]).sharedData->entities, *modelSet(o[0]).data->store, false);
    lookUpKeysOf(lookingUp);
}

// ---- Failures to come

void Machine::failNext(const Operation& o) {
    constexpr Failure kKinds[kFailureCount] = {{Failure::kMalloc, 0, false, 0},
                                               {Failure::kMalloc, 0, true, 0},
                                               {Failure::kNew, 0, false, 0},
                                               {Failure::kNew, 0, true, 0},
                                               {Failure::kPathCopy, 0, false, 0}};
    mFailure = kKinds[o[0]];
    mFailure->nth = o[1];
    mFailure->callsToPass = o[2];
}

void Machine::throwNext(const Operation& o) {
    mThrowAt = o[0];
}

} // namespace kvmodel
