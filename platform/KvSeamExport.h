// Checks the language, the target and the compiler's options. Defines KV_SEAM_API, which exports names from
// the libraries of the application.
#pragma once

#if __cplusplus < 201703L
#error "libKvSelectContext needs C++17 or later: compile with -std=c++17"
#endif
// The preprocessor checks the target before it includes a standard header. The standard library may lack the
// headers for a 32-bit target, and a static_assert would come too late.
#ifndef __LP64__
#error "libKvSelectContext does not support 32-bit targets: pointers and long have 64 bits"
#endif

// The library and the containers throw, also in inline code.
#ifndef __cpp_exceptions
#error "libKvSelectContext throws exceptions: compile without -fno-exceptions"
#endif
// Errors have names and messages of wchar_t.
#if __SIZEOF_WCHAR_T__ != 4
#error "libKvSelectContext needs a wchar_t of 32 bits: compile without -fshort-wchar"
#endif

namespace kvdetail {

// Has a gap before its second field, unless the compiler packs structures.
struct PackingProbe {
    char first;
    void* second;
};

} // namespace kvdetail

static_assert(sizeof(kvdetail::PackingProbe) == 2 * sizeof(void*),
              "libKvSelectContext does not support packed structures: compile without -fpack-struct, and "
              "include its headers outside of #pragma pack");

// Makes a name visible outside the library that defines the name. A polymorphic class then has one typeinfo
// and one vtable in all libraries.
#define KV_SEAM_API __attribute__((visibility("default")))
