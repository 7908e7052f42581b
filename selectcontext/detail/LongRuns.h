// LongRuns: the run indexes of a set's data.
#pragma once

#include "selectcontext/detail/MapVersion.h"
#include "selectcontext/detail/RunIndex.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>

namespace kvdetail {

// A hash table from the stub of a main id to the run indexes of that id. Each bucket has a list of indexes. A
// look-up that needs an index makes the index. Several readers of shared data may do so at once, so add()
// puts an index at the head of a list by an atomic exchange. Only edits remove indexes.
//
// Invariants:
//  1. An index is complete before any other thread can see it.
//  2. While `version` of the lists is current, the run indexes were updated for every change of the id index.
//
// Thread safety: any number of threads may call the const functions at once. Only the thread that may edit
// the data may call the other functions.
class LongRuns {
public:
    using DataMap = RunIndex::DataMap;

    LongRuns() = default;
    LongRuns(const LongRuns&) = delete;
    LongRuns& operator=(const LongRuns&) = delete;
    ~LongRuns() { clear(); }

    // Returns whether any index was added since the last clear().
    bool isInUse() const noexcept { return mLists.load(std::memory_order_acquire) != nullptr; }

    // Returns the index by `keys` of the run of this main id. Returns null if there is no such index, or if a
    // caller has changed the id index by hand. O(1).
    const RunIndex* find(const DataMap& map, const GxDbStub* mainStub, RunIndex::Keys keys) const noexcept {
        const Lists* const lists = mLists.load(std::memory_order_acquire);
        return lists && lists->version.isCurrent(map) ? lists->find(mainStub, keys) : nullptr;
    }

    // Returns whether add() can keep an index. Returns false if a caller has changed the id index by hand
    // since the run indexes were last updated. Without run indexes, returns MapVersion::canFollow(). O(1).
    bool canAdd(const DataMap& map) const noexcept {
        const Lists* const lists = mLists.load(std::memory_order_acquire);
        return lists ? lists->version.isCurrent(map) : MapVersion::canFollow(map);
    }

    // Adds an index and returns it. If another thread has already added an index of the same run by the same
    // keys, deletes `run` and returns the index of the other thread. Returns null if `run` is null, if
    // canAdd() is false, or if there is no memory. O(1).
    const RunIndex* add(const DataMap& map, std::unique_ptr<RunIndex> run) const noexcept;

    // Prepares an edit of the id index: deletes all run indexes if they are out of date. Returns whether
    // there are run indexes that the edit must update.
    bool prepareEdit(const DataMap& map) noexcept { return isInUse() && isFollowing(map); }

    // Update the indexes after an entry was added at the end of its run, and before an entry is erased.
    // prepareEdit() must have returned true. `record` must be the entry's record, or null if there is no such
    // record. Amortised O(1).
    void noteAdded(const DataMap& map, RunIndex::Entry entry, const selected_entity& record) noexcept;
    void noteErasing(const DataMap& map, RunIndex::Entry entry, const selected_entity* record) noexcept;

    // Updates the indexes before the nested path of `record` becomes `path`. `address` must be that of the
    // record's slot. prepareEdit() must have returned true.
    void noteChangingPath(unsigned long address, const selected_entity& record,
                          const KvVector<GxDbObjectId>& path) noexcept;

    // Ends an edit: marks the run indexes as up to date with `map`. prepareEdit() must have returned true.
    void follow(const DataMap& map) noexcept { mLists.load(std::memory_order_relaxed)->version.follow(map); }

    // Delete the indexes of one run, or of all runs. The caller must call drop() only if isInUse().
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

    // Deletes the indexes of a run for which isGone(index) is true.
    template <class IsGone>
    void removeIf(const GxDbStub* mainStub, IsGone isGone) noexcept;

    mutable std::atomic<Lists*> mLists{nullptr};
};

} // namespace kvdetail
