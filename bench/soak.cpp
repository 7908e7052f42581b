// Edits sets of many items for minutes. Shows the longest call of every operation, in processor time of the
// calling thread, and whether all memory comes back.
//
// The program runs cycles. A cycle fills sets, edits them in every way, and empties and destroys them. It
// deletes the records that it has removed. After each cycle, the memory in use must be that before the first.
//
// Single edits must not take longer than a limit. If one does, the cycle runs once more with the same seed.
// The call counts as slow only if it is slow again: a host of virtual machines may stop one for milliseconds,
// and that time counts as processor time.
//
// A tenth of all items have one main id. Edits of this run make its hash again now and then, which takes time
// for every item of the run. In runs of more than 15,000 items, such an edit takes longer than the limit.
//
// Writes lines of fields that commas separate:
//   call,<operation>,<single or whole>,<calls>,<nanoseconds of the longest>
//   slow,<number of the call>,<operation>,<nanoseconds>   a single edit that was over the limit twice
//   disturbed,<number of single edits that were over the limit only once>
//   memory,<cycles>,<bytes at the start>,<most bytes after a cycle>,<bytes at the end>
//   left,<paths>,<references to the empty block>          the most after a cycle, without those at the start
// scripts/trust-soak reports on the lines.
//
// --seconds=600, --items=100000 and --seed=1 are the defaults.

#include "bench/Arguments.h"
#include "bench/Child.h"
#include "bench/Item.h"
#include "bench/Operations.h"
#include "bench/ThreadClock.h"
#include "platform/inmemory/InMemoryDatabase.h"
#include "selectcontext/KvSelectContext.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <memory>
#include <new>
#include <optional>
#include <random>
#include <thread>
#include <utility>
#include <vector>

namespace kvbench {
namespace {

constexpr std::uint64_t kLimit = 5000000; // nanoseconds of a single edit

// ---- The calls that are timed

// Each line has a name, and whether the call does the work of many. The limit is for the other calls.
#define KV_SOAK_CALLS(CALL)                                                                                  \
    CALL(kClock, "reading the clock", false)                                                                 \
    CALL(kSelect, "select", false)                                                                           \
    CALL(kSelectInRun, "select in a long run", false)                                                        \
    CALL(kAppendRecord, "append a record", false)                                                            \
    CALL(kLookUpById, "look-up by id", false)                                                                \
    CALL(kLookUpByKeys, "look-up by five keys", false)                                                       \
    CALL(kLookUpInRun, "look-up in a long run", false)                                                       \
    CALL(kPosition, "id to position", false)                                                                 \
    CALL(kNthItem, "n-th item", false)                                                                       \
    CALL(kIteratorAt, "iterator at a position", false)                                                       \
    CALL(kStep, "walk step", false)                                                                          \
    CALL(kRemoveById, "remove by id", false)                                                                 \
    CALL(kRemoveByKeys, "remove by three keys", false)                                                       \
    CALL(kRemoveAt, "remove at a position", false)                                                           \
    CALL(kRemoveByIterator, "remove at an iterator", false)                                                  \
    CALL(kDeleteRecord, "delete a removed record", false)                                                    \
    CALL(kSegment, "add or drop highlight segments", false)                                                  \
    CALL(kCopy, "copy a set", false)                                                                         \
    CALL(kDropCopy, "drop a copy that shares its data", false)                                               \
    CALL(kNameSet, "name a set", false)                                                                      \
    CALL(kFindNamed, "find a named set", false)                                                              \
    CALL(kDropNamed, "delete a named set that shares its data", false)                                       \
    CALL(kFirstWrite, "first write after a copy", true)                                                      \
    CALL(kFirstInRun, "first look-up in a long run", true)                                                   \
    CALL(kMerge, "merge", true)                                                                              \
    CALL(kMinus, "minus", true)                                                                              \
    CALL(kContains, "contains", true)                                                                        \
    CALL(kSetUnique, "setUnique", true)                                                                      \
    CALL(kUpdate, "updateDataMap", true)                                                                     \
    CALL(kClear, "clear", true)                                                                              \
    CALL(kDestroy, "destroy a set", true)

enum Kind : std::size_t {
#define KV_SOAK_KIND(kind, name, isWhole) kind,
    KV_SOAK_CALLS(KV_SOAK_KIND)
#undef KV_SOAK_KIND
        kKindCount
};

struct Description {
    const char* name;
    bool isWhole;
};

constexpr Description kDescriptions[] = {
#define KV_SOAK_DESCRIPTION(kind, name, isWhole) {name, isWhole},
    KV_SOAK_CALLS(KV_SOAK_DESCRIPTION)
#undef KV_SOAK_DESCRIPTION
};

struct SlowCall {
    std::uint64_t number; // among the calls of its cycle
    Kind kind;
    std::uint64_t nanoseconds;
};

// Single calls that were over the limit. Has no memory of its own, which would count as memory in use.
class SlowCalls {
public:
    void add(const SlowCall& call) {
        if (mCount < mCalls.size())
            mCalls[mCount++] = call;
    }
    const SlowCall* find(std::uint64_t number) const {
        const auto found =
            std::find_if(begin(), end(), [&](const SlowCall& call) { return call.number == number; });
        return found == end() ? nullptr : found;
    }
    bool isEmpty() const { return mCount == 0; }
    const SlowCall* begin() const { return mCalls.data(); }
    const SlowCall* end() const { return mCalls.data() + mCount; }

private:
    std::array<SlowCall, 100> mCalls{};
    std::size_t mCount = 0;
};

// What was timed in one cycle, or in all of them. Slow calls are not in `longest`.
struct Times {
    std::array<std::uint64_t, kKindCount> calls{};
    std::array<std::uint64_t, kKindCount> longest{};
    SlowCalls slow;
    std::uint64_t count = 0; // of all kinds

