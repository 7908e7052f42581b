#include "selectcontext/selected_entity.h"
#include "selectcontext/detail/OwnedInfo.h"
#include "selectcontext/detail/RecordPool.h"
#include "selectcontext/detail/SharedPaths.h"

namespace {

// If there is no memory for a private list, it reads the paths in the shared list, which no sharer writes to.
// Few records have segments, so it is not inlined. Inlining would make destroying every other record a sixth
// slower.
[[gnu::noinline]] void releaseSegments(KvVector<GxDbFullSubentPath*>* segments) noexcept {
    if (segments->logicalLength() > 0)
        segments->tryCopyBeforeWrite();
    kvdetail::dropPathOwners(*segments);
    delete segments;
}

} // namespace

selected_entity::~selected_entity() {
    if (selectedEntityInfo)
        kvdetail::InfoDeleter()(selectedEntityInfo);
    if (highlightSegmentArray)
        releaseSegments(highlightSegmentArray);
    if (hasSubselPaths)
        delete subselPathArray;
}

void* selected_entity::operator new(std::size_t bytes) {
    return kvdetail::RecordPool::allocateAligned(bytes);
}

void* selected_entity::operator new(std::size_t bytes, const std::nothrow_t& /*tag*/) noexcept try {
    return kvdetail::RecordPool::allocateAligned(bytes);
} catch (const std::bad_alloc&) {
    return nullptr;
}

void selected_entity::operator delete(void* record) noexcept {
    kvdetail::RecordPool::deallocate(record);
}

void selected_entity::operator delete(void* record, const std::nothrow_t& /*tag*/) noexcept {
    kvdetail::RecordPool::deallocate(record);
}
