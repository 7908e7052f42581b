// KVSELECTCONTEXT_CLASS and KVSELECTCONTEXT_API: mark the classes and functions that libKvSelectContext
// exports. Everything else is hidden.
#pragma once

// A static library, and a program that contains one, are compiled with KVSELECTCONTEXT_STATIC. They export
// nothing, so that other copies of the library in the process keep their own data. The classes are not marked
// then: a hidden class would hide every class of the program that has one as a field. The library's sources
// are compiled with -fvisibility=hidden, which hides the other members.
#ifdef KVSELECTCONTEXT_STATIC
#define KVSELECTCONTEXT_CLASS
#define KVSELECTCONTEXT_API __attribute__((visibility("hidden")))
#else
#define KVSELECTCONTEXT_CLASS __attribute__((visibility("default")))
// Exports a name from the library.
#define KVSELECTCONTEXT_API __attribute__((visibility("default")))
#endif

// Begins the inline definition of a member of an exported class. The member's declaration must have
// KVSELECTCONTEXT_API, since inline functions are hidden otherwise. GxapSelectSetInline.cpp defines this
// macro as empty. So the library has a compiled copy of the member, for callers that do not inline it.
#ifndef KVSELECTCONTEXT_INLINE
#define KVSELECTCONTEXT_INLINE inline
#endif