    template <class Call>
    void time(Kind kind, Call call) {
        const std::uint64_t start = threadNanoseconds();
        call();
        note(kind, threadNanoseconds() - start);
    }

    void note(Kind kind, std::uint64_t nanoseconds) {
        ++count;
        ++calls[kind];
        if (nanoseconds > kLimit && !kDescriptions[kind].isWhole)
            slow.add({count, kind, nanoseconds});
        else
            longest[kind] = std::max(longest[kind], nanoseconds);
    }

    void add(const Times& other) {
        for (std::size_t kind = 0; kind < kKindCount; ++kind) {
            calls[kind] += other.calls[kind];
            longest[kind] = std::max(longest[kind], other.longest[kind]);
        }
    }
};

// ---- A cycle

// Fills, edits, empties and destroys sets. Two cycles with the same seed do the same.
//
// Invariants:
//  1. No set has two items with the same main id, sub id and marker.
//  2. mSet does not share its data while single edits are timed.
//  3. Records that were removed are in mRemoved until they are deleted.
class Cycle {
public:
    Cycle(std::uint64_t seed, std::size_t items, std::size_t edits, Times& times)
        : mItems(items), mEdits(edits), mTimes(times), mRandom(seed) {
        for (const std::size_t part : {1u, 2u, 3u}) {
            mPath.setLogicalLength(mPath.logicalLength() + 1);
            mPath.at(mPath.logicalLength() - 1) = idAt(part);
        }
        mRemoved.reserve(items + edits);
    }

    void run() {
        while (count() < mItems)
            selectAny();
        lookUpFirst();
        edit(mEdits);
        takeBack();
        keepCopy();
        combine();
        nameSets();
        rebuild();
        makeUnique();
        edit(mEdits / 4);
        while (count() > 0)
            removeAny();
        require(mSet.sharedData->dataMap.empty());
        fillAndClear();
        deleteRemoved();
        destroy(mSet);
    }

private:
    static constexpr std::size_t kRun = 0;       // index of the main id of the long run
    static constexpr std::size_t kRunShare = 10; // one item in so many is in the long run
    static constexpr std::size_t kNames = 50;
    static constexpr std::size_t kEditsOfOther = 2000; // of sets beside mSet

