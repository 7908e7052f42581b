// Uses the library on a platform with its own allocator and its own ids. The platform has no block for empty
// vectors to share: gpEmptyVectorData is null. Returns 0 if sets can be filled, walked, copied and cleared,
// and if every block is freed.
#include "TinyPlatform.h"
#include "selectcontext/KvSelectContext.h"

#include <cstdio>
#include <new>

namespace {

int failures = 0;

void expect(bool holds, const char* what) {
    if (holds)
        return;
    std::printf("does not hold: %s\n", what);
    ++failures;
}

GxDbStub wall{1};
GxDbStub door{2};
GxDbStub sameDoor{2};

GxapSelectedEntInfo* infoOfCrossing(double parameter) {
    auto* info = new (_kvMalloc(sizeof(GxapSelectedEntInfo))) GxapSelectedEntInfo;
    info->setSelFenceResultInfo({3, 0, parameter});
    return info;
}

void fill(GxapSelectSet& set) {
    auto& editing = static_cast<GxapSSetWriteAccessor&>(set);
    KvVector<GxDbObjectId> path;
    path.setLogicalLength(1);
    path.at(0) = GxDbObjectId(&door);
    editing.select(GxDbObjectId(&door), GxDbObjectId(), 1, infoOfCrossing(0.5), &path);
    editing.select(GxDbObjectId(&sameDoor), GxDbObjectId(), 1, infoOfCrossing(0.25), &path);
    editing.select(GxDbObjectId(&wall), GxDbObjectId(), -1, nullptr, nullptr);
    expect(set.sharedData->entityCount == 2, "two stubs of one number are one entity");
}

void walk(const GxapSelectSet& set) {
    int items = 0;
    double crossing = 0;
    for (auto it = set.begin(); !it.isDone(); it.step(true)) {
        ++items;
        SelFenceIntersectInfo fence{};
        if (it.selectedEntityInfo() != nullptr && it.selectedEntityInfo()->getSelFenceResultInfo(fence))
            crossing = fence.param;
    }
    expect(items == 2, "a walk visits every item");
    expect(crossing == 0.5, "an item keeps its crossing");
    expect(set.find(GxDbObjectId(&sameDoor)) == 0, "an item is found by an equal id");
}

void copyAndClear(GxapSelectSet& set) {
    GxapSelectSet copy(set);
    auto& editingCopy = static_cast<GxapSSetWriteAccessor&>(copy);
    expect(editingCopy.getAt(0) != nullptr && copy.sharedData != set.sharedData,
           "a write makes a copy private");
    walk(copy);
    static_cast<GxapSSetWriteAccessor&>(set).clear();
    expect(set.begin() == set.end(), "a cleared set is empty");
    walk(copy);
}

void raise() {
    try {
        KvVector<int>().at(0);
        expect(false, "an index outside a vector is an error");
    } catch (KvErrorStatus* error) {
        expect(error->status() == 24, "an error without a recorder has its status");
        delete error;
    }
}

} // namespace

int main() {
    const long blocksBefore = tinyplatform::blocksInUse();
    {
        GxapSelectSet set;
        fill(set);
        walk(set);
        copyAndClear(set);
        raise();
    }
    expect(tinyplatform::blocksInUse() == blocksBefore, "every block comes back");
    if (failures == 0)
        std::puts("the tiny platform carries the library");
    return failures == 0 ? 0 : 1;
}
