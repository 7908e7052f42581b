#include "aids/History.h"

#include <algorithm>

namespace kv {

History::History(std::size_t most) : mMost(std::max<std::size_t>(most, 1)) {}

// A remembered state shares its data, so the data cannot have changed since. Equal data is an equal state.
void History::remember(const GxapSelectSet& set) {
    if (mUndo.empty() || mUndo.back().sharedData != set.sharedData)
        mUndo.push_back(set);
    if (mUndo.size() > mMost)
        mUndo.pop_front();
    mRedo.clear();
}

const GxapSelectSet* History::previous() const noexcept {
    return mUndo.empty() ? nullptr : &mUndo.back();
}

bool History::undo(GxapSelectSet& set) {
    return swapWith(set, mUndo, mRedo);
}

bool History::redo(GxapSelectSet& set) {
    return swapWith(set, mRedo, mUndo);
}

// Takes the last state of `from`, and adds the present one to `to`. Only the addition can fail, so it comes
// first.
bool History::swapWith(GxapSelectSet& set, States& from, States& to) const {
    const auto isOther = [&set](const GxapSelectSet& state) { return state.sharedData != set.sharedData; };
    const auto last = std::find_if(from.rbegin(), from.rend(), isOther);
    if (last == from.rend())
        return false;
    to.push_back(set);
    if (to.size() > mMost)
        to.pop_front();
    set = *last;
    while (isOther(from.back()))
        from.pop_back();
    from.pop_back();
    return true;
}

void History::clear() noexcept {
    mUndo.clear();
    mRedo.clear();
}

} // namespace kv
