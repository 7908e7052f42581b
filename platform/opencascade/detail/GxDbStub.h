// GxDbStub: one database's stub of a label.
#pragma once

#include "platform/KvDatabase.h"
#include "platform/opencascade/detail/LabelTable.h"

namespace kvopencascade::detail {

class LabelStubs;

// The entity of a label. It draws through the database that has opened it.
class LabelEntity : public GxDbEntity {
public:
    LabelEntity(GxDbStub* stub, LabelStubs& stubs) : mStubs(stubs) { mStub = stub; }

    GxErrorStatus highlight(const GxDbFullSubentPath& path, bool entityFlag) const override;
    GxErrorStatus unhighlight(const GxDbFullSubentPath& path, bool entityFlag) const override;

private:
    LabelStubs& mStubs;
};

} // namespace kvopencascade::detail

// Invariant: a stub does not move, and lives as long as its database.
class GxDbStub {
public:
    GxDbStub(kvopencascade::detail::LabelRecord& ownRecord, kvopencascade::detail::LabelStubs& stubs)
        : record(ownRecord), entity(this, stubs) {}

    kvopencascade::detail::LabelRecord& record;
    kvopencascade::detail::LabelEntity entity;
};
