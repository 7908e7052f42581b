// IndexCursor: guesses the next place in the id index.
#pragma once

#include "base/KvShortcuts.h"
#include "selectcontext/GxapSelectSet.h"

#include <iterator>

namespace kvdetail {

// Whole-set operations most often ask for ids in the order of the index, so that the first entry of an id
// lies right behind the entries of the one before. A guess is believed when its entry has the id and the
// entry before it has not; a run of wrong guesses ends the guessing.
//
// Invariant: while isSet(), the entry is one of the index or its end. Whoever erases an entry tells the
// cursor.
//
// Thread safety: none; it belongs to one operation.
class IndexCursor {
public:
    using DataMap = GxapSelectSet::SSetData::DataMap;

    bool isGuessing() const noexcept { return kHasNextId && mWrong < kMostWrong; }

    // The first entry of the id, where that is where the cursor stands; else the end. O(1).
    DataMap::const_iterator guess(const DataMap& map, const GxDbObjectId& id) {
        if (!mIsSet || !isGuessing() || mEntry == map.end())
            return map.end();
        const bool isIds = mEntry->first == id;
        if (isIds && (mEntry == map.begin() || !(std::prev(mEntry)->first == id))) {
            mWrong = 0;
            return mEntry;
        }
        ++mWrong;
        return map.end();
    }

    // The next guess is this entry.
    void standAt(DataMap::const_iterator entry) {
        mEntry = entry;
        mIsSet = true;
    }

    void lift() noexcept { mIsSet = false; }

private:
    static constexpr unsigned kMostWrong = 16;

    DataMap::const_iterator mEntry;
    bool mIsSet = false;
    unsigned mWrong = 0;
};

} // namespace kvdetail
