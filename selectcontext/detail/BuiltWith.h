// Tags: names that a program and its library share only if both are compiled in the same way.
//
// The inline code of both works on the same objects. So the objects must have the same layout, and the
// settings below must be the same. A tag is a function whose name says one setting, or the layout of one
// class. The library defines the tags of its own settings and layouts. A program refers to the tags of the
// program's settings and layouts. So a difference is a link error, and the linker names the tag that the
// library lacks. Nobody calls a tag.
#pragma once

#include "base/detail/Shortcuts.h"
#include "selectcontext/KvSelectContextExport.h"

#include <cstddef>

// Keeps a variable, also if the linker drops unused sections.
#if defined(__has_attribute)
#if __has_attribute(retain)
#define KV_KEPT __attribute__((used, retain, visibility("hidden")))
#endif
#endif
#ifndef KV_KEPT
#define KV_KEPT __attribute__((used, visibility("hidden")))
#endif

// BuiltWith.cpp defines KV_DEFINES_TAGS, so that the library defines the tags.
#ifdef KV_DEFINES_TAGS
#define KV_TAG_DEFINITION(definition) definition
#else
#define KV_TAG_DEFINITION(definition)
#endif

// Declares a tag, and refers to it.
#define KV_TAG(tag)                                                                                          \
    KVSELECTCONTEXT_API void tag() noexcept;                                                                 \
    KV_TAG_DEFINITION(void tag() noexcept {})                                                                \
    KV_KEPT inline void (*const tag##IsNeeded)() noexcept = &tag

// Declares a tag for the layout of a class, and refers to it. The numbers are the size of the class and the
// offsets of its fields. A size that differs from one standard library to the other cannot be asserted.
#define KV_LAYOUT_TAG(tag, ...)                                                                              \
    template <std::size_t... Numbers>                                                                        \
    KVSELECTCONTEXT_API void tag() noexcept;                                                                 \
    KV_TAG_DEFINITION(template <std::size_t... Numbers> void tag() noexcept {})                              \
    KV_KEPT inline void (*const tag##IsNeeded)() noexcept = &tag<__VA_ARGS__>

namespace kvdetail {

#if KV_SHORTCUTS
KV_TAG(builtWithShortcuts);
#else
KV_TAG(builtWithoutShortcuts);
#endif

// The containers of the two standard libraries differ.
#ifdef _LIBCPP_VERSION
KV_TAG(builtWithLibcxx);
#else
KV_TAG(builtWithLibstdcxx);
#endif

// The containers of the debug mode are larger, and keep lists of their iterators.
#ifdef _GLIBCXX_DEBUG
KV_TAG(builtWithGlibcxxDebug);
#else
KV_TAG(builtWithoutGlibcxxDebug);
#endif

} // namespace kvdetail
