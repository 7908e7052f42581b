// Makes operations of bytes.
#pragma once

#include "tests/selectcontext/model/Episodes.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kvmodel {

using Bytes = std::vector<unsigned char>;

// Returns the episode that the bytes stand for. Every byte string is valid. The first byte chooses the
// profile. Each argument of an operation takes one byte or two. Arguments after the last byte are 0.
Episode episodeOf(const Bytes& bytes, const std::string& name);

// Returns random bytes for an episode.
Bytes randomBytes(std::uint64_t seed);

} // namespace kvmodel
