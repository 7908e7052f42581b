// The in-memory libKvRx: what the seam declares.
#include "platform/KvRx.h"

GxRxObject::~GxRxObject() = default;
