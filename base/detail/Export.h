// KV_BASE_API: exports a class from the library.
//
// The inline code of the containers uses such a class, also in programs. Because the class is exported,
// library and program use the same data of the class. A static library exports nothing: see
// KvSelectContextExport.h.
#pragma once

#include "platform/KvOsBase.h"

#ifdef KVSELECTCONTEXT_STATIC
#define KV_BASE_API
#else
#define KV_BASE_API __attribute__((visibility("default")))
#endif