    // The keys of an item follow from the index of its main id, or of its sub id in the long run.
    struct Keys {
        bool isInRun;
        std::size_t index;
        GxDbObjectId mainId, subId;
        long gsMarker;
    };

    template <class Call>
    void time(Kind kind, Call call) {
        mTimes.time(kind, call);
    }

    std::size_t below(std::size_t bound) { return mRandom() % bound; }
    bool oneIn(std::size_t bound) { return below(bound) == 0; }

    static GxapSSetWriteAccessor& accessor(GxapSelectSet& set) {
        return static_cast<GxapSSetWriteAccessor&>(set);
    }
    std::size_t count() const { return mSet.sharedData->entityCount; }

    Keys keysInRun() {
        const std::size_t index = below(mItems);
        return {true, index, idAt(kRun), idAt(index + 1), static_cast<long>(1 + index % 3)};
    }
    Keys ordinaryKeys() {
        const std::size_t index = 1 + below(3 * mItems);
        return {false, index, idAt(index), GxDbObjectId(), -1};
    }

    // ---- Single calls

    const KvVector<GxDbObjectId>* pathOf(const Keys& keys) const {
        return !keys.isInRun && keys.index % 4 == 0 ? &mPath : nullptr;
    }

    static GxapSelectedEntInfo* infoOf(const Keys& keys) {
        if (keys.isInRun || keys.index % 16 != 0)
            return nullptr;
        auto* const info = new (_kvMalloc(sizeof(GxapSelectedEntInfo))) GxapSelectedEntInfo();
        info->setCompoundTransformWithBTROffset(GxGeMatrix3d());
        return info;
    }

    void selectAny() {
        const Keys keys = oneIn(kRunShare) ? keysInRun() : ordinaryKeys();
        GxapSelectedEntInfo* const info = infoOf(keys);
        time(keys.isInRun ? kSelectInRun : kSelect,
             [&] { accessor(mSet).select(keys.mainId, keys.subId, keys.gsMarker, info, pathOf(keys)); });
    }

    void appendRecord() {
        selected_entity record;
        const Keys keys = ordinaryKeys();
        record.mainEntId = keys.mainId;
        if (const auto* const path = pathOf(keys))
            record.nestedEntFullPath = *path;
        record.selectedEntityInfo = infoOf(keys);
        time(kAppendRecord, [&] { accessor(mSet).append(&record); });
    }

    void lookUp() {
        const Keys keys = oneIn(3) ? keysInRun() : ordinaryKeys();
        const KvVector<GxDbObjectId> noPath;
        const auto* const path = pathOf(keys) ? pathOf(keys) : &noPath;
        std::uintptr_t found = 0;
        if (keys.isInRun)
            time(kLookUpInRun,
                 [&] { found = slotOf(mSet.findInMap(keys.mainId, keys.subId, keys.gsMarker)); });
        else
            time(kLookUpById, [&] { found = slotOf(mSet.findInMap(keys.mainId)); });
        keep(found);
        time(keys.isInRun ? kLookUpInRun : kLookUpByKeys,
             [&] { found = slotOf(mSet.findInMap(keys.mainId, keys.subId, keys.gsMarker, path, nullptr)); });
        keep(found);
        time(kPosition, [&] { found = static_cast<std::uintptr_t>(mSet.find(keys.mainId, keys.subId)); });
        keep(found);
    }

    std::uintptr_t slotOf(GxapSelectSet::SSetData::DataMap::const_iterator found) const {
        return found == mSet.sharedData->dataMap.end() ? 0 : found->second;
    }

    selected_entity* nthItem(std::size_t at) {
        selected_entity* record = nullptr;
        time(kNthItem, [&] { record = mSet.getAt(static_cast<int>(at)); });
        return record;
    }

    GxapSelectSet::Iterator iteratorAt(std::size_t at) {
        std::optional<GxapSelectSet::Iterator> it;
        time(kIteratorAt, [&] { it.emplace(accessor(mSet).iteratorAt(static_cast<int>(at))); });
        return *it;
    }

