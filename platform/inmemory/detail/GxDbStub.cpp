#include "platform/inmemory/detail/GxDbStub.h"

#include "platform/inmemory/InMemoryDatabase.h"

namespace kvinmemory {

namespace {

std::atomic<long> gOpenObjects{0};

} // namespace

long openObjects() noexcept {
    return gOpenObjects.load();
}

} // namespace kvinmemory

bool GxDbStub::open(GxDb::OpenMode mode) noexcept {
    int openings = mOpenings.load();
    do {
        if (openings == kWriter || (mode == GxDb::kForWrite && openings > 0))
            return false;
    } while (!mOpenings.compare_exchange_weak(openings, mode == GxDb::kForWrite ? kWriter : openings + 1));
    ++kvinmemory::gOpenObjects;
    return true;
}

bool GxDbStub::close() noexcept {
    int openings = mOpenings.load();
    do {
        if (openings == 0)
            return false;
    } while (!mOpenings.compare_exchange_weak(openings, openings == kWriter ? 0 : openings - 1));
    --kvinmemory::gOpenObjects;
    return true;
}

int GxDbStub::openCount() const noexcept {
    const int openings = mOpenings.load();
    return openings == kWriter ? 1 : openings;
}
