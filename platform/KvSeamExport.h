// Visibility of what the application's libraries offer to the selection-set library.
#pragma once

// The visibility is default for the provider and for the user.
// The provider exports these names. A polymorphic class then has one typeinfo and one vtable across library
// boundaries.
#define KV_SEAM_API __attribute__((visibility("default")))
