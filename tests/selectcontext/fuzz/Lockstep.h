// Lockstep: performs operations with two builds of the library, and compares them after every operation.
#pragma once

#include "tests/selectcontext/fuzz/Player.h"
#include "tests/selectcontext/model/Episodes.h"
#include "tests/selectcontext/model/Shared.h"

#include <string>

namespace kvmodel {

// The build with shortcuts, and the one without.
//
// Invariant: a player that has failed is not used again. A process that catches Mismatch has to end.
//
// Thread safety: none.
class Lockstep {
public:
    Lockstep();

    // Performs an episode. Throws Mismatch if the builds differ, or a build and its model. Then prints both
    // states to stderr.
    void perform(const Episode& episode, const Progress& progress) const;

    // Makes a difference that perform() has to find.
    void plantDifference() const { mPlain.plantDifference(); }

    // What happened in this process and its children.
    struct Counts {
        long failedCalls; // calls of the library that a failure has ended
        long resets;      // how often the builds rightly differed, and got new sets
    };
    const Counts& counts() const { return *mCounts; }

private:
    void compare(const Operation& operation) const;
    [[noreturn]] void report(const Operation& operation) const;

    Player& mQuick;
    Player& mPlain;
    const Shared<Counts> mCounts;
};

} // namespace kvmodel
