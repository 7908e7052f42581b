#include "selectcontext/detail/SharedPaths.h"
#include "base/detail/Raise.h"

#include <atomic>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <new>

namespace kvdetail {
namespace {

// For every shared path, counts the owners beyond the first.
class PathOwners {
public:
    void add(GxDbFullSubentPath* path) {
        const std::lock_guard<std::mutex> guard(mMutex);
        ++mExtra[path];
        mSize.store(mExtra.size(), std::memory_order_release);
    }

    // Returns true if the caller was the only owner left.
    bool drop(GxDbFullSubentPath* path) {
        // If the path has another owner, mExtra has an entry for the path. That entry was made before this
        // thread got the path, so mSize is not 0 here. `acquire` makes visible what other owners did to the
        // path before they gave it up.
        if (mSize.load(std::memory_order_acquire) == 0)
            return true;
        const std::lock_guard<std::mutex> guard(mMutex);
        const auto entry = mExtra.find(path);
        if (entry == mExtra.end())
            return true;
        if (--entry->second == 0)
            mExtra.erase(entry);
        mSize.store(mExtra.size(), std::memory_order_release);
        return false;
    }

private:
    std::mutex mMutex;
    std::map<GxDbFullSubentPath*, std::size_t> mExtra;
    std::atomic<std::size_t> mSize{0}; // the size of mExtra, to be read without the lock
};

// Returns the table of the process. The table is never destroyed: static sets of the application may be
// destroyed after the static objects of this library.
PathOwners& pathOwners() {
    alignas(PathOwners) static unsigned char storage[sizeof(PathOwners)];
    static PathOwners* const owners = new (storage) PathOwners;
    return *owners;
}

} // namespace

void addPathOwners(const KvVector<GxDbFullSubentPath*>& paths) {
    struct Added {
        const KvVector<GxDbFullSubentPath*>& paths;
        int count = 0;
        bool all = false;

        ~Added() {
            while (!all && --count >= 0)
                dropPathOwner(paths.at(count));
        }
    } added{paths};

    for (; added.count < paths.logicalLength(); ++added.count) {
        if (GxDbFullSubentPath* const path = paths.at(added.count))
            pathOwners().add(path);
    }
    added.all = true;
}

void dropPathOwner(GxDbFullSubentPath* path) noexcept {
    if (path && pathOwners().drop(path))
        delete path;
}

void dropPathOwners(const KvVector<GxDbFullSubentPath*>& paths) noexcept {
    for (int i = 0; i < paths.logicalLength(); ++i)
        dropPathOwner(paths.at(i));
}

GxDbFullSubentPath* appendPathCopy(KvVector<GxDbFullSubentPath*>& paths, const GxDbFullSubentPath& path) {
    auto copy = std::make_unique<GxDbFullSubentPath>(path);
    const int length = paths.logicalLength();
    paths.setLogicalLength(length + 1);
    paths.copyBeforeWrite(0);
    if (paths.logicalLength() == 0)
        raiseStatus(kStatusNoElement);
    paths.at(length) = copy.get();
    return copy.release();
}

} // namespace kvdetail
