#include "selectcontext/IteratorTrace.h"

#ifdef KV_TRACE_ITERATORS

#include <algorithm>
#include <array>
#include <execinfo.h>
#include <iterator>
#include <mutex>

namespace kvtrace {

namespace {

struct Disabling {
    const GxapSelectSet::ConstIterator* iterator = nullptr;
    std::array<void*, kMostCallers> callers{};
    std::size_t count = 0;
};

// A ring. The next entry to be written is the oldest one.
struct Ring {
    std::mutex mutex;
    std::array<Disabling, kRemembered> entries;
    std::size_t next = 0;
};

Ring& ring() noexcept {
    static Ring only;
    return only;
}

} // namespace

void noteDisabling(const GxapSelectSet::ConstIterator* it) noexcept {
    Ring& remembered = ring();
    const std::lock_guard<std::mutex> lock(remembered.mutex);
    Disabling& entry = remembered.entries[remembered.next++ % kRemembered];
    entry.iterator = it;
    entry.count =
        static_cast<std::size_t>(::backtrace(entry.callers.data(), static_cast<int>(entry.callers.size())));
}

std::size_t callersOfDisabling(const GxapSelectSet::ConstIterator* it, void** callers) noexcept {
    Ring& remembered = ring();
    const std::lock_guard<std::mutex> lock(remembered.mutex);
    for (std::size_t back = 1; back <= kRemembered; ++back) {
        const Disabling& entry = remembered.entries[(remembered.next - back) % kRemembered];
        if (entry.iterator != it)
            continue;
        std::copy_n(entry.callers.begin(), entry.count, callers);
        return entry.count;
    }
    return 0;
}

} // namespace kvtrace

#endif
