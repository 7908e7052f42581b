# The headers that are installed: the seam that a platform is written against, and what the library offers to callers.
# Everything else in base/ and selectcontext/ is the library's own affair.

set(KV_SEAM_HEADERS
    base/GxArray.h
    base/KvRaise.h
    base/KvVector.h
    platform/KvDatabase.h
    platform/KvGeometry.h
    platform/KvOsBase.h
    platform/KvRx.h
    platform/KvSeamExport.h)

set(KV_LIBRARY_HEADERS
    base/KvBaseExport.h
    base/KvLargeBlocks.h
    base/KvNodePool.h
    base/KvOccupancy.h
    base/KvPageIndex.h
    base/KvSTLAllocator.h
    base/KvShortcuts.h
    base/KvSpread.h
    base/KvStoreEpoch.h
    base/KvTrucker.h
    selectcontext/GxapSSListSmartPtr.h
    selectcontext/GxapSSetWriteAccessor.h
    selectcontext/GxapSelectHighlight.h
    selectcontext/GxapSelectSet.h
    selectcontext/GxapSelectSetList.h
    selectcontext/GxapSelectSetListManager.h
    selectcontext/GxapSelectedEntInfo.h
    selectcontext/IGxapSSetEntityExcluder.h
    selectcontext/KvSelectContext.h
    selectcontext/KvSelectContextExport.h
    selectcontext/selected_entity.h)

# kv_public_headers(<target> <scope> <headers...>): makes the headers part of the target, rooted at the tree.
function(kv_public_headers target scope)
    list(TRANSFORM ARGN PREPEND "${PROJECT_SOURCE_DIR}/")
    target_sources(${target} ${scope} FILE_SET HEADERS BASE_DIRS "${PROJECT_SOURCE_DIR}" FILES ${ARGN})
endfunction()
