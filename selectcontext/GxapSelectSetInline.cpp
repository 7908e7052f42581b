// The out-of-line copies of what GxapSelectSet.h defines inline, for callers that do not inline it.
#define KVSELECTCONTEXT_INLINE
#include "selectcontext/GxapSelectSet.h"
