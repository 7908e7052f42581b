// IdSearch: looks many ids up in one set.
#pragma once

#include "selectcontext/detail/SetData.h"

#include <cstddef>
#include <iterator>

namespace kvdetail {

// Looks ids up for one whole-set operation. Most often the ids come in the order of the index. So the entry
// behind the last one found is tried before the index is searched. After 16 failures in a row, that entry is
// no longer tried.
//
// The caller may edit the set between two look-ups, even if that replaces the set's data. A caller that
// erases an entry must call goOnAt(), unless isTrying() is false.
//
// Invariant: mNext is an entry in the index of `*mData`, or the end of that index.
//
// Thread safety: that of the set.
class IdSearch {
public:
    explicit IdSearch(const GxapSelectSet& set) : mSet(set) {}
    IdSearch(const IdSearch&) = delete;
    IdSearch& operator=(const IdSearch&) = delete;

    // Returns whether the next entry is still tried.
    bool isTrying() const noexcept { return kHasNextId && mFailures < kMostFailures; }

    // Does what IdIndex::find() does. Tries the next entry first.
    IdIndex::Run find(const GxDbObjectId& id) {
        const IdIndex& index = SetData::of(*mSet.sharedData).index;
        if (isTrying() && mData == mSet.sharedData && mNext != index.end()) {
            if (isSame(mNext->first, id) && index.isFirst(mNext)) {
                mFailures = 0;
                return {mNext, true};
            }
            ++mFailures;
        }
        return index.find(id);
    }

    // Returns the entry to try next. `isHeld` is true if that entry is one of the id.
    IdIndex::Run next(const GxDbObjectId& id) const {
        const bool isNext = isTrying() && mData == mSet.sharedData &&
                            mNext != SetData::of(*mData).index.end() && isSame(mNext->first, id);
        return {mNext, isNext};
    }

    // Makes the entry behind the next one the entry to try. The next one must have been the wanted one.
    void skipNext() {
        mFailures = 0;
        ++mNext;
    }

    // Choose the entry to try next: this entry, or the one behind the entry of the run. A run without an
    // entry gives the run's place.
    void goOnAt(IdIndex::Entry entry) {
        mNext = entry;
        mData = mSet.sharedData;
    }
    void goOnBehind(const IdIndex::Run& run) {
        if (isTrying())
            goOnAt(run.isHeld ? std::next(run.entry) : run.entry);
    }

private:
    static constexpr unsigned kMostFailures = 16;

    const GxapSelectSet& mSet;
    const SSetData* mData = nullptr;
    IdIndex::Entry mNext;
    unsigned mFailures = 0;
};

} // namespace kvdetail
