// Checks the target and the language. Gives default visibility to what the application's libraries provide to
// this library.
#pragma once

#if __cplusplus < 201703L
#error "libKvSelectContext needs C++17 or later: compile with -std=c++17"
#endif
// The preprocessor checks this, since a static_assert would come too late: the standard library may have no
// headers for the target.
#ifndef __LP64__
#error "libKvSelectContext does not support 32-bit targets: pointers and long have 64 bits"
#endif

// Names with KV_SEAM_API are visible both in the library that defines them and in the code that uses them. So
// a polymorphic class has one typeinfo and one vtable across library boundaries.
#define KV_SEAM_API __attribute__((visibility("default")))
