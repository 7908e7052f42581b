// A program that uses the aids as an installed dependency. Returns 0 if everything worked.
#include "aids/KvSelectContextAids.h"
#include "platform/inmemory/InMemoryDatabase.h"

#include <cstdio>
#include <cstring>

namespace {

// Catches an error that the aids throw in their own library.
bool isCaught() {
    try {
        kv::rethrowing([] { return KvVector<GxDbObjectId>().at(0); });
    } catch (const kv::Error& error) {
        return error.status() == 24;
    }
    return false;
}

} // namespace

int main() {
    kvinmemory::Database drawing;
    GxapSelectSet set;
    auto& editing = static_cast<GxapSSetWriteAccessor&>(set);
    for (const char* name : {"door", "desk", "wall"})
        editing.append(drawing.addEntity(name), GxDbObjectId());

    int items = 0;
    for (const selected_entity& item : kv::items(set))
        items += item.mainEntId.isNull() ? 0 : 1;
    const kv::Record taken = kv::takeAt(set, 1);
    const bool works = items == 3 && taken && kv::validate(set).empty() && isCaught() &&
                       std::strcmp(kv::textOf(kv::whyDone(set.begin())), "on an item") == 0;
    std::puts(works ? "the aids work" : "the aids do not work");
    return works ? 0 : 1;
}
