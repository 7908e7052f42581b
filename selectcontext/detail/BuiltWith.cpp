// Defines the tags of this library's settings and layouts.
#define KV_DEFINES_TAGS
#include "selectcontext/KvSelectContext.h"
