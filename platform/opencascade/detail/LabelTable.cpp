#include "platform/opencascade/detail/LabelTable.h"

#include <map>
#include <mutex>

namespace kvopencascade::detail {

// ---- LabelRecord

bool LabelRecord::open(GxDb::OpenMode mode) noexcept {
    if (mode == GxDb::kForWrite) {
        int none = 0;
        return mOpenings.compare_exchange_strong(none, kWriter);
    }
    int openings = mOpenings.load();
    do {
        if (openings == kWriter)
            return false;
    } while (!mOpenings.compare_exchange_weak(openings, openings + 1));
    return true;
}

bool LabelRecord::close() noexcept {
    int openings = mOpenings.load();
    int fewer = 0;
    do {
        if (openings == 0)
            return false;
        fewer = openings == kWriter ? 0 : openings - 1;
    } while (!mOpenings.compare_exchange_weak(openings, fewer));
    return true;
}

int LabelRecord::openCount() const noexcept {
    const int openings = mOpenings.load();
    return openings == kWriter ? 1 : openings;
}

// ---- LabelTable

namespace {

std::mutex gMutex;
std::map<const TDF_Data*, std::weak_ptr<LabelTable>>& tables() {
    static std::map<const TDF_Data*, std::weak_ptr<LabelTable>> all;
    return all;
}
std::atomic<std::uint64_t> gLastRank{0};

} // namespace

std::shared_ptr<LabelTable> LabelTable::of(const Handle(TDF_Data) & data) {
    const std::lock_guard<std::mutex> guard(gMutex);
    std::weak_ptr<LabelTable>& known = tables()[data.get()];
    std::shared_ptr<LabelTable> table = known.lock();
    if (table != nullptr)
        return table;
    table = std::make_shared<LabelTable>(data);
    known = table;
    return table;
}

// The document may have a new table by now.
LabelTable::~LabelTable() {
    const std::lock_guard<std::mutex> guard(gMutex);
    const auto known = tables().find(mData.get());
    if (known != tables().end() && known->second.expired())
        tables().erase(known);
}

LabelRecord& LabelTable::recordOf(const TDF_Label& label) {
    if (LabelRecord* const* found = mRecordOfLabel.Seek(label))
        return **found;
    LabelRecord& record = mRecords.emplace_back(label, ++gLastRank);
    mRecordOfLabel.Bind(label, &record);
    return record;
}

} // namespace kvopencascade::detail
