#include "platform/inmemory/detail/DatabaseRegistry.h"

#include "platform/inmemory/detail/ObjectTable.h"

#include <algorithm>
#include <mutex>

namespace kvinmemory::detail {

namespace {

// The registry must live longer than every database, and a static object of a program or a plug-in may be a
// database. The loader constructs the static objects of this library before those of the library's users. It
// destroys them in the opposite order, so the registry lives long enough.
DatabaseRegistry gRegistry;

} // namespace

DatabaseRegistry& databaseRegistry() noexcept {
    return gRegistry;
}

void DatabaseRegistry::add(ObjectTable* table) {
    const std::lock_guard<std::shared_mutex> guard(mMutex);
    mTables.push_back(table);
}

void DatabaseRegistry::remove(ObjectTable* table) {
    const std::lock_guard<std::shared_mutex> guard(mMutex);
    mTables.erase(std::remove(mTables.begin(), mTables.end(), table), mTables.end());
}

const ObjectTable* DatabaseRegistry::ownerOf(const GxDbStub* stub) const {
    const std::shared_lock<std::shared_mutex> guard(mMutex);
    const auto owner = std::find_if(mTables.begin(), mTables.end(), [stub](const ObjectTable* table) {
        return table->stubs().contains(stub);
    });
    return owner == mTables.end() ? nullptr : *owner;
}

bool DatabaseRegistry::isValid(const GxDbStub* stub) const {
    return ownerOf(stub) != nullptr && !stub->invalid;
}

void DatabaseRegistry::clearForcedStatuses() const {
    const std::lock_guard<std::shared_mutex> guard(mMutex);
    for (ObjectTable* table : mTables)
        table->clearForcedStatuses();
}

} // namespace kvinmemory::detail
