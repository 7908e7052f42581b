#include "platform/inmemory/detail/AllocationTracker.h"

namespace kvinmemory::detail {

void AllocationTracker::reset() {
    const std::lock_guard<std::mutex> guard(mMutex);
    mBlocks.clear();
    mSizes.clear();
    mCounts = Counts();
}

void AllocationTracker::recordCall(std::size_t bytes) {
    const std::lock_guard<std::mutex> guard(mMutex);
    ++mCounts.calls;
    ++mSizes[bytes].calls;
}

void AllocationTracker::recordAllocation(const void* memory, std::size_t bytes) {
    const std::lock_guard<std::mutex> guard(mMutex);
    mBlocks[memory] = Block{bytes, true};
    ++mSizes[bytes].live;
    ++mCounts.liveBlocks;
    mCounts.liveBytes += static_cast<long>(bytes);
}

bool AllocationTracker::recordFree(const void* memory) {
    const std::lock_guard<std::mutex> guard(mMutex);
    ++mCounts.frees;
    const auto found = mBlocks.find(memory);
    if (found == mBlocks.end()) {
        ++mCounts.foreignFrees;
        return false;
    }
    Block& block = found->second;
    if (!block.live) {
        ++mCounts.doubleFrees;
        return false;
    }
    block.live = false;
    --mSizes[block.bytes].live;
    --mCounts.liveBlocks;
    mCounts.liveBytes -= static_cast<long>(block.bytes);
    return true;
}

bool AllocationTracker::isLive(const void* memory) const {
    const std::lock_guard<std::mutex> guard(mMutex);
    const auto found = mBlocks.find(memory);
    return found != mBlocks.end() && found->second.live;
}

AllocationTracker::Counts AllocationTracker::counts() const {
    const std::lock_guard<std::mutex> guard(mMutex);
    return mCounts;
}

long AllocationTracker::callsOfSize(std::size_t bytes) const {
    return countsOfSize(bytes).calls;
}

long AllocationTracker::liveBlocksOfSize(std::size_t bytes) const {
    return countsOfSize(bytes).live;
}

AllocationTracker::SizeCounts AllocationTracker::countsOfSize(std::size_t bytes) const {
    const std::lock_guard<std::mutex> guard(mMutex);
    const auto found = mSizes.find(bytes);
    return found == mSizes.end() ? SizeCounts() : found->second;
}

} // namespace kvinmemory::detail
