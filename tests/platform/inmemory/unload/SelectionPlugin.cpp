// A plug-in that selects, names and highlights entities of an in-memory database.
#include "tests/platform/inmemory/unload/UnloadPlugin.h"

#include "platform/inmemory/InMemoryDatabase.h"
#include "selectcontext/KvSelectContext.h"

#include <array>

int kvUnloadPluginRun() {
    int failures = 0;
    const auto expect = [&failures](bool holds) { failures += holds ? 0 : 1; };

    kvinmemory::setLogging(true);
    kvinmemory::Database database;
    const GxDbObjectId door = database.addEntity("door");
    GxapSelectSet set;
    auto& edit = static_cast<GxapSSetWriteAccessor&>(set);
    for (int i = 0; i < 100; ++i)
        edit.append(database.addEntity(), GxDbObjectId());
    edit.append(door, GxDbObjectId());
    expect(set.find(door) == 100);

    GxapSelectSetList list;
    std::array<long, 2> name{};
    const GxapSelectSet* const named = list.addSelectSet(set, name.data());
    expect(named != nullptr);
    expect(list.getSSetByName(name.data()) == named);

    GxDbFullSubentPath path;
    path.objectIds().setLogicalLength(1);
    path.objectIds()[0] = door;
    KvVector<GxDbFullSubentPath*> paths;
    paths.setLogicalLength(1);
    paths.at(0) = &path;
    gxutEntityGxDbFullPathHighlight(door, &paths, true, true);
    expect(kvinmemory::databaseEvents(kvinmemory::DatabaseCall::Highlight).size() == 1);
    edit.clear();
    return failures;
}
