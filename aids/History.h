// History: the earlier states of a set, for "previous", undo and redo.
#pragma once

#include "aids/AidsExport.h"
#include "selectcontext/GxapSelectSet.h"

#include <cstddef>
#include <deque>

namespace kv {

// Remembers states of one set. Call remember() before an edit; undo() then brings that state back.
//
// States share their data with the set, so remembering costs O(1). But the first edit after it copies the
// data, which costs O(n). A state that equals the one remembered before it takes no place.
//
// Highlights that the drawing shows are not changed: end them with draw() before undo() and redo(), and show
// them afterwards.
//
// Invariants:
//  1. There are at most `most` states to undo and `most` states to redo.
//  2. No two neighbouring states share their data.
//
// Functions throw std::bad_alloc if there is no memory; set and history are then as before. Thread safety:
// that of the set.
class KV_AIDS_API History {
public:
    // `most` is the largest number of states to undo; the oldest state is forgotten first. 0 counts as 1.
    explicit History(std::size_t most = 64);

    // Remembers the present state of the set, and forgets the states to redo. If the present state is the one
    // remembered last, only forgets the states to redo. O(1), or O(n) if the data of a state is freed.
    void remember(const GxapSelectSet& set);

    // Returns the state that was remembered last and not undone, or null. The history owns it. Valid until
    // the next call of a function that is not const.
    const GxapSelectSet* previous() const noexcept;

    // Give the set its state before the last remembered edit, or the state that undo() has taken back. They
    // return false, and change nothing, if there is no such state. undo() passes over remembered states that
    // the set still has. The set's iterators are disabled. O(1), or O(n) if data is freed.
    bool undo(GxapSelectSet& set);
    bool redo(GxapSelectSet& set);

    // Return the number of states.
    std::size_t undos() const noexcept { return mUndo.size(); }
    std::size_t redos() const noexcept { return mRedo.size(); }

    // Forgets all states.
    void clear() noexcept;

private:
    using States = std::deque<GxapSelectSet>;

    bool swapWith(GxapSelectSet& set, States& from, States& to) const;

    States mUndo; // the last remembered one last
    States mRedo; // the next one last
    std::size_t mMost;
};

} // namespace kv
