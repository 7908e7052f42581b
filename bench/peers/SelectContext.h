// The library, with the interface that all contenders of the benchmark have.
#pragma once

#include "bench/Item.h"
#include "selectcontext/KvSelectContext.h"

namespace kvbench {

class SelectContext {
public:
    static constexpr const char* kName = "KvSelectContext";
    static constexpr std::size_t kLargest = 1000000;
    static constexpr bool kIndexesPositions = true;

    void setUniqueRule(bool on) { edit().setUnique(on); }

    void select(const Pick& pick) { edit().select(pick.mainId, pick.subId, pick.gsMarker, nullptr, nullptr); }

    void select(const NestedPick& pick) {
        edit().select(pick.mainId, pick.subId, pick.gsMarker, nullptr, &pick.path);
    }

    bool has(const GxDbObjectId& id) const { return mSet.findInMap(id) != mSet.sharedData->dataMap.end(); }

    long positionOf(const GxDbObjectId& id) const { return mSet.find(id); }

    long at(std::size_t index) const { return mSet.getAt(static_cast<int>(index))->gsMarker; }

    std::uintptr_t walk() const {
        std::uintptr_t sum = 0;
        for (GxapSelectSet::ConstIterator it = mSet.begin(); !it.isDone(); it.step(true)) {
            const selected_entity* const record = it.get();
            sum += reinterpret_cast<std::uintptr_t>(record->mainEntId.stub()) +
                   static_cast<std::uintptr_t>(record->gsMarker);
        }
        return sum;
    }

    std::size_t size() const { return mSet.sharedData->entityCount; }

    // Makes the data private to this handle, as the first write after a copy does.
    void detach() { edit().writeData(); }

    bool remove(const Pick& pick) { return edit().remove(pick.mainId, pick.subId, pick.gsMarker); }

    void removeAllForward() {
        GxapSelectSet::Iterator it = edit().begin();
        while (!it.isDone()) {
            edit().removeAt(it);
            it = edit().begin();
        }
    }

    // Each removal moves the iterator to the previous item.
    void removeAllBackward() {
        GxapSelectSet::Iterator it = edit().iteratorAt(static_cast<int>(mSet.sharedData->entityCount) - 1);
        while (edit().removeAt(it)) {}
    }

    void mergeOf(const SelectContext& a, const SelectContext& b) { edit().merge(&a.mSet, &b.mSet); }
    void minusOf(const SelectContext& a, const SelectContext& b) { edit().minus(&a.mSet, &b.mSet); }
    bool contains(const SelectContext& other) const { return mSet.contains(&other.mSet); }

private:
    GxapSSetWriteAccessor& edit() { return static_cast<GxapSSetWriteAccessor&>(mSet); }

    GxapSelectSet mSet;
};

} // namespace kvbench
