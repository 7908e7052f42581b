// Marks what inline code of the containers shares across every library of the process.
#pragma once

#include "platform/KvOsBase.h"

#define KV_BASE_API __attribute__((visibility("default")))
