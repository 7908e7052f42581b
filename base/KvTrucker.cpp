#include "base/KvTrucker.h"

namespace kvdetail {

std::atomic<std::uint32_t> gStoreEpoch{1};

} // namespace kvdetail
