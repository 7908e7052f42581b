// Equality of sub-entity ids.
#pragma once

#include "platform/KvDatabase.h"

namespace kvinmemory::detail {

inline bool isEqual(const GxDbSubentId& a, const GxDbSubentId& b) noexcept {
    return a.type == b.type && a.index == b.index && a.extra == b.extra;
}

} // namespace kvinmemory::detail
