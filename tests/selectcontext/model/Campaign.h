// Runs random operations on the library and on its model.
#pragma once

#include "tests/selectcontext/model/Operation.h"

#include <cstdint>
#include <string>

namespace kvmodel {

// seedOr() returns the environment variable KV_MODEL_SEED, and operationsOr() returns KV_MODEL_OPERATIONS. If
// the variable is not set, they return their argument.
std::uint64_t seedOr(std::uint64_t seed);
long operationsOr(long count);

// Performs `count` operations with library and model, divided into episodes. Returns an empty string on
// success, and otherwise the description of the failure.
std::string runCampaign(const Profile& profile, std::uint64_t seed, long count);

} // namespace kvmodel
