// Runs many episodes of random operations. Reduces a failing episode to the operations that matter.
#pragma once

#include "tests/selectcontext/model/Operation.h"

#include <cstdint>
#include <string>

namespace kvmodel {

// seedOr() returns the environment variable KV_MODEL_SEED, and operationsOr() returns KV_MODEL_OPERATIONS. If
// the variable is not set, they return their argument.
std::uint64_t seedOr(std::uint64_t seed);
long operationsOr(long count);

// Runs `count` operations, divided into episodes, in a child process. A crash of the child counts as a
// failure. Returns an empty string on success. Otherwise returns a description of the failure, with the seed
// and the shortest failing sequence of operations that was found.
std::string runCampaign(const Profile& profile, std::uint64_t seed, long count);

} // namespace kvmodel
