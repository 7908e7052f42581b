// The in-memory libKvRx: defines what KvRx.h declares.
#include "platform/KvRx.h"

GxRxObject::~GxRxObject() = default;
