#include "base/KvStoreEpoch.h"

namespace kvdetail {

std::atomic<std::uint32_t> gStoreEpoch{1};

} // namespace kvdetail
