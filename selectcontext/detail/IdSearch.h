// IdSearch: looks many ids up in one set.
#pragma once

#include "selectcontext/detail/SetData.h"

#include <cstddef>
#include <iterator>

namespace kvdetail {

// The look-ups of one whole-set operation. Most often the ids come in the order of the index, so the entry
// behind the last one is tried before the index is searched. After 16 failures in a row it is not tried any
// more.
//
// The set may be edited between two look-ups, and change its data. An edit that erases an entry says where to
// go on.
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
            if (mNext->first == id && index.isFirst(mNext)) {
                mFailures = 0;
                return {mNext, true};
            }
            ++mFailures;
        }
        return index.find(id);
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
