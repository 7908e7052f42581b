#include "platform/inmemory/BlockBooks.h"

namespace kvinmemory {

void BlockBooks::clear() {
    const std::lock_guard<std::mutex> guard(mMutex);
    mBlocks.clear();
    mSizes.clear();
    mCounts = Counts();
}

void BlockBooks::countCall(std::size_t bytes) {
    const std::lock_guard<std::mutex> guard(mMutex);
    ++mCounts.calls;
    ++mSizes[bytes].calls;
}

void BlockBooks::enter(void* memory, std::size_t bytes) {
    const std::lock_guard<std::mutex> guard(mMutex);
    mBlocks[memory] = Block{bytes, true};
    ++mSizes[bytes].live;
    ++mCounts.liveBlocks;
    mCounts.liveBytes += static_cast<long>(bytes);
}

bool BlockBooks::strike(void* memory) {
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

bool BlockBooks::isLive(const void* memory) const {
    const std::lock_guard<std::mutex> guard(mMutex);
    const auto found = mBlocks.find(memory);
    return found != mBlocks.end() && found->second.live;
}

BlockBooks::Counts BlockBooks::counts() const {
    const std::lock_guard<std::mutex> guard(mMutex);
    return mCounts;
}

long BlockBooks::callsOfSize(std::size_t bytes) const {
    return perSize(bytes).calls;
}

long BlockBooks::liveBlocksOfSize(std::size_t bytes) const {
    return perSize(bytes).live;
}

BlockBooks::PerSize BlockBooks::perSize(std::size_t bytes) const {
    const std::lock_guard<std::mutex> guard(mMutex);
    const auto found = mSizes.find(bytes);
    return found == mSizes.end() ? PerSize() : found->second;
}

} // namespace kvinmemory
