// Marks what libKvSelectContext offers to its users; everything else stays inside the library.
#pragma once

#include "base/detail/Shortcuts.h"

#define KVSELECTCONTEXT_API __attribute__((visibility("default")))

// Begins the inline definition of a member of an exported class. The member is declared with
// KVSELECTCONTEXT_API, as inline functions are hidden otherwise. GxapSelectSetInline.cpp defines this macro
// empty, so that the library has a copy of each member for callers that do not inline it.
#ifndef KVSELECTCONTEXT_INLINE
#define KVSELECTCONTEXT_INLINE inline
#endif

// A program and its library have to be compiled with the same KV_SHORTCUTS, as the inline code of both works
// on the same sets. The library defines one of two symbols, by its setting. These headers refer to the symbol
// of the program's setting, so a mismatch is a link error. `retain` keeps the reference when the linker drops
// unused sections.
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
