// Runs many episodes of random operations, and reduces a failing one to the operations that matter.
#pragma once

#include "tests/selectcontext/model/Operation.h"

#include <cstdint>
#include <string>

namespace kvmodel {

// The environment's KV_MODEL_SEED and KV_MODEL_OPERATIONS, or the value given.
std::uint64_t seedOr(std::uint64_t seed);
long operationsOr(long count);

// Runs `count` operations, divided into episodes, in a child process, so that a crash counts as a failure.
// Returns an empty string on success; otherwise the failure, the seed and the shortest failing operations
// found.
std::string runCampaign(const Profile& profile, std::uint64_t seed, long count);

} // namespace kvmodel
