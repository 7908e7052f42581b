#include "platform/inmemory/detail/EqualIds.h"

#include <algorithm>
#include <functional>
#include <mutex>

namespace kvinmemory::detail {

void EqualIds::unite(const GxDbStub* a, const GxDbStub* b) {
    const std::lock_guard<std::shared_mutex> guard(mMutex);
    const GxDbStub* const lowestOfA = find(a);
    const GxDbStub* const lowestOfB = find(b);
    const GxDbStub* const lowest = std::min(lowestOfA, lowestOfB, std::less<>());
    const GxDbStub* const other = std::max(lowestOfA, lowestOfB, std::less<>());
    for (auto& [stub, itsLowest] : mLowest) {
        if (itsLowest == other)
            itsLowest = lowest;
    }
    mLowest[other] = lowest;
    mAny.store(true);
}

const GxDbStub* EqualIds::lowest(const GxDbStub* stub) const noexcept {
    const std::shared_lock<std::shared_mutex> guard(mMutex);
    return find(stub);
}

void EqualIds::clear() {
    const std::lock_guard<std::shared_mutex> guard(mMutex);
    mAny.store(false);
    mLowest.clear();
}

const GxDbStub* EqualIds::find(const GxDbStub* stub) const noexcept {
    const auto found = mLowest.find(stub);
    return found == mLowest.end() ? stub : found->second;
}

} // namespace kvinmemory::detail
