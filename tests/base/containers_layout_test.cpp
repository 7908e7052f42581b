// Sizes, offsets and field orders that the application's libraries and callers rely on.
#include "base/GxArray.h"
#include "base/KvTrucker.h"
#include "base/KvVector.h"
#include "platform/KvDatabase.h"
#include "platform/KvGeometry.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>

namespace {

// ---- vector block and vector

static_assert(std::is_standard_layout_v<KvVectorBlock>);
static_assert(sizeof(KvVectorBlock) == 24);
static_assert(offsetof(KvVectorBlock, refCount) == 0);
static_assert(offsetof(KvVectorBlock, logicalLength) == 4);
static_assert(offsetof(KvVectorBlock, physicalLength) == 8);
static_assert(offsetof(KvVectorBlock, growLength) == 12);
static_assert(offsetof(KvVectorBlock, array) == 16);
static_assert(std::is_same_v<decltype(KvVectorBlock::refCount), std::atomic<std::uint32_t>>);
static_assert(std::is_same_v<decltype(KvVectorBlock::logicalLength), std::int32_t>);
static_assert(std::is_same_v<decltype(KvVectorBlock::physicalLength), std::int32_t>);
static_assert(std::is_same_v<decltype(KvVectorBlock::growLength), std::int32_t>);
static_assert(std::is_same_v<decltype(KvVectorBlock::array), void*>);
static_assert(std::atomic<std::uint32_t>::is_always_lock_free);

template <class Vector>
constexpr bool kIsOnePointer = sizeof(Vector) == sizeof(void*) && std::is_standard_layout_v<Vector> &&
                               !std::is_polymorphic_v<Vector>;
static_assert(kIsOnePointer<KvVector<int>>);
static_assert(kIsOnePointer<KvVector<GxDbObjectId>>);
static_assert(kIsOnePointer<KvVector<GxDbFullSubentPath*>>);
static_assert(kIsOnePointer<KvVector<GxGePoint3d>>);
static_assert(kIsOnePointer<KvVector<std::string>>);

template <class T>
using Default = KvVector<T, KvDefaultMemAllocator<T>, KvRefCounter, KvVectorDefaultGrowPolicy>;
template <class T>
using Delegated = KvVector<T, KvDelegateMemAllocator<T>, KvRefCounter, KvVectorDefaultGrowPolicy>;
static_assert(std::is_same_v<KvVector<int>, Default<int>>);
static_assert(std::is_same_v<KvVector<GxDbFullSubentPath*>, Default<GxDbFullSubentPath*>>);
static_assert(std::is_same_v<KvVector<GxGePoint3d>, Default<GxGePoint3d>>);
static_assert(std::is_same_v<KvVector<GxDbObjectId>, Delegated<GxDbObjectId>>);

// ---- growable array

static_assert(sizeof(GxArray<int>) == 24);
static_assert(std::is_standard_layout_v<GxArray<int>>);
static_assert(offsetof(GxArray<int>, mArray) == 0);
static_assert(offsetof(GxArray<int>, mPhysicalLength) == 8);
static_assert(offsetof(GxArray<int>, mLogicalLength) == 12);
static_assert(offsetof(GxArray<int>, mGrowLength) == 16);
static_assert(std::is_same_v<decltype(GxArray<int>::mPhysicalLength), std::int32_t>);
static_assert(std::is_same_v<decltype(GxArray<int>::mLogicalLength), std::int32_t>);
static_assert(std::is_same_v<decltype(GxArray<int>::mGrowLength), std::int32_t>);
static_assert(std::is_same_v<GxArray<int>, GxArray<int, GxArrayMemCopyReallocator<int>>>);

// ---- paged store

using Store = KvTrucker<int*, 65536u, KvTkDefaultAllocator<int*>>;
static_assert(std::is_same_v<Store, KvTrucker<int*, 65536u>>);
static_assert(sizeof(Store::Slot) == 16);
static_assert(65536u / sizeof(Store::Slot) == 4096);
static_assert(offsetof(Store::Slot, value) == 0);
static_assert(offsetof(Store::Slot, free) == 8);
static_assert(sizeof(Store::Slot::free) == 1);
static_assert(sizeof(Store::iterator) == 40);
static_assert(std::is_standard_layout_v<Store::iterator>);
static_assert(std::is_trivially_copyable_v<Store::iterator>);
static_assert(offsetof(Store::iterator, trucker) == 0);
static_assert(offsetof(Store::iterator, page) == 8);
static_assert(offsetof(Store::iterator, pageEnd) == 16);
static_assert(offsetof(Store::iterator, slot) == 24);
static_assert(offsetof(Store::iterator, position) == 32);
static_assert(offsetof(Store::iterator, epoch) == 36);
static_assert(std::is_same_v<decltype(Store::iterator::position), std::uint32_t>);
static_assert(std::is_same_v<decltype(Store::iterator::epoch), std::uint32_t>);
static_assert(std::is_same_v<decltype(Store::Page::liveCount), std::uint32_t>);
static_assert(!std::is_copy_constructible_v<Store> && !std::is_copy_assignable_v<Store>);

// Stores and pages may have private fields, and then offsetof() need not work. So the offsets are measured on
// an object.
template <class Object, class Field>
std::ptrdiff_t offsetIn(const Object& object, const Field& field) {
    return reinterpret_cast<const char*>(&field) - reinterpret_cast<const char*>(&object);
}

TEST(ContainersLayout, StoreBeginsWithHeadAndTail) {
    const Store store;
    EXPECT_EQ(offsetIn(store, store.head), 0);
    EXPECT_EQ(offsetIn(store, store.tail), 8);
}

TEST(ContainersLayout, PageBeginsWithNextLiveCountSlotsAndFillEnd) {
    Store store;
    store.append(nullptr);
    const Store::Page& page = *store.head;
    EXPECT_EQ(offsetIn(page, page.next), 0);
    EXPECT_EQ(offsetIn(page, page.liveCount), 8);
    EXPECT_EQ(offsetIn(page, page.slots), 16);
    EXPECT_EQ(offsetIn(page, page.fillEnd), 24);
}

} // namespace
