// Runs many episodes of random operations. Reduces a failing episode to the operations that matter.
#pragma once

#include "tests/selectcontext/model/Operation.h"

#include <cstdint>
#include <string>

namespace kvmodel {

// Return KV_MODEL_SEED and KV_MODEL_OPERATIONS of the environment. Return the argument if the variable is not
// set.
std::uint64_t seedOr(std::uint64_t seed);
long operationsOr(long count);

// Runs `count` operations, divided into episodes. Runs them in a child process, so that a crash counts as a
// failure. Returns an empty string on success. Otherwise returns the failure, the seed and the shortest
// failing sequence of operations that was found.
std::string runCampaign(const Profile& profile, std::uint64_t seed, long count);

} // namespace kvmodel
