// IdSearch: looks many ids up in one set.
#pragma once

#include "selectcontext/detail/SetData.h"

#include <cstddef>
#include <iterator>

namespace kvdetail {

// The look-ups of one whole-set operation. Most often the ids come in the order of the index, so the entry
// behind the last one is tried before the index is searched. After four failures in a row it is not tried any
// more.
//
// Between two look-ups, the set may be edited, and its data may be replaced. An edit that erases an entry
// must call goOnAt().
//
// Invariant: mNext is an entry of the data that mData names, or the end of its index.
//
// Thread safety: that of the set.
class IdSearch {
public:
    explicit IdSearch(const GxapSelectSet& set) : mSet(set) {}
    IdSearch(const IdSearch&) = delete;
    IdSearch& operator=(const IdSearch&) = delete;

    bool isTrying() const noexcept { return kHasNextId && mFailures < kMostFailures; }

    // As IdIndex::find().
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

    // Returns the entry to try next, which is held if it is one of the id.
    IdIndex::Run next(const GxDbObjectId& id) const {
        const bool isNext = isTrying() && mData == mSet.sharedData &&
                            mNext != SetData::of(*mData).index.end() && isSame(mNext->first, id);
        return {mNext, isNext};
    }

    // Moves on to the entry behind the next one, which was the wanted one.
    void skipNext() {
        mFailures = 0;
        ++mNext;
    }

    // The entry to try next: this one, or the one behind a held entry.
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
