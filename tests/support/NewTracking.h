// Counts what the global operator new hands out in this test program, and makes it fail on demand.
//
// Every form of operator new and delete of the program is replaced, in its shared libraries too. Blocks come
// from malloc, so the sanitizers watch them as ever. All functions may be called on any thread.
#pragma once

#include <cstddef>

namespace kvtest {

// Blocks that have not been deleted, since the program started.
long liveNewBlocks() noexcept;

// Calls of operator new, failed ones included, since the program started.
long newCalls() noexcept;

// While sizes are tracked, blocks are known by their size. Turning it on forgets what was known; blocks from
// before that moment are unknown.
void trackNewSizes(bool on);
long liveNewBlocksOfSize(std::size_t bytes);
long newCallsOfSize(std::size_t bytes);

// Blocks that were given to the wrong operator delete: those of _kvMalloc, live and obtained while the
// in-memory platform tracked its memory, which are left alone, and aligned ones to a plain form, or the other
// way round.
long wrongDeletes() noexcept;

// Lets the nth call of operator new from now on (1: the next) fail, and with fromThenOn all further ones: the
// plain forms throw std::bad_alloc, the nothrow ones answer null.
void failNew(long nth, bool fromThenOn) noexcept;

// Ends that. The number of failures stays readable.
void allowNew() noexcept;

// Calls that failed on demand since the last failNew.
long failedNews() noexcept;

} // namespace kvtest
