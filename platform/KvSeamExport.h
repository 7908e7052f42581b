// Visibility of what the application's libraries offer to the selection-set library.
#pragma once

// Default visibility on both sides: whoever provides the libraries exports these names, and whoever uses them
// shares one typeinfo and one vtable of every polymorphic class across library boundaries.
#define KV_SEAM_API __attribute__((visibility("default")))
