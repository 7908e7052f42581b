#include "selectcontext/detail/IdHash.h"
#include "base/detail/FibonacciHash.h"

#include <iterator>
#include <new>

namespace kvdetail {
namespace {

constexpr std::size_t kFewestBuckets = 16;

std::size_t bucketsFor(std::size_t stubs) noexcept {
    std::size_t buckets = kFewestBuckets;
    while (buckets * 3 < (stubs + 1) * 5)
        buckets *= 2;
    return buckets;
}

std::uintptr_t lowBits(const GxDbStub* stub, unsigned count) noexcept {
    return reinterpret_cast<std::uintptr_t>(stub) & ((std::uintptr_t{1} << count) - 1);
}

} // namespace

// In two passes, so that entering a stub does not wait for the walk through the index.
std::unique_ptr<IdHash> IdHash::build(const DataMap& map) noexcept try {
    auto hash = std::make_unique<IdHash>();
    std::vector<Bucket> firsts;
    if (!hash->collectFirsts(map, firsts))
        return nullptr;
    hash->mShift = commonLowBits(firsts);
    if (!firsts.empty())
        hash->mLowBits = lowBits(firsts.front().stub, hash->mShift);
    hash->mBuckets.resize(bucketsFor(map.size()));
    for (const Bucket& first : firsts)
        hash->enter(first.stub, first.first);
    hash->follow(map);
    return hash;
} catch (const std::bad_alloc&) {
    return nullptr;
}

// The first entry of every id. False if two stubs name one object, or a null id is repeated by another stub.
bool IdHash::collectFirsts(const DataMap& map, std::vector<Bucket>& firsts) {
    firsts.reserve(map.size());
    auto before = map.end();
    for (auto entry = map.begin(); entry != map.end(); before = entry++) {
        const GxDbStub* const stub = entry->first.stub();
        if (before == map.end() || !(before->first == entry->first)) {
            if (stub) // null marks an empty bucket
                firsts.push_back({stub, entry});
            continue;
        }
        if (before->first.stub() != stub)
            return false;
        mHasRepeatedIds = true;
    }
    return true;
}

unsigned IdHash::commonLowBits(const std::vector<Bucket>& firsts) noexcept {
    const auto bits = [](const Bucket& first) { return reinterpret_cast<std::uintptr_t>(first.stub); };
    std::uintptr_t differences = 0;
    for (const Bucket& first : firsts)
        differences |= bits(first) ^ bits(firsts.front());
    return differences == 0 ? 0 : static_cast<unsigned>(__builtin_ctzll(differences));
}

bool IdHash::isCurrent(const DataMap& map) const noexcept {
    const NodePool* const pool = map.get_allocator().pool();
    return pool && pool == mPool.get() && pool->generation() == mGeneration && pool->live() == map.size();
}

void IdHash::follow(const DataMap& map) noexcept {
    NodePool* const pool = map.get_allocator().pool();
    if (pool != mPool.get()) {
        pool->addOwner();
        mPool.reset(pool);
    }
    mGeneration = pool->generation();
}

// The entry before is compared only where some id has several entries: it may be in no cache.
IdHash::DataMap::const_iterator IdHash::find(const DataMap& map, const GxDbObjectId& id) const {
    const Bucket& bucket = mBuckets[bucketOf(id.stub())];
    if (!bucket.stub || !(bucket.first->first == id))
        return map.end();
    if (mHasRepeatedIds && bucket.first != map.begin() && std::prev(bucket.first)->first == id)
        return map.end();
    return bucket.first;
}

bool IdHash::noteAdded(const DataMap& map, DataMap::const_iterator entry) noexcept try {
    const GxDbStub* const stub = entry->first.stub();
    if (!stub)
        return true;
    if (const std::uintptr_t differences = lowBits(stub, mShift) ^ mLowBits)
        useLowerBits(differences);
    if (entry != map.begin()) {
        const auto before = std::prev(entry);
        if (before->first == entry->first) {
            mHasRepeatedIds = true;
            return before->first.stub() == stub;
        }
    }
    if (!hasRoom())
        rehash(2 * mBuckets.size());
    enter(stub, entry);
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

void IdHash::noteErasing(const DataMap& map, DataMap::const_iterator entry) noexcept {
    const GxDbStub* const stub = entry->first.stub();
    const std::size_t i = bucketOf(stub);
    if (!stub || mBuckets[i].first != entry || !mBuckets[i].stub)
        return;
    if (mHasRepeatedIds) {
        const auto behind = std::next(entry);
        if (behind != map.end() && behind->first == entry->first) {
            mBuckets[i].first = behind;
            return;
        }
    }
    removeBucket(i);
}

// Four consecutive stubs share a group of buckets, so that a walk through ids in order walks through the
// table, too. The groups are scattered by Fibonacci hashing.
std::size_t IdHash::homeOf(const GxDbStub* stub) const noexcept {
    constexpr unsigned kGroup = 4;
    const std::uintptr_t number = reinterpret_cast<std::uintptr_t>(stub) >> mShift;
    const std::uintptr_t group = fibonacciHash(number / kGroup) >> 20;
    return (group * kGroup + number % kGroup) & (mBuckets.size() - 1);
}

// The stub's bucket, or the empty one that ends its probe sequence.
std::size_t IdHash::bucketOf(const GxDbStub* stub) const noexcept {
    std::size_t i = homeOf(stub);
    while (mBuckets[i].stub && mBuckets[i].stub != stub)
        i = next(i);
    return i;
}

void IdHash::enter(const GxDbStub* stub, DataMap::const_iterator first) noexcept {
    mBuckets[bucketOf(stub)] = {stub, first};
    ++mUsed;
}

// Backward-shift deletion: a bucket behind moves up if its home is not between the gap and itself.
void IdHash::removeBucket(std::size_t gap) noexcept {
    const std::size_t mask = mBuckets.size() - 1;
    for (std::size_t i = next(gap); mBuckets[i].stub; i = next(i)) {
        const std::size_t home = homeOf(mBuckets[i].stub);
        if (((i - home) & mask) < ((i - gap) & mask))
            continue;
        mBuckets[gap] = mBuckets[i];
        gap = i;
    }
    mBuckets[gap].stub = nullptr;
    --mUsed;
}

void IdHash::rehash(std::size_t buckets) {
    std::vector<Bucket> old(buckets);
    old.swap(mBuckets);
    mUsed = 0;
    for (const Bucket& bucket : old) {
        if (bucket.stub)
            enter(bucket.stub, bucket.first);
    }
}

// A stub differs in bits that homeOf() leaves out. All such stubs would share one bucket. This happens once
// per bit at the most.
void IdHash::useLowerBits(std::uintptr_t differences) {
    mShift = static_cast<unsigned>(__builtin_ctzll(differences));
    mLowBits &= (std::uintptr_t{1} << mShift) - 1;
    rehash(mBuckets.size());
}

} // namespace kvdetail
