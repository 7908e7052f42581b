// KV_BASE_API: exports a class that inline code of the containers uses, and whose data must exist only once
// in the process.
#pragma once

#include "platform/KvOsBase.h"

#define KV_BASE_API __attribute__((visibility("default")))
