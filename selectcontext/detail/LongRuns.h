// LongRuns: the run indexes of a set's data.
#pragma once

#include "selectcontext/detail/MapVersion.h"
#include "selectcontext/detail/RunIndex.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>

namespace kvdetail {

// A hash table with a list for each bucket, from the stub of a main id to the index of its run. Look-ups make
// what they miss, also several at once in data that is shared. So the lists grow at their heads, by an atomic
// exchange, and only edits take something out.
//
// Invariants:
//  1. An index that is there was complete before any other thread could see it.
//  2. While isCurrent(), the id index has not changed without every run index being updated.
//
// Thread safety: any number of threads may call the const functions at once. The rest belongs to the thread
// that may edit the data.
class LongRuns {
public:
    using DataMap = RunIndex::DataMap;

    LongRuns() = default;
    LongRuns(const LongRuns&) = delete;
    LongRuns& operator=(const LongRuns&) = delete;
    ~LongRuns() { clear(); }

    bool isInUse() const noexcept { return mLists.load(std::memory_order_acquire) != nullptr; }

    // Returns an index, by these keys, of the run whose first entry has this stub; or null. O(1).
    const RunIndex* find(const DataMap& map, const GxDbStub* mainStub, RunIndex::Keys keys) const noexcept {
        const Lists* const lists = mLists.load(std::memory_order_acquire);
        return lists && lists->version.isCurrent(map) ? lists->find(mainStub, keys) : nullptr;
    }

    // Returns whether add() can keep an index: the id index has not been changed by hand. O(1).
    bool canAdd(const DataMap& map) const noexcept {
        const Lists* const lists = mLists.load(std::memory_order_acquire);
        return lists ? lists->version.isCurrent(map) : MapVersion::canFollow(map);
    }

    // Adds an index and returns it. Returns that of another thread if that one came first. Returns null if
    // the id index has been changed by hand, if there is no memory, or for null. O(1).
    const RunIndex* add(const DataMap& map, std::unique_ptr<RunIndex> run) const noexcept;

    // Prepares an edit of the id index: deletes indexes that do not follow it. Returns false if no index is
    // left.
    bool prepareEdit(const DataMap& map) noexcept { return isInUse() && isFollowing(map); }

    // Updates the indexes for an entry that was added at the end of its run, or that is about to be erased.
    // prepareEdit() must have returned true. A null record cannot be read. Amortised O(1).
    void noteAdded(const DataMap& map, RunIndex::Entry entry, const selected_entity& record) noexcept;
    void noteErasing(RunIndex::Entry entry, const selected_entity* record) noexcept;

    // Updates the indexes for a record that is about to get another path. `address` is that of its slot.
    void noteChangingPath(unsigned long address, const selected_entity& record,
                          const KvVector<GxDbObjectId>& path) noexcept;

    // The edit is done: the indexes follow the id index as it is now.
    void follow(const DataMap& map) noexcept { mLists.load(std::memory_order_relaxed)->version.follow(map); }

    // Deletes the indexes of a run, or of all.
    void drop(const GxDbStub* mainStub) noexcept;
    void clear() noexcept;

private:
    static constexpr std::size_t kLists = 256;
    using List = std::atomic<RunIndex*>;

    struct Lists {
        ~Lists();
        RunIndex* find(const GxDbStub* mainStub, RunIndex::Keys keys) const noexcept;

        MapVersion version;
        std::array<List, kLists> lists{};
    };

    bool isFollowing(const DataMap& map) noexcept;
    static std::size_t listOf(const GxDbStub* mainStub) noexcept;
    Lists* listsFor(const DataMap& map) const noexcept;

    // Deletes those indexes of a run for which isGone(index).
    template <class IsGone>
    void removeIf(const GxDbStub* mainStub, IsGone isGone) noexcept;

    mutable std::atomic<Lists*> mLists{nullptr};
};

} // namespace kvdetail
