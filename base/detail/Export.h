// Marks what the containers' inline code needs once in the whole process.
#pragma once

#include "platform/KvOsBase.h"

#define KV_BASE_API __attribute__((visibility("default")))
