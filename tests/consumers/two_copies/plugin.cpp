// A plug-in with a copy of the library of its own. Selects, names and highlights an item.
#include "Plugin.h"
#include "platform/inmemory/InMemoryDatabase.h"
#include "selectcontext/KvSelectContext.h"

#include <array>

void* selectInPlugin() {
    kvinmemory::Database drawing;
    const GxDbObjectId desk = drawing.addEntity("desk");
    GxapSelectSet set;
    auto& edit = static_cast<GxapSSetWriteAccessor&>(set);
    edit.append(desk, GxDbObjectId());
    GxDbFullSubentPath path;
    auto first = edit.begin();
    edit.setHighlightSegment(first, &path);

    std::array<long, 2> name{};
    GxapSelectSetList& named = *GxapSelectSetListManager::getInstance()->list;
    GxapSelectSet* const copy = named.addSelectSet(set, name.data());
    edit.clear();
    const bool isKept = copy != nullptr && copy->find(desk) == 0 && set.find(desk) == -1;
    named.delSelectSet(name.data());
    return isKept ? GxapSelectSetListManager::s_smartPtrSSList : nullptr;
}

void forgetInPlugin() {
    GxapSelectSetListManager::destroy();
}
