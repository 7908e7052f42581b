// Checks the language and the target. Defines KV_SEAM_API, which exports names from the libraries of the
// application.
#pragma once

#if __cplusplus < 201703L
#error "libKvSelectContext needs C++17 or later: compile with -std=c++17"
#endif
// The preprocessor checks the target before it includes a standard header. The standard library may lack the
// headers for a 32-bit target, and a static_assert would come too late.
#ifndef __LP64__
#error "libKvSelectContext does not support 32-bit targets: pointers and long have 64 bits"
#endif

// Makes a name visible outside the library that defines the name. A polymorphic class then has one typeinfo
// and one vtable in all libraries.
#define KV_SEAM_API __attribute__((visibility("default")))
