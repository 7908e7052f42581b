// IdSearch: looks many ids up in one set.
#pragma once

#include "selectcontext/detail/SetData.h"

#include <cstddef>
#include <iterator>

namespace kvdetail {

// Looks ids up for one whole-set operation. Most often the ids come in the order of the index. So find()
// tries mNext, the entry behind the last one that it found, before it searches the index. After 16 failures
// in a row, find() no longer tries mNext.
//
// The caller may edit the set between two look-ups, even if that replaces the set's data. A caller that
// erases an entry must call goOnAt(), unless isTrying() is false: mNext could be the erased entry.
//
// Invariant: if mData is the set's data, mNext is an entry in the index of that data, or the end of that
// index.
//
// Thread safety: that of the set.
class IdSearch {
public:
    explicit IdSearch(const GxapSelectSet& set) : mSet(set) {}
    IdSearch(const IdSearch&) = delete;
    IdSearch& operator=(const IdSearch&) = delete;

    // Returns whether find() and next() still try mNext.
    bool isTrying() const noexcept { return kHasNextId && mFailures < kMostFailures; }

    // Does what IdIndex::find() does. Tries mNext first.
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

    // Returns mNext. `isHeld` is true if mNext may be tried and is an entry of the id.
    IdIndex::Run next(const GxDbObjectId& id) const {
        const bool isNext = isTrying() && mData == mSet.sharedData &&
                            mNext != SetData::of(*mData).index.end() && isSame(mNext->first, id);
        return {mNext, isNext};
    }

    // Moves mNext to the entry behind it. mNext must have been the wanted entry.
    void skipNext() {
        mFailures = 0;
        ++mNext;
    }

    // Set mNext. goOnAt() sets mNext to `entry`. goOnBehind() sets mNext to the entry behind `run.entry`, or
    // to `run.entry` if `run.isHeld` is false.
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
