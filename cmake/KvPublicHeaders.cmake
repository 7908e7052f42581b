# The headers that are installed. The public headers need those in detail/ for their templates and inline
# functions. Callers do not include headers of detail/.

set(KV_SEAM_HEADERS
    base/GxArray.h
    base/KvVector.h
    base/detail/Raise.h
    base/detail/Same.h
    platform/KvDatabase.h
    platform/KvGeometry.h
    platform/KvOsBase.h
    platform/KvRx.h
    platform/KvSeamExport.h)

set(KV_LIBRARY_HEADERS
    base/KvSTLAllocator.h
    base/KvTrucker.h
    base/detail/Export.h
    base/detail/FibonacciHash.h
    base/detail/NodePool.h
    base/detail/OccupancyBitmap.h
    base/detail/PageIndex.h
    base/detail/PoolHandle.h
    base/detail/Sanitizers.h
    base/detail/Shortcuts.h
    base/detail/StoreEpoch.h
    selectcontext/GxapSSListSmartPtr.h
    selectcontext/GxapSSetWriteAccessor.h
    selectcontext/GxapSelectHighlight.h
    selectcontext/GxapSelectSet.h
    selectcontext/GxapSelectSetList.h
    selectcontext/GxapSelectSetListManager.h
    selectcontext/GxapSelectedEntInfo.h
    selectcontext/IGxapSSetEntityExcluder.h
    selectcontext/IteratorTrace.h
    selectcontext/KvSelectContext.h
    selectcontext/KvSelectContextExport.h
    selectcontext/detail/BuiltWith.h
    selectcontext/selected_entity.h)

set(KV_AIDS_HEADERS
    aids/AidsExport.h
    aids/Errors.h
    aids/History.h
    aids/Inspect.h
    aids/Items.h
    aids/KvSelectContextAids.h
    aids/Reclaim.h
    aids/Schemes.h
    aids/Watched.h)

# kv_public_headers(<target> <scope> <headers...>): makes the headers part of the target, rooted at the tree.
function(kv_public_headers target scope)
    list(TRANSFORM ARGN PREPEND "${PROJECT_SOURCE_DIR}/")
    target_sources(${target} ${scope} FILE_SET HEADERS BASE_DIRS "${PROJECT_SOURCE_DIR}" FILES ${ARGN})
endfunction()
