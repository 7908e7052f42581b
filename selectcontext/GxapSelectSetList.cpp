#include "selectcontext/GxapSelectSetList.h"
#include "selectcontext/detail/OwnedInfo.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

namespace {

struct SetDeleter {
    void operator()(GxapSelectSet* set) const noexcept {
        set->~GxapSelectSet();
        _kvFree(set);
    }
};
using OwnedSet = std::unique_ptr<GxapSelectSet, SetDeleter>;

// Makes an empty set in memory from _kvMalloc. Returns null if there is no memory.
OwnedSet makeSet() {
    kvdetail::OwnedMemory memory(_kvMalloc(sizeof(GxapSelectSet)));
    if (!memory)
        return nullptr;
    OwnedSet set(new (memory.get()) GxapSelectSet(false));
    memory.release();
    return set;
}

// Returns word 0 of the set's name: the set's address. The list reads no other word of a name.
long firstWord(const GxapSelectSet* set) {
    return reinterpret_cast<long>(set);
}

std::list<GxapSelectSet*>::iterator findByName(std::list<GxapSelectSet*>& sets, const long* name) {
    return std::find_if(sets.begin(), sets.end(),
                        [name](const GxapSelectSet* set) { return name && firstWord(set) == name[0]; });
}

// Puts a set at the front of a list, and the set's address into word 0 of a name. Unless keep() was called,
// the destructor restores the list and word 0, and destroys the set.
class Listing {
public:
    Listing(std::list<GxapSelectSet*>& sets, OwnedSet set, long* name)
        : mSets(sets), mSet(set.get()), mName(name), mOldWord(name[0]) {
        mSets.push_front(mSet);
        set.release();
        mName[0] = firstWord(mSet);
    }
    Listing(const Listing&) = delete;
    Listing& operator=(const Listing&) = delete;
    ~Listing() {
        if (!mSet)
            return;
        mSets.remove(mSet);
        mName[0] = mOldWord;
        OwnedSet(mSet).reset();
    }

    GxapSelectSet* keep() { return std::exchange(mSet, nullptr); }

private:
    std::list<GxapSelectSet*>& mSets;
    GxapSelectSet* mSet;
    long* const mName;
    const long mOldWord;
};

} // namespace

GxapSelectSetList::GxapSelectSetList() = default;

GxapSelectSetList::~GxapSelectSetList() {
    for (GxapSelectSet* set : sets)
        OwnedSet(set).reset(); // `set` may be null, if a caller has put null into `sets`
}

GxapSelectSet* GxapSelectSetList::newSelectSet(long* name) {
    if (!name)
        return nullptr;
    OwnedSet set = makeSet();
    if (!set)
        return nullptr;
    Listing listing(sets, std::move(set), name);
    gxdbInitGdsNameKey(name);
    return listing.keep();
}

GxapSelectSet* GxapSelectSetList::addSelectSet(const GxapSelectSet& src, long* name) {
    GxapSelectSet* const set = newSelectSet(name);
    if (set)
        *set = src;
    return set;
}

GxapSelectSet* GxapSelectSetList::getSSetByName(const long* name) {
    const auto found = findByName(sets, name);
    return found == sets.end() ? nullptr : *found;
}

void GxapSelectSetList::delSelectSet(long* name) {
    const auto found = findByName(sets, name);
    if (found == sets.end())
        return;
    const OwnedSet doomed(*found);
    sets.erase(found);
}
