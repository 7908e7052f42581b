#include "platform/KvRx.h"

GxRxObject::~GxRxObject() = default;
