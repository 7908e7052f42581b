#include "selectcontext/KvSelectContext.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <list>
#include <map>
#include <type_traits>
#include <utility>

#include <gtest/gtest.h>

// Callers read the fields of these classes directly. So order, types and offsets of the fields are part of
// the binary interface. Some classes also have private fields, so they are not standard-layout, and compilers
// warn about offsetof.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

namespace {

using SSetData = GxapSelectSet::SSetData;
using Store = SSetData::Store;
using ConstIterator = GxapSelectSet::ConstIterator;
using Iterator = GxapSelectSet::Iterator;
using SegmentArray = KvVector<GxDbFullSubentPath*>;
using IdPath = KvVector<GxDbObjectId>;

template <class A, class B>
constexpr bool kSame = std::is_same<A, B>::value;

static_assert(sizeof(long) == 8 && sizeof(void*) == 8, "the layout is that of LP64");

// ---- shared vector instantiations
static_assert(
    kSame<KvVector<int>, KvVector<int, KvDefaultMemAllocator<int>, KvRefCounter, KvVectorDefaultGrowPolicy>>);
static_assert(kSame<SegmentArray, KvVector<GxDbFullSubentPath*, KvDefaultMemAllocator<GxDbFullSubentPath*>,
                                           KvRefCounter, KvVectorDefaultGrowPolicy>>);
static_assert(kSame<IdPath, KvVector<GxDbObjectId, KvDelegateMemAllocator<GxDbObjectId>, KvRefCounter,
                                     KvVectorDefaultGrowPolicy>>);
static_assert(kSame<KvVector<GxGePoint3d>, KvVector<GxGePoint3d, KvDefaultMemAllocator<GxGePoint3d>,
                                                    KvRefCounter, KvVectorDefaultGrowPolicy>>);
static_assert(sizeof(KvVector<int>) == 8 && sizeof(SegmentArray) == 8 && sizeof(IdPath) == 8);
static_assert(sizeof(KvVector<GxGePoint3d>) == 8);

// ---- selected_entity
static_assert(sizeof(selected_entity) == 72 && alignof(selected_entity) == 8);
static_assert(!std::is_polymorphic<selected_entity>::value);
static_assert(std::is_nothrow_destructible<selected_entity>::value);
static_assert(!std::is_copy_constructible<selected_entity>::value &&
              !std::is_copy_assignable<selected_entity>::value);
static_assert(!std::is_move_constructible<selected_entity>::value &&
              !std::is_move_assignable<selected_entity>::value);
static_assert(kSame<decltype(selected_entity::mainEntId), GxDbObjectId>);
static_assert(kSame<decltype(selected_entity::subEntId), GxDbObjectId>);
static_assert(kSame<decltype(selected_entity::gsMarker), long>);
static_assert(kSame<decltype(selected_entity::hlVpArray), KvVector<int>>);
static_assert(kSame<decltype(selected_entity::highlightSegmentArray), SegmentArray*>);
static_assert(kSame<decltype(selected_entity::subselPathArray), SegmentArray*>);
static_assert(kSame<decltype(selected_entity::hasSubselPaths), bool>);
static_assert(kSame<decltype(selected_entity::nestedEntFullPath), IdPath>);
static_assert(kSame<decltype(selected_entity::selectedEntityInfo), GxapSelectedEntInfo*>);
static_assert(offsetof(selected_entity, mainEntId) == 0);
static_assert(offsetof(selected_entity, subEntId) == 8);
static_assert(offsetof(selected_entity, gsMarker) == 16);
static_assert(offsetof(selected_entity, hlVpArray) == 24);
static_assert(offsetof(selected_entity, highlightSegmentArray) == 32);
static_assert(offsetof(selected_entity, subselPathArray) == 40);
static_assert(offsetof(selected_entity, hasSubselPaths) == 48);
static_assert(offsetof(selected_entity, nestedEntFullPath) == 56);
static_assert(offsetof(selected_entity, selectedEntityInfo) == 64);

// ---- GxapSelectedEntInfo
static_assert(kSame<SelFenceIntersectInfo, GxapSelectedEntInfo::SelFenceIntersectInfo>);
static_assert(sizeof(SelFenceIntersectInfo) == 16 &&
              std::is_trivially_copyable<SelFenceIntersectInfo>::value);
static_assert(kSame<decltype(SelFenceIntersectInfo::index), std::int32_t>);
static_assert(kSame<decltype(SelFenceIntersectInfo::param), double>);
static_assert(offsetof(SelFenceIntersectInfo, index) == 0);
static_assert(offsetof(SelFenceIntersectInfo, reserved) == 4);
static_assert(offsetof(SelFenceIntersectInfo, param) == 8);

static_assert(sizeof(GxapSelectedEntInfo) == 40 && alignof(GxapSelectedEntInfo) == 8);
static_assert(!std::is_polymorphic<GxapSelectedEntInfo>::value);
static_assert(std::is_nothrow_destructible<GxapSelectedEntInfo>::value);
static_assert(kSame<decltype(GxapSelectedEntInfo::word0), std::uint32_t>);
static_assert(kSame<decltype(GxapSelectedEntInfo::word1), std::uint32_t>);
static_assert(kSame<decltype(GxapSelectedEntInfo::halfWord), std::int16_t>);
static_assert(kSame<decltype(GxapSelectedEntInfo::pointArray), KvVector<GxGePoint3d>>);
static_assert(kSame<decltype(GxapSelectedEntInfo::presenceBits), std::uint64_t>);
static_assert(kSame<decltype(GxapSelectedEntInfo::elasticData), GxDbElasticData*>);
static_assert(offsetof(GxapSelectedEntInfo, word0) == 0);
static_assert(offsetof(GxapSelectedEntInfo, word1) == 4);
static_assert(offsetof(GxapSelectedEntInfo, halfWord) == 8);
static_assert(offsetof(GxapSelectedEntInfo, pointArray) == 16);
static_assert(offsetof(GxapSelectedEntInfo, presenceBits) == 24);
static_assert(offsetof(GxapSelectedEntInfo, elasticData) == 32);
static_assert(kSame<decltype(GxapSelectedEntInfo::smEDataOffsetTable), const std::uint16_t[4]>);
static_assert(kSame<decltype(GxapSelectedEntInfo::smEDataTypeSizeTable), const std::uint16_t[2]>);
static_assert(kSame<decltype(GxapSelectedEntInfo::FenceIntersectInfoPtrDefVal), SelFenceIntersectInfo*>);
static_assert(kSame<decltype(GxapSelectedEntInfo::CompoundTransformBTROffsetPtrDefVal), GxGeMatrix3d*>);

// ---- SSetData
static_assert(
    kSame<SSetData::DataMap, std::multimap<GxDbObjectId, unsigned long, std::less<GxDbObjectId>,
                                           _KvSTLAllocator<std::pair<GxDbObjectId const, unsigned long>>>>);
static_assert(kSame<Store, KvTrucker<selected_entity*, 65536u, KvTkDefaultAllocator<selected_entity*>>>);
static_assert(!std::is_polymorphic<SSetData>::value);
static_assert(std::is_nothrow_destructible<SSetData>::value);
static_assert(!std::is_copy_constructible<SSetData>::value && !std::is_copy_assignable<SSetData>::value);
static_assert(!std::is_move_constructible<SSetData>::value && !std::is_move_assignable<SSetData>::value);
static_assert(kSame<decltype(SSetData::refCount), std::atomic<std::uint32_t>>);
static_assert(kSame<decltype(SSetData::dataMap), SSetData::DataMap>);
static_assert(kSame<decltype(SSetData::unique), bool>);
static_assert(kSame<decltype(SSetData::selectByNestedMode), bool>);
static_assert(kSame<decltype(SSetData::entityCount), std::uint32_t>);
static_assert(kSame<decltype(SSetData::entities), Store*>);
static_assert(sizeof(SSetData::DataMap) == 48);
static_assert(offsetof(SSetData, refCount) == 0);
static_assert(offsetof(SSetData, dataMap) == 8);
static_assert(offsetof(SSetData, unique) == 56);
static_assert(offsetof(SSetData, selectByNestedMode) == 57);
static_assert(offsetof(SSetData, entityCount) == 60);
static_assert(offsetof(SSetData, entities) == 64);

// ---- the store as the set instantiates it
static_assert(sizeof(Store::Slot) == 16 && offsetof(Store::Slot, value) == 0 &&
              offsetof(Store::Slot, free) == 8);
static_assert(offsetof(Store, head) == 0 && offsetof(Store, tail) == 8);
static_assert(offsetof(Store::Page, next) == 0);
static_assert(offsetof(Store::Page, liveCount) == 8);
static_assert(offsetof(Store::Page, slots) == 16);
static_assert(offsetof(Store::Page, fillEnd) == 24);
static_assert(sizeof(Store::iterator) == 40);
static_assert(offsetof(Store::iterator, trucker) == 0);
static_assert(offsetof(Store::iterator, page) == 8);
static_assert(offsetof(Store::iterator, pageEnd) == 16);
static_assert(offsetof(Store::iterator, slot) == 24);
static_assert(offsetof(Store::iterator, position) == 32);
static_assert(offsetof(Store::iterator, epoch) == 36);
static_assert(kSame<decltype(Store::iterator::epoch), std::uint32_t>);

// ---- GxapSelectSet and its accessor
using Registry = GxArray<ConstIterator*, GxArrayMemCopyReallocator<ConstIterator*>>;
static_assert(sizeof(GxapSelectSet) == 40 && alignof(GxapSelectSet) == 8);
static_assert(!std::is_polymorphic<GxapSelectSet>::value);
static_assert(std::is_nothrow_destructible<GxapSelectSet>::value);
static_assert(kSame<decltype(GxapSelectSet::sharedData), SSetData*>);
static_assert(kSame<decltype(GxapSelectSet::iterators), Registry>);
static_assert(kSame<decltype(GxapSelectSet::lispRefCnt), std::int64_t>);
static_assert(offsetof(GxapSelectSet, sharedData) == 0);
static_assert(offsetof(GxapSelectSet, iterators) == 8);
static_assert(offsetof(GxapSelectSet, lispRefCnt) == 32);
static_assert(!std::is_convertible<bool, GxapSelectSet>::value, "a bool is no set");
static_assert(std::is_default_constructible<GxapSelectSet>::value);

static_assert(std::is_base_of<GxapSelectSet, GxapSSetWriteAccessor>::value);
static_assert(sizeof(GxapSSetWriteAccessor) == sizeof(GxapSelectSet));
static_assert(!std::is_polymorphic<GxapSSetWriteAccessor>::value);
static_assert(std::is_constructible<GxapSSetWriteAccessor, bool>::value, "the constructors are inherited");

// ---- iterators
static_assert(sizeof(ConstIterator) == 24 && sizeof(Iterator) == 24);
static_assert(!std::is_polymorphic<ConstIterator>::value && !std::is_polymorphic<Iterator>::value);
static_assert(std::is_base_of<ConstIterator, Iterator>::value);
static_assert(std::is_nothrow_destructible<ConstIterator>::value &&
              std::is_nothrow_destructible<Iterator>::value);
static_assert(kSame<decltype(ConstIterator::set), const GxapSelectSet*>);
static_assert(kSame<decltype(ConstIterator::index), std::int32_t>);
static_assert(kSame<decltype(ConstIterator::truckerIterator), Store::iterator*>);
static_assert(offsetof(ConstIterator, set) == 0);
static_assert(offsetof(ConstIterator, index) == 8);
static_assert(offsetof(ConstIterator, truckerIterator) == 16);

// ---- named sets
static_assert(sizeof(GxapSelectSetList) == 24 && sizeof(GxapSelectSetList::sets) == 24);
static_assert(kSame<decltype(GxapSelectSetList::sets), std::list<GxapSelectSet*>>);
static_assert(!std::is_polymorphic<GxapSelectSetList>::value);
static_assert(!std::is_copy_constructible<GxapSelectSetList>::value &&
              !std::is_copy_assignable<GxapSelectSetList>::value);
static_assert(sizeof(GxapSSListSmartPtr) == 16 && !std::is_polymorphic<GxapSSListSmartPtr>::value);
static_assert(kSame<decltype(GxapSSListSmartPtr::list), GxapSelectSetList*>);
static_assert(kSame<decltype(GxapSSListSmartPtr::refCount), std::int32_t*>);
static_assert(offsetof(GxapSSListSmartPtr, list) == 0 && offsetof(GxapSSListSmartPtr, refCount) == 8);
static_assert(kSame<decltype(GxapSelectSetListManager::s_smartPtrSSList), GxapSSListSmartPtr*>);
static_assert(kSame<decltype(GxapSelectSetListManager::s_locker), KvLocker>);

// ---- callbacks and free functions
static_assert(std::is_abstract<IGxapSSetEntityExcluder>::value && sizeof(IGxapSSetEntityExcluder) == 8);
static_assert(std::has_virtual_destructor<IGxapSSetEntityExcluder>::value);
static_assert(kSame<decltype(&isGsMarkEqual), bool (*)(long, long)>);
static_assert(kSame<decltype(&gxutEntityGxDbFullPathHighlight),
                    void (*)(const GxDbObjectId&, const SegmentArray*, bool, bool)>);

// Callers are compiled against functions with exactly these types.
using MapPosition = SSetData::DataMap::const_iterator;
using Id = const GxDbObjectId&;
using Path = const IdPath*;
[[maybe_unused]] constexpr MapPosition (GxapSelectSet::*kFindInMap1)(Id) const = &GxapSelectSet::findInMap;
[[maybe_unused]] constexpr MapPosition (GxapSelectSet::*kFindInMap2)(Id,
                                                                     Id) const = &GxapSelectSet::findInMap;
[[maybe_unused]] constexpr MapPosition (GxapSelectSet::*kFindInMap3)(Id, Id,
                                                                     long) const = &GxapSelectSet::findInMap;
[[maybe_unused]] constexpr MapPosition (GxapSelectSet::*kFindInMapPath)(Id, Id, Path) const =
    &GxapSelectSet::findInMap;
[[maybe_unused]] constexpr MapPosition (GxapSelectSet::*kFindInMap4)(Id, Id, long,
                                                                     Path) const = &GxapSelectSet::findInMap;
[[maybe_unused]] constexpr MapPosition (GxapSelectSet::*kFindInMap5)(
    Id, Id, long, Path, GxapSelectedEntInfo*) const = &GxapSelectSet::findInMap;
[[maybe_unused]] constexpr int (GxapSelectSet::*kFind4)(Id, Id, long, Path) const = &GxapSelectSet::find;
[[maybe_unused]] constexpr ConstIterator (GxapSelectSet::*kFindItr4)(Id, Id, long,
                                                                     Path) const = &GxapSelectSet::findItr;
[[maybe_unused]] constexpr SSetData* (GxapSelectSet::*kCreateData)() = &GxapSelectSet::createData;
[[maybe_unused]] constexpr SSetData* (SSetData::*kClone)() const = &SSetData::clone;
[[maybe_unused]] constexpr void (SSetData::*kAddRef)() const = &SSetData::addRef;
[[maybe_unused]] constexpr void (SSetData::*kDelRef)() const = &SSetData::delRef;

// Checks the type of every function of the editing interface. has() checks one overload of a function.
using Accessor = GxapSSetWriteAccessor;
template <class Member>
constexpr bool has(Member) {
    return true;
}
static_assert(kSame<decltype(&Accessor::writeData), SSetData* (Accessor::*)()>);
static_assert(kSame<decltype(&Accessor::updateDataMap), void (Accessor::*)()>);
static_assert(kSame<decltype(&Accessor::clear), void (Accessor::*)()>);
static_assert(kSame<decltype(&Accessor::copyFrom), Accessor& (Accessor::*)(const GxapSelectSet&)>);
static_assert(kSame<decltype(&Accessor::getAt), selected_entity** (Accessor::*)(int)>);
static_assert(has<Iterator (Accessor::*)(Id)>(&Accessor::findItr));
static_assert(has<Iterator (Accessor::*)(Id, Id)>(&Accessor::findItr));
static_assert(has<Iterator (Accessor::*)(Id, Id, long)>(&Accessor::findItr));
static_assert(kSame<decltype(&Accessor::findMain), Iterator (Accessor::*)(Id)>);
static_assert(kSame<decltype(&Accessor::iteratorAt), Iterator (Accessor::*)(int)>);
static_assert(kSame<decltype(&Accessor::begin), Iterator (Accessor::*)()>);
static_assert(kSame<decltype(&Accessor::end), Iterator (Accessor::*)()>);
static_assert(kSame<decltype(&Accessor::setSelectByNestedMode), void (Accessor::*)(bool)>);
static_assert(kSame<decltype(&Accessor::setHighlightSegment),
                    void (Accessor::*)(Iterator&, const GxDbFullSubentPath*)>);
static_assert(
    kSame<decltype(&Accessor::select), void (Accessor::*)(Id, Id, long, GxapSelectedEntInfo*, Path)>);
static_assert(has<void (Accessor::*)(Id, Id)>(&Accessor::append));
static_assert(has<bool (Accessor::*)(const selected_entity*)>(&Accessor::append));
static_assert(has<bool (Accessor::*)(Id)>(&Accessor::remove));
static_assert(has<bool (Accessor::*)(Id, Id)>(&Accessor::remove));
static_assert(has<bool (Accessor::*)(Id, Id, long)>(&Accessor::remove));
static_assert(has<bool (Accessor::*)(Iterator&)>(&Accessor::removeAt));
static_assert(has<bool (Accessor::*)(int)>(&Accessor::removeAt));
static_assert(
    kSame<decltype(&Accessor::merge), void (Accessor::*)(const GxapSelectSet*, const GxapSelectSet*)>);
static_assert(
    kSame<decltype(&Accessor::minus), void (Accessor::*)(const GxapSelectSet*, const GxapSelectSet*)>);
static_assert(kSame<decltype(&Accessor::setUnique), void (Accessor::*)(bool)>);
static_assert(kSame<decltype(&Accessor::findMainSubsel), Iterator (Accessor::*)(Id)>);
static_assert(
    kSame<decltype(&Accessor::appendSubentPathSubsel), bool (Accessor::*)(const GxDbFullSubentPath&)>);
static_assert(
    kSame<decltype(&Accessor::removeSubentPathSubsel), bool (Accessor::*)(const GxDbFullSubentPath&)>);
static_assert(kSame<decltype(&Accessor::removeSubentPathAtSubsel), bool (Accessor::*)(int, int)>);

} // namespace

