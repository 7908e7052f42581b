#include "selectcontext/detail/SetData.h"

namespace kvdetail {

std::unique_ptr<SSetData> makeData() {
    auto data = std::make_unique<SSetData>();
    data->entities = new Store;
    return data;
}

SSetData& dataOf(const GxapSelectSet& set) {
    if (!set.sharedData) {
        set.sharedData = makeData().release();
        set.sharedData->addRef();
    }
    return *set.sharedData;
}

// Both vectors of the record share the block of all empty vectors. Takes their two references by one atomic
// operation, which is most of what making a record costs.
std::unique_ptr<selected_entity> newRecord(const SSetData& data) {
    std::unique_ptr<selected_entity> record(::new (SetData::of(data).records.allocate())
                                                selected_entity(NoBlock()));
    if (KvVectorBlock* const empty = gpEmptyVectorData) {
        empty->refCount.fetch_add(2);
        record->hlVpArray.data.block = empty;
        record->nestedEntFullPath.data.block = empty;
    }
    return record;
}

void appendRecord(SSetData& data, std::unique_ptr<selected_entity>&& record, IdIndex::Entry place) {
    if (!data.entities)
        data.entities = new Store; // a caller may have made data without a store
    AppendedRecords appended(*data.entities);
    const GxDbObjectId id = record->mainEntId;
    const Store::Slot* const slot = appended.append(std::move(record));
    indexOf(data).insert(place, id, slot);
    data.entityCount += appended.keep();
}

} // namespace kvdetail
