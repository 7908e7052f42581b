// libKvRx, for every platform of this tree.
#include "platform/KvRx.h"

GxRxObject::~GxRxObject() = default;
