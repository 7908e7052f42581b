// OwnedNodePool: one owner's hold on a pool of nodes.
#pragma once

#include "base/KvNodePool.h"

#include <memory>

namespace kvdetail {

struct NodePoolReleaser {
    void operator()(KvNodePool* pool) const noexcept { pool->release(); }
};

using OwnedNodePool = std::unique_ptr<KvNodePool, NodePoolReleaser>;

} // namespace kvdetail
