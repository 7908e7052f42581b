// Allocation tracking and failure injection for the global operator new of a test program.
//
// Every form of operator new and delete is replaced, in the program and in its shared libraries. Blocks come
// from malloc, so the sanitizers check them.
//
// Thread safety: every function may be called on any thread.
#pragma once

#include <cstddef>

namespace kvtest {

// Returns the number of live blocks of operator new that were allocated since the program started.
long liveNewBlocks() noexcept;

// Returns the number of calls of operator new since the program started, including failed calls.
long newCalls() noexcept;

// Turns the counts by size on or off, and resets them. Blocks that were allocated before do not count.
void trackNewSizes(bool on);
long liveNewBlocksOfSize(std::size_t bytes);
long newCallsOfSize(std::size_t bytes);

// Returns the number of calls of a wrong operator delete since the program started. The wrong calls are:
//  - any form for a live block of _kvMalloc that the in-memory platform tracks; the block is not freed
//  - a plain form for an aligned block
//  - an aligned form for a plain block
long wrongDeletes() noexcept;

// Makes the nth call of operator new from now on fail. If `nth` is 1, the next call fails. With `fromThenOn`,
// all later calls fail, too. The nothrow forms return null. The other forms throw std::bad_alloc.
void failNew(long nth, bool fromThenOn) noexcept;

// Ends the failures. failedNews() still returns their number.
void allowNew() noexcept;

// Returns the number of injected failures since the last failNew().
long failedNews() noexcept;

} // namespace kvtest
