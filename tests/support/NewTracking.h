// Allocation tracking and failure injection for the global operator new of a test program.
//
// Every form of operator new and delete is replaced, in the program and in its shared libraries.
// Blocks come from malloc, so the sanitizers check them.
//
// Thread safety: every function may be called on any thread.
#pragma once

#include <cstddef>

namespace kvtest {

// The number of live blocks, since the program started.
long liveNewBlocks() noexcept;

// The number of calls of operator new since the program started, failed ones included.
long newCalls() noexcept;

// Turns the counts by size on or off. Both reset them. Blocks from before that moment do not count.
void trackNewSizes(bool on);
long liveNewBlocksOfSize(std::size_t bytes);
long newCallsOfSize(std::size_t bytes);

// The number of calls of a wrong operator delete since the program started:
//  - any form for a live block of _kvMalloc that the in-memory platform tracks; the block is not freed
//  - a plain form for an aligned block
//  - an aligned form for a plain block
long wrongDeletes() noexcept;

// Lets the nth call of operator new from now on fail. 1 is the next call.
// With `fromThenOn`, all calls after it fail, too.
// The nothrow forms return null. The other forms throw std::bad_alloc.
void failNew(long nth, bool fromThenOn) noexcept;

// Ends the failures. Their number stays readable.
void allowNew() noexcept;

// The number of injected failures since the last failNew().
long failedNews() noexcept;

} // namespace kvtest
