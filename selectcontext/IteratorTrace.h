// The calls in which sets have disabled their iterators. Only a library that is built with KV_TRACE_ITERATORS
// remembers them.
#pragma once

#include "selectcontext/GxapSelectSet.h"
#include "selectcontext/KvSelectContextExport.h"

#include <cstddef>

#ifdef KV_TRACE_ITERATORS

namespace kvtrace {

constexpr std::size_t kMostCallers = 16;
constexpr std::size_t kRemembered = 256; // iterators, of all sets together

// Remembers that the iterator's set disables it now, with the return addresses of the calls that lead here.
// Forgets the oldest of kRemembered others. Any thread may call it.
KVSELECTCONTEXT_API void noteDisabling(const GxapSelectSet::ConstIterator* it) noexcept;

// Copies the return addresses of the calls in which a set last disabled the iterator, the innermost first.
// `callers` must have room for kMostCallers. Returns the number of addresses. It is 0 if no set has disabled
// the iterator, or kRemembered others since. An iterator that was made where a disabled one was is taken for
// that one. O(kRemembered). Any thread may call it.
KVSELECTCONTEXT_API std::size_t callersOfDisabling(const GxapSelectSet::ConstIterator* it,
                                                   void** callers) noexcept;

} // namespace kvtrace

#endif
