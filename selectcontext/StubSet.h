// StubSet: which stubs an operation has met already.
#pragma once

#include "base/KvLargeBlocks.h"
#include "base/KvSpread.h"
#include "platform/KvDatabase.h"

#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

namespace kvdetail {

// Spares comparing ids where one comes again and again: the same stub is the same id. Other stubs may name
// the same object, which only the application can tell.
//
// Invariant: mPlaces has each stub that was added once, in a table that is at most half full; none is added
// any more once the table finds no memory to grow.
//
// Thread safety: none; it belongs to one operation.
class StubSet {
public:
    // False for a stub that is known to have been added before; never for null. Amortised O(1).
    bool add(const GxDbStub* stub) noexcept {
        if (!stub || mIsFull)
            return true;
        if (2 * (mUsed + 1) > mPlaces.size() && !grow())
            return true;
        const GxDbStub*& place = mPlaces[placeOf(stub)];
        if (place)
            return false;
        place = stub;
        ++mUsed;
        return true;
    }

private:
    using Places = std::vector<const GxDbStub*, LargeArrayAllocator<const GxDbStub*>>;

    static constexpr std::size_t kFewestPlaces = 64;

    // The stub's place, or the free one where it belongs.
    std::size_t placeOf(const GxDbStub* stub) const noexcept {
        const std::size_t mask = mPlaces.size() - 1;
        std::size_t i = spread(reinterpret_cast<std::uintptr_t>(stub)) >> 32 & mask;
        while (mPlaces[i] && mPlaces[i] != stub)
            i = (i + 1) & mask;
        return i;
    }

    bool grow() noexcept try {
        Places old(mPlaces.empty() ? kFewestPlaces : 2 * mPlaces.size());
        old.swap(mPlaces);
        for (const GxDbStub* const stub : old) {
            if (stub)
                mPlaces[placeOf(stub)] = stub;
        }
        return true;
    } catch (const std::bad_alloc&) {
        mIsFull = true;
        return false;
    }

    Places mPlaces; // a power of two; null: a free place
    std::size_t mUsed = 0;
    bool mIsFull = false;
};

} // namespace kvdetail