#pragma GCC diagnostic pop

TEST(Layout, ExcluderAnswersThroughTheFirstVirtualEntry) {
    // In the Itanium ABI, a pointer to a member function has two words. For a virtual function, the first
    // word contains the byte offset of the table entry. The lowest bit of one word says that the function is
    // virtual: on AArch64, that of the second word, and elsewhere that of the first.
#ifdef __aarch64__
    constexpr std::ptrdiff_t kExpected[2] = {0, 1};
#else
    constexpr std::ptrdiff_t kExpected[2] = {1, 0};
#endif
    const auto member = &IGxapSSetEntityExcluder::isExcluded;
    std::ptrdiff_t representation[2] = {};
    static_assert(sizeof(member) == sizeof(representation));
    std::memcpy(representation, &member, sizeof(member));
    EXPECT_EQ(representation[0], kExpected[0]);
    EXPECT_EQ(representation[1], kExpected[1]);
}

TEST(Layout, SetSeenAsItsAccessorIsTheVerySameObject) {
    GxapSelectSet set;
    auto& accessor = static_cast<GxapSSetWriteAccessor&>(set);
    EXPECT_EQ(static_cast<void*>(&accessor), static_cast<void*>(&set));
    EXPECT_EQ(accessor.sharedData, set.sharedData);
}

TEST(Layout, StorePageHoldsFourThousandAndNinetySixSlots) {
    Store store;
    Store::Slot* first = store.append(nullptr);
    EXPECT_EQ(65536u / sizeof(Store::Slot), 4096u);
    EXPECT_EQ(store.head->slots, first);
    for (int i = 1; i < 4096; ++i) {
        store.append(nullptr);
    }
    EXPECT_EQ(store.head->next, nullptr);
    store.append(nullptr);
    EXPECT_EQ(store.head->next, store.tail);
    EXPECT_EQ(store.head->fillEnd, first + 4096);
}
