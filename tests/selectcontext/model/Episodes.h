// Performs many episodes of operations. Reduces a failing episode to the operations that matter.
#pragma once

#include "tests/selectcontext/model/Operation.h"

#include <cstdint>
#include <functional>
#include <string>

namespace kvmodel {

// Operations on new sets.
struct Episode {
    std::string name;
    Profile profile;
    Operations operations;
    bool tracksMemory; // blocks of _kvMalloc that are left at the end are a failure, too
};

// Performs an episode. Calls progress(i) before operation i. Throws Mismatch on a failure.
using Progress = std::function<void(int)>;
using Performance = std::function<void(const Episode&, const Progress&)>;

struct Result {
    std::string failure; // empty: none
    long operations;     // how many were performed before the first failure
};

// Performs `count` episodes in a child process. A crash of the child counts as a failure. The description of
// a failure has the shortest failing sequence of operations that was found.
Result runEpisodes(long count, const std::function<Episode(long)>& episode, const Performance& perform);

// Returns a seed of its own for each episode.
std::uint64_t seedOf(std::uint64_t seed, long episode);

} // namespace kvmodel
