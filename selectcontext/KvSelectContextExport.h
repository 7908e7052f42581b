// Marks what libKvSelectContext offers to its users; everything else stays inside the library.
#pragma once

#define KVSELECTCONTEXT_API __attribute__((visibility("default")))