    void removeAny() {
        const std::size_t at = below(count());
        selected_entity* const record = nthItem(at);
        mRemoved.emplace_back(record);
        const bool isInRun = record->mainEntId == idAt(kRun);
        bool isRemoved = false;
        switch (below(4)) {
        case 0:
            time(kRemoveAt, [&] { isRemoved = accessor(mSet).removeAt(static_cast<int>(at)); });
            break;
        case 1: {
            auto it = iteratorAt(at);
            time(kRemoveByIterator, [&] { isRemoved = accessor(mSet).removeAt(it); });
            break;
        }
        case 2:
            if (!isInRun) {
                time(kRemoveById, [&] { isRemoved = accessor(mSet).remove(record->mainEntId); });
                break;
            }
            [[fallthrough]];
        default:
            time(kRemoveByKeys, [&] {
                isRemoved = accessor(mSet).remove(record->mainEntId, record->subEntId, record->gsMarker);
            });
        }
        require(isRemoved);
    }

    void walkOn() {
        if (!mWalk || mWalk->isDone())
            mWalk.emplace(mSet.begin());
        for (int i = 0; i < 4; ++i)
            time(kStep, [&] { mWalk->step(); });
    }

    void changeSegments() {
        auto it = iteratorAt(below(count()));
        const GxDbFullSubentPath path;
        const bool drops = oneIn(3);
        time(kSegment, [&] { it.setHighlightSegment(drops ? nullptr : &path); });
    }

    void copyAndDrop() {
        std::optional<GxapSelectSet> copy;
        time(kCopy, [&] { copy.emplace(mSet); });
        time(kDropCopy, [&] { copy.reset(); });
    }

    void deleteOne() {
        if (mRemoved.empty())
            return;
        std::swap(mRemoved[below(mRemoved.size())], mRemoved.back());
        time(kDeleteRecord, [&] { mRemoved.back().reset(); });
        mRemoved.pop_back();
    }

    void deleteRemoved() {
        while (!mRemoved.empty())
            deleteOne();
    }

    void changeCount() {
        if (count() < mItems / 2 || (count() < mItems && oneIn(2)))
            oneIn(8) ? appendRecord() : selectAny();
        else
            removeAny();
    }

    void editOnce() {
        time(kClock, [] {});
        switch (below(10)) {
        case 0:
        case 1:
            return lookUp();
        case 2:
            return walkOn();
        case 3:
            return changeSegments();
        case 4:
            return copyAndDrop();
        case 5:
            return deleteOne();
        default:
            return changeCount();
        }
    }

    void edit(std::size_t times) {
        for (std::size_t i = 0; i < times; ++i)
            editOnce();
    }

    // ---- Whole sets

    void destroy(GxapSelectSet& set) {
        time(kDestroy, [&] { set.releaseData(); });
    }

    // Makes data private that a copy shares.
    void writeFirst() {
        time(kFirstWrite, [&] { accessor(mSet).writeData(); });
        lookUpFirst();
    }

    // Makes the hashes of the long run: one for look-ups with a path, and one for those without.
    void lookUpFirst() {
        const Keys keys = keysInRun();
        const KvVector<GxDbObjectId> noPath;
        time(kFirstInRun, [&] { mSet.findInMap(keys.mainId, keys.subId, keys.gsMarker); });
        time(kFirstInRun, [&] { mSet.findInMap(keys.mainId, keys.subId, keys.gsMarker, &noPath, nullptr); });
    }

    // Edits a copy, and then takes the edits back.
    void takeBack() {
        GxapSelectSet before(mSet);
        writeFirst();
        edit(kEditsOfOther);
        time(kDestroy, [&] { mSet = before; });
    }

    // Edits a set while a copy has the earlier state.
    void keepCopy() {
        GxapSelectSet before(mSet);
        writeFirst();
        edit(kEditsOfOther);
        destroy(before);
    }

