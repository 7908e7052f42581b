// A plug-in that uses each in-memory platform library, including its switches and logs.
#include "tests/platform/inmemory/unload/UnloadPlugin.h"

#include "base/KvVector.h"
#include "platform/inmemory/InMemoryDatabase.h"

#include <memory>

namespace {

using namespace kvinmemory;

int openedObjects(GxDbObjectId id) {
    GxDbObjectPointerBase<GxDbEntity> pointer;
    return pointer.open(id, GxDb::kForRead) == eOk ? 1 : 0;
}

bool throwsAcrossTheLibrary(const GxDbEntity& entity) {
    throwFromHighlight(1);
    try {
        entity.highlight(GxDbFullSubentPath(), true);
    } catch (const PlatformFailure&) {
        return true;
    }
    return false;
}

bool raisesStatus() {
    const KvVector<int> empty;
    try {
        empty.at(0);
    } catch (KvErrorStatus* status) {
        const std::unique_ptr<KvErrorStatus> owner(status);
        return recordedExceptions().size() == 1;
    }
    return false;
}

} // namespace

int kvUnloadPluginRun() {
    int failures = 0;
    const auto expect = [&failures](bool holds) { failures += holds ? 0 : 1; };

    setLogging(true);
    trackMemory(true);
    installCrashRecorder();
    expect(raisesStatus());
    {
        Database database;
        const GxDbObjectId door = database.addEntity("door");
        const GxDbObjectId desk = database.addNonResident("desk");
        database.forceOpenStatus(database.addInvalid(), eNotOpen);
        makeEqual(door, desk);
        expect(door == desk);
        expect(openedObjects(door) + openedObjects(desk) == 2);

        int calls = 0;
        onHighlight([&calls](const HighlightCall&) { ++calls; });
        database.entity(door)->highlight(GxDbFullSubentPath(), true);
        expect(calls == 1);
        expect(throwsAcrossTheLibrary(*database.entity(door)));
        onHighlight({});
    }
    const GxGeMatrix3d matrix;
    expect(matrix.isEqualTo(matrix));
    KvLocker locker;
    locker.lock();
    locker.unlock();
    expect(matrixComparisons().size() == 1);
    expect(lockCalls().size() == 2);
    expect(!databaseEvents().empty());
    expect(liveBlocks() == 0);
    // The logs are not cleared here: the libraries must free the events when they are unloaded.
    return failures;
}
