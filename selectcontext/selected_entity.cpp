#include "selectcontext/selected_entity.h"
#include "selectcontext/detail/OwnedInfo.h"
#include "selectcontext/detail/RecordPool.h"
#include "selectcontext/detail/SharedPaths.h"

selected_entity::~selected_entity() {
    if (selectedEntityInfo)
        kvdetail::InfoDeleter()(selectedEntityInfo);
    if (highlightSegmentArray) {
        // Without memory for a private list the paths are read in the shared one, which nobody writes to.
        if (highlightSegmentArray->logicalLength() > 0)
            highlightSegmentArray->tryCopyBeforeWrite();
        kvdetail::dropPathOwners(*highlightSegmentArray);
        delete highlightSegmentArray;
    }
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
