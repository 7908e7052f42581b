#include "platform/inmemory/InMemoryDatabase.h"
#include "selectcontext/KvSelectContext.h"

int main() {
    kvinmemory::Database drawing;
    GxapSelectSet picked;
    static_cast<GxapSSetWriteAccessor&>(picked).append(drawing.addEntity("door"), GxDbObjectId());
    return picked.sharedData->entityCount == 1 ? 0 : 1;
}
