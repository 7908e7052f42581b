// KV_BASE_API: exports what must exist only once in the process. Inline code of the containers uses it.
#pragma once

#include "platform/KvOsBase.h"

#define KV_BASE_API __attribute__((visibility("default")))
