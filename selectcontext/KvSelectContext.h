// The complete public interface of libKvSelectContext.
#pragma once

#include "selectcontext/GxapSSListSmartPtr.h"
#include "selectcontext/GxapSSetWriteAccessor.h"
#include "selectcontext/GxapSelectHighlight.h"
#include "selectcontext/GxapSelectSet.h"
#include "selectcontext/GxapSelectSetList.h"
#include "selectcontext/GxapSelectSetListManager.h"
#include "selectcontext/GxapSelectedEntInfo.h"
#include "selectcontext/IGxapSSetEntityExcluder.h"
#include "selectcontext/IteratorTrace.h"
#include "selectcontext/selected_entity.h"