    // Adds the items of another set, and then takes them out again.
    void combine() {
        GxapSelectSet other;
        for (std::size_t i = 0; i < mItems / 4; ++i) {
            const Keys keys = oneIn(kRunShare) ? keysInRun() : ordinaryKeys();
            accessor(other).select(keys.mainId, keys.subId, keys.gsMarker, infoOf(keys), pathOf(keys));
        }
        bool has = false;
        time(kContains, [&] { has = mSet.contains(&other); });
        require(!has);
        const GxapSelectSet before(mSet);
        time(kMerge, [&] { accessor(mSet).merge(&before, &other); });
        time(kContains, [&] { has = mSet.contains(&other); });
        require(has);
        lookUpFirst();
        edit(kEditsOfOther);
        removeWith(kMinus, [&] { accessor(mSet).minus(&mSet, &other); });
        destroy(other);
    }

    // Times a call that removes many items of mSet, and keeps their records.
    template <class Call>
    void removeWith(Kind kind, Call call) {
        const std::vector<selected_entity*> before = recordsOf(mSet);
        time(kind, call);
        const std::vector<selected_entity*> after = recordsOf(mSet);
        auto kept = after.begin();
        for (selected_entity* const record : before) {
            if (kept != after.end() && *kept == record)
                ++kept;
            else
                mRemoved.emplace_back(record);
        }
        require(kept == after.end());
    }

    static std::vector<selected_entity*> recordsOf(const GxapSelectSet& set) {
        std::vector<selected_entity*> records;
        records.reserve(set.sharedData->entityCount);
        for (auto it = set.begin(); !it.isDone(); it.step())
            records.push_back(it.get());
        return records;
    }

    void nameSets() {
        GxapSelectSetList named;
        std::array<std::array<long, 2>, kNames> names{};
        for (auto& name : names)
            time(kNameSet, [&] { named.addSelectSet(mSet, name.data()); });
        for (auto& name : names)
            time(kFindNamed, [&] { require(named.getSSetByName(name.data()) != nullptr); });
        for (auto& name : names)
            time(kDropNamed, [&] { named.delSelectSet(name.data()); });
    }

    void rebuild() {
        time(kUpdate, [&] { accessor(mSet).updateDataMap(); });
        lookUpFirst();
    }

    // Keeps one item of the long run, and adds others.
    void makeUnique() {
        accessor(mSet).setUnique(false);
        removeWith(kSetUnique, [&] { accessor(mSet).setUnique(true); });
        deleteRemoved();
        while (count() < mItems)
            selectAny();
        lookUpFirst();
    }

    void fillAndClear() {
        for (std::size_t i = 0; i < mItems / 2; ++i)
            selectAny();
        time(kClear, [&] { accessor(mSet).clear(); });
    }

    const std::size_t mItems;
    const std::size_t mEdits;
    Times& mTimes;
    std::mt19937_64 mRandom;
    KvVector<GxDbObjectId> mPath;
    GxapSelectSet mSet;
    std::optional<GxapSelectSet::ConstIterator> mWalk; // through mSet
    std::vector<std::unique_ptr<selected_entity>> mRemoved;
};

// ---- Many cycles

struct Asked {
    std::size_t seconds = 600;
    std::size_t items = 100000;
    std::size_t seed = 1;
};

// One cycle in so many edits its sets so much longer that they grow old.
constexpr std::size_t kLongCycles = 16;
constexpr std::size_t kLongFactor = 30;

// Runs a cycle on a thread of its own. When the thread ends, the blocks that malloc keeps for it are free.
Times timesOfCycle(std::size_t cycle, const Asked& asked) {
    Times times;
    std::thread([&] {
        const std::size_t edits =
            cycle % kLongCycles == kLongCycles - 1 ? kLongFactor * asked.items : asked.items;
        Cycle(asked.seed + cycle, asked.items, edits, times).run();
    }).join();
    return times;
}

// What the process has in use.
struct InUse {
    long bytes = 0;
    long paths = 0;
    long emptyBlockReferences = 0;

    static InUse now() {
        const struct mallinfo2 info = mallinfo2();
        return {static_cast<long>(info.uordblks + info.hblkhd), kvinmemory::livePaths(),
                static_cast<long>(gpEmptyVectorData->refCount.load())};
    }

