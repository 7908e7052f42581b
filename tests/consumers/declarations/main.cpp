// This program sees only declarations of the set's classes, and none of their inline functions. So every call
// uses the copy of the function inside the library. Returns 0 if the copies work.
#include "Declarations.h"
#include "platform/inmemory/InMemoryDatabase.h"

#include <cstdio>

namespace {

int failures = 0;

void expect(bool holds, const char* what) {
    if (holds)
        return;
    std::printf("does not hold: %s\n", what);
    ++failures;
}

void walk(const GxapSelectSet& set, GxDbObjectId door, GxDbObjectId desk) {
    GxapSelectSet::ConstIterator it = set.begin();
    expect(!it.isDone() && it.get() != nullptr && it.get() == set.getAt(0),
           "an iterator begins on the first item");
    expect(it.mainEntId() == door && it.subEntId() == desk && it.gsMarker() == 7,
           "an iterator reads its item");
    expect(it.step() && it.get() == set.getAt(1) && it.mainEntId() == desk, "a step leads to the next item");
    expect(it.subEntId().isNull() && it.gsMarker() == -1, "an iterator reads the item that it steps to");
    expect(!it.step() && it.isDone() && it.get() == nullptr, "a walk ends");
    expect(it.mainEntId().isNull() && it.gsMarker() == 0, "an iterator at the end has no item");
}

void count(const GxapSelectSet& set) {
    expect(set.sharedData->refCount == 1, "a set holds its data");
    {
        const GxapSelectSet copy(set);
        expect(copy.sharedData == set.sharedData && set.sharedData->refCount == 2, "a copy shares the data");
    }
    expect(set.sharedData->refCount == 1, "a copy that is destroyed lets its data go");
    set.sharedData->addRef();
    expect(set.sharedData->refCount == 2, "a reference is counted");
    set.sharedData->delRef();
    expect(set.sharedData->refCount == 1, "a reference is given up");
}

} // namespace

int main() {
    kvinmemory::Database drawing;
    const GxDbObjectId door = drawing.addEntity("door");
    const GxDbObjectId desk = drawing.addEntity("desk");

    // A compiler makes every constructor and destructor twice: for a base class and for a complete object. An
    // accessor calls the set's functions for a base class. The copy in count() calls those for a complete
    // object.
    GxapSSetWriteAccessor edit;
    edit.select(door, desk, 7, nullptr, nullptr);
    edit.select(desk, GxDbObjectId(), -1, nullptr, nullptr);
    walk(edit, door, desk);
    count(edit);
    const GxapSSetWriteAccessor copiedAccessor(edit);
    walk(copiedAccessor, door, desk);

    if (failures == 0)
        std::puts("the library offers what it declares");
    return failures == 0 ? 0 : 1;
}
