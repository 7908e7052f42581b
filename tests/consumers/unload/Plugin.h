// What the plug-ins do with the library on every platform.
#pragma once

#include "selectcontext/KvSelectContext.h"

#include <array>

// The entry point of a plug-in. Returns the number of failed expectations.
extern "C" __attribute__((visibility("default"))) int runPlugin();

// Selects both entities, and copies, names, highlights and clears the set. Adds to the index and to the store
// by hand, so that the plug-in also has the code of the containers. Returns the number of failed
// expectations.
inline int useLibrary(GxDbObjectId door, GxDbObjectId desk) {
    int failures = 0;
    const auto expect = [&failures](bool holds) { failures += holds ? 0 : 1; };

    GxapSelectSet set;
    auto& edit = static_cast<GxapSSetWriteAccessor&>(set);
    edit.append(door, GxDbObjectId());
    for (long marker = 1; marker <= 100; ++marker)
        edit.select(desk, GxDbObjectId(), marker, nullptr, nullptr);
    expect(set.find(desk, GxDbObjectId(), 100) == 100);

    GxDbFullSubentPath path;
    path.objectIds().setLogicalLength(1);
    path.objectIds()[0] = door;
    auto first = edit.begin();
    edit.setHighlightSegment(first, &path);
    set.draw(true, true);

    GxapSelectSetList& named = *GxapSelectSetListManager::getInstance()->list;
    std::array<long, 2> name{};
    GxapSelectSet* const copy = named.addSelectSet(set, name.data());
    expect(copy != nullptr && named.getSSetByName(name.data()) == copy);

    GxapSelectSet::SSetData* const data = edit.writeData();
    auto* const record = new selected_entity;
    record->mainEntId = door;
    data->entities->append(record);
    data->dataMap.emplace(door, 0UL);
    ++data->entityCount;
    edit.updateDataMap();
    expect(set.find(door) == 0 && data->entities->at(101) == record);

    edit.clear();
    expect(copy->find(desk) == 1 && set.find(desk) == -1);
    try {
        KvVector<int>().at(0);
        expect(false);
    } catch (KvErrorStatus* error) {
        expect(error->status() == 24);
        delete error;
    }
    GxapSelectSetListManager::destroy();
    return failures;
}