    void raiseTo(const InUse& other) {
        bytes = std::max(bytes, other.bytes);
        paths = std::max(paths, other.paths);
        emptyBlockReferences = std::max(emptyBlockReferences, other.emptyBlockReferences);
    }
};

class Soak {
public:
    explicit Soak(const Asked& asked) : mAsked(asked) {
        Asked small = asked;
        small.items = 1000;
        timesOfCycle(0, small); // makes what is made once, such as static tables
        mStart = InUse::now();
    }

    void run() {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(mAsked.seconds);
        do {
            runCycle();
        } while (std::chrono::steady_clock::now() < end);
    }

    void print() const {
        for (std::size_t kind = 0; kind < kKindCount; ++kind) {
            const Description& description = kDescriptions[kind];
            std::printf("call,%s,%s,%zu,%zu\n", description.name, description.isWhole ? "whole" : "single",
                        mTimes.calls[kind], mTimes.longest[kind]);
        }
        for (const SlowCall& slow : mTimes.slow)
            std::printf("slow,%zu,%s,%zu\n", slow.number, kDescriptions[slow.kind].name, slow.nanoseconds);
        std::printf("disturbed,%zu\n", mDisturbed);
        std::printf("memory,%zu,%ld,%ld,%ld\n", mCycles, mStart.bytes, mMost.bytes, mLast.bytes);
        std::printf("left,%ld,%ld\n", mMost.paths - mStart.paths,
                    mMost.emptyBlockReferences - mStart.emptyBlockReferences);
    }

private:
    void runCycle() {
        const Times times = timesOfCycle(mCycles, mAsked);
        mTimes.add(times);
        noteMemory();
        if (!times.slow.isEmpty())
            repeat(times.slow);
        ++mCycles;
    }

    // Runs the cycle again, and keeps the calls that are slow both times.
    void repeat(const SlowCalls& slow) {
        const Times again = timesOfCycle(mCycles, mAsked);
        mTimes.add(again);
        noteMemory();
        for (const SlowCall& call : slow) {
            const SlowCall* const same = again.slow.find(call.number);
            if (!same) {
                ++mDisturbed;
                continue;
            }
            mTimes.slow.add(same->nanoseconds < call.nanoseconds ? *same : call);
        }
    }

    void noteMemory() {
        mLast = InUse::now();
        mMost.raiseTo(mLast);
    }

    const Asked mAsked;
    Times mTimes;
    std::size_t mCycles = 0;
    std::size_t mDisturbed = 0;
    InUse mStart, mMost, mLast;
};

// Stores the value of the argument in `asked`. Returns false for an argument that is unknown or has a bad
// value.
bool take(const char* argument, Asked& asked) {
    const std::pair<const char*, std::size_t*> numbers[] = {
        {"--seconds=", &asked.seconds}, {"--items=", &asked.items}, {"--seed=", &asked.seed}};
    for (const auto& [flag, number] : numbers) {
        if (const char* const text = valueOf(argument, flag)) {
            const Sizes given = sizesOf(text);
            *number = given.size() == 1 ? given.front() : 0;
            return *number != 0;
        }
    }
    return false;
}

int run(int argc, char** argv) {
    Asked asked;
    if (!std::all_of(argv + 1, argv + argc, [&](const char* argument) { return take(argument, asked); })) {
        std::fputs("usage: kv_soak [--seconds=N] [--items=N] [--seed=N]\n", stderr);
        return 2;
    }
    mallopt(M_ARENA_MAX, 1); // otherwise the threads of the cycles would use several heaps
    // Without fast bins. Otherwise malloc now and then sorts all small free blocks, for milliseconds, in a
    // call that frees a large block. How many such blocks there are depends on the whole application.
    mallopt(M_MXFAST, 0);
    keepFreedMemory();
    Soak soak(asked);
    soak.run();
    soak.print();
    return 0;
}

} // namespace
} // namespace kvbench

int main(int argc, char** argv) {
    return kvbench::runProgram("kv_soak", kvbench::run, argc, argv);
}
