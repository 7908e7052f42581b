// Runs many episodes of random operations, and cuts the one that fails down to the operations that matter.
#pragma once

#include "tests/selectcontext/model/Operation.h"

#include <cstdint>
#include <string>

namespace kvmodel {

// The environment's KV_MODEL_SEED and KV_MODEL_OPERATIONS, or the value given.
std::uint64_t seedOr(std::uint64_t seed);
long operationsOr(long count);

// Does `count` operations in episodes of their own, in a process of their own, so that a crash is a failure
// as any other. Empty if all went well; otherwise what failed, the seed and the shortest failing operations
// found.
std::string runCampaign(const Profile& profile, std::uint64_t seed, long count);

} // namespace kvmodel
