// The in-memory libKvRx.
#include "platform/KvRx.h"

GxRxObject::~GxRxObject() = default;
