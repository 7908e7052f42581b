// KVSELECTCONTEXT_API: marks what libKvSelectContext exports. Everything else is hidden.
#pragma once

#define KVSELECTCONTEXT_API __attribute__((visibility("default")))

// Begins the inline definition of a member of an exported class. The member's declaration must have
// KVSELECTCONTEXT_API, since inline functions are hidden otherwise. GxapSelectSetInline.cpp defines this
// macro as empty. So the library has a compiled copy of the member, for callers that do not inline it.
#ifndef KVSELECTCONTEXT_INLINE
#define KVSELECTCONTEXT_INLINE inline
#endif
