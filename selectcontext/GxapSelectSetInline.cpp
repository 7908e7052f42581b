// Out-of-line copies of the inline functions of GxapSelectSet.h, for callers that do not inline them.
#define KVSELECTCONTEXT_INLINE
#include "selectcontext/GxapSelectSet.h"
