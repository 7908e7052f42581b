// Marks what libKvSelectContext offers to its users; everything else stays inside the library.
#pragma once

#define KVSELECTCONTEXT_API __attribute__((visibility("default")))

// Defines an inline member of an exported class. One source of the library defines the macro empty and
// thereby the copies that callers call instead of inlining them. The declaration is marked
// KVSELECTCONTEXT_API by itself, as inline functions of the library's other sources are hidden otherwise.
#ifndef KVSELECTCONTEXT_INLINE
#define KVSELECTCONTEXT_INLINE inline
#endif
