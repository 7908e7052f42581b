#include "selectcontext/selected_entity.h"
#include "selectcontext/detail/OwnedInfo.h"
#include "selectcontext/detail/RecordPool.h"
#include "selectcontext/detail/SharedPaths.h"

namespace {

// Gives up the ownership of each path, and deletes the list. If there is no memory to make the list's block
// private, reads the shared block, which no other list writes to. Not inlined: few records have segments, and
// inlining would make destroying the other records a sixth slower.
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
