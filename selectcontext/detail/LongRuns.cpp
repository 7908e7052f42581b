#include "selectcontext/detail/LongRuns.h"

#include <iterator>
#include <new>
#include <utility>

namespace kvdetail {

LongRuns::Lists::~Lists() {
    for (const List& list : lists) {
        for (RunIndex* run = list.load(std::memory_order_relaxed); run;)
            delete std::exchange(run, run->mNext);
    }
}

RunIndex* LongRuns::Lists::find(const GxDbStub* mainStub, RunIndex::Keys keys) const noexcept {
    RunIndex* run = lists[listOf(mainStub)].load(std::memory_order_acquire);
    while (run && (run->mainStub() != mainStub || run->keys() != keys))
        run = run->mNext;
    return run;
}

std::size_t LongRuns::listOf(const GxDbStub* mainStub) noexcept {
    static_assert(kLists == 256, "eight bits choose a list");
    return fibonacciHash(reinterpret_cast<std::uintptr_t>(mainStub)) >> 56;
}

// Returns mLists, and first makes the lists if mLists is null. Returns null if the lists are out of date or
// cannot be made. Several readers of shared data may call this at once. The reader that finishes first
// publishes its lists, and the other readers delete theirs.
auto LongRuns::listsFor(const DataMap& map) const noexcept -> Lists* {
    if (Lists* const held = mLists.load(std::memory_order_acquire))
        return held->version.isCurrent(map) ? held : nullptr;
    std::unique_ptr<Lists> fresh(MapVersion::canFollow(map) ? new (std::nothrow) Lists : nullptr);
    if (!fresh)
        return nullptr;
    fresh->version.follow(map);
    Lists* held = nullptr;
    return mLists.compare_exchange_strong(held, fresh.get(), std::memory_order_acq_rel) ? fresh.release()
                                                                                        : held;
}

const RunIndex* LongRuns::add(const DataMap& map, std::unique_ptr<RunIndex> run) const noexcept {
    Lists* const lists = run ? listsFor(map) : nullptr;
    if (!lists)
        return nullptr;
    List& list = lists->lists[listOf(run->mainStub())];
    run->mNext = list.load(std::memory_order_acquire);
    do {
        if (const RunIndex* const other = lists->find(run->mainStub(), run->keys()))
            return other;
    } while (!list.compare_exchange_weak(run->mNext, run.get(), std::memory_order_acq_rel));
    return run.release();
}

bool LongRuns::isFollowing(const DataMap& map) noexcept {
    if (mLists.load(std::memory_order_relaxed)->version.isCurrent(map))
        return true;
    clear();
    return false;
}

// All entries in a RunIndex have the same stub. So if the entry before has an equal id, but another stub than
// the new entry, deletes the run indexes of that stub.
void LongRuns::noteAdded(const DataMap& map, RunIndex::Entry entry, const selected_entity& record) noexcept {
    const GxDbStub* const stub = entry->first.stub();
    if (entry != map.begin()) {
        const GxDbObjectId& before = std::prev(entry)->first;
        if (before.stub() != stub && before == entry->first)
            drop(before.stub());
    }
    removeIf(stub, [&](RunIndex& run) { return !run.noteAdded(entry, record); });
}

void LongRuns::noteErasing(const DataMap& map, RunIndex::Entry entry,
                           const selected_entity* record) noexcept {
    removeIf(entry->first.stub(), [&](RunIndex& run) { return !run.noteErasing(map, entry, record); });
}

void LongRuns::noteChangingPath(unsigned long address, const selected_entity& record,
                                const KvVector<GxDbObjectId>& path) noexcept {
    removeIf(record.mainEntId.stub(),
             [&](RunIndex& run) { return !run.noteChangingPath(address, record, path); });
}

void LongRuns::drop(const GxDbStub* mainStub) noexcept {
    removeIf(mainStub, [](const RunIndex&) { return true; });
}

template <class IsGone>
void LongRuns::removeIf(const GxDbStub* mainStub, IsGone isGone) noexcept {
    List& list = mLists.load(std::memory_order_relaxed)->lists[listOf(mainStub)];
    RunIndex* before = nullptr;
    for (RunIndex* run = list.load(std::memory_order_relaxed); run;) {
        RunIndex* const next = run->mNext;
        if (run->mainStub() != mainStub || !isGone(*run)) {
            before = std::exchange(run, next);
            continue;
        }
        if (before)
            before->mNext = next;
        else
            list.store(next, std::memory_order_relaxed);
        delete std::exchange(run, next);
    }
}

void LongRuns::clear() noexcept {
    delete mLists.exchange(nullptr, std::memory_order_relaxed);
}

} // namespace kvdetail
