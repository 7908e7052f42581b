// A program that uses the library as an installed or embedded dependency. It fills, walks, copies and clears
// a set of entities of an in-memory drawing. Returns 0 if everything worked.
#include "platform/inmemory/InMemoryDatabase.h"
#include "selectcontext/KvSelectContext.h"

#include <cstdio>

namespace {

int failures = 0;

void expect(bool holds, const char* what) {
    if (holds)
        return;
    std::printf("does not hold: %s\n", what);
    ++failures;
}

int walkedItems(const GxapSelectSet& set) {
    int items = 0;
    for (auto it = set.begin(); !it.isDone(); it.step(true))
        items += it.get() != nullptr ? 1 : 0;
    return items;
}

bool raisesInvalidIndex(const KvVector<GxDbObjectId>& ids) {
    try {
        ids.at(0);
    } catch (KvErrorStatus* error) {
        const bool asExpected = error->status() == 24;
        delete error;
        return asExpected;
    }
    return false;
}

} // namespace

int main() {
    kvinmemory::Database drawing;
    const GxDbObjectId door = drawing.addEntity("door");
    const GxDbObjectId desk = drawing.addEntity("desk");

    GxapSelectSet set;
    auto& editing = static_cast<GxapSSetWriteAccessor&>(set);
    editing.append(door, GxDbObjectId());
    editing.append(desk, GxDbObjectId());
    editing.append(door, GxDbObjectId());
    expect(set.sharedData->entityCount == 2, "an item that the set holds is refused");
    expect(walkedItems(set) == 2, "a walk visits every item");
    expect(set.find(desk) == 1, "an item is found at its position");

    const GxapSelectSet copy(set);
    expect(copy.sharedData == set.sharedData, "a copy shares the data");
    editing.clear();
    expect(walkedItems(set) == 0 && walkedItems(copy) == 2, "clearing a set leaves its copy alone");
    expect(raisesInvalidIndex(KvVector<GxDbObjectId>()), "an error is caught across library boundaries");

    if (failures == 0)
        std::puts("selection works");
    return failures == 0 ? 0 : 1;
}
