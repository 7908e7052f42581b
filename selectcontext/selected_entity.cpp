#include "selectcontext/selected_entity.h"
#include "selectcontext/detail/OwnedInfo.h"
#include "selectcontext/detail/RecordPool.h"
#include "selectcontext/detail/SharedPaths.h"

namespace {

// Without memory for a private list the paths are read in the shared one, to which no sharer writes. Kept out
// of line, as few records have segments: inlined it costs each of the others a sixth of its destruction.
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
