// KVSELECTCONTEXT_API: marks what libKvSelectContext exports. Everything else is hidden.
#pragma once

#include "base/detail/Shortcuts.h"

#define KVSELECTCONTEXT_API __attribute__((visibility("default")))

// Begins the inline definition of a member of an exported class. The member's declaration must have
// KVSELECTCONTEXT_API, since inline functions are hidden otherwise. GxapSelectSetInline.cpp defines this
// macro as empty. So the library has a compiled copy of the member, for callers that do not inline it.
#ifndef KVSELECTCONTEXT_INLINE
#define KVSELECTCONTEXT_INLINE inline
#endif

// A program and its library must be compiled with the same KV_SHORTCUTS, since the inline code of both works
// on the same sets. The library defines one of the two functions below, depending on its KV_SHORTCUTS. The
// program refers to the function for the program's KV_SHORTCUTS. So different values give a link error.
// `retain` keeps the reference when the linker drops unused sections.
#if defined(__has_attribute)
#if __has_attribute(retain)
#define KVSELECTCONTEXT_KEPT __attribute__((used, retain, visibility("hidden")))
#endif
#endif
#ifndef KVSELECTCONTEXT_KEPT
#define KVSELECTCONTEXT_KEPT __attribute__((used, visibility("hidden")))
#endif

namespace kvdetail {

#if KV_SHORTCUTS
KVSELECTCONTEXT_API void builtWithShortcuts() noexcept;
KVSELECTCONTEXT_KEPT inline void (*const kNeedsShortcuts)() noexcept = &builtWithShortcuts;
#else
KVSELECTCONTEXT_API void builtWithoutShortcuts() noexcept;
KVSELECTCONTEXT_KEPT inline void (*const kNeedsNoShortcuts)() noexcept = &builtWithoutShortcuts;
#endif

} // namespace kvdetail
