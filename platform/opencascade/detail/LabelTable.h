// LabelTable: what all databases on one document know of its labels.
#pragma once

#include "platform/KvDatabase.h"

#include <NCollection_DataMap.hxx>
#include <TDF_Data.hxx>
#include <TDF_Label.hxx>
#include <TDF_LabelMapHasher.hxx>
#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>

namespace kvopencascade::detail {

// One label of a document.
//
// Invariant: `rank` is that of no other record of the process. It does not change.
//
// Thread safety: open(), close() and openCount() may be called on any thread.
class LabelRecord {
public:
    LabelRecord(const TDF_Label& ownLabel, std::uint64_t ownRank) : label(ownLabel), rank(ownRank) {}

    // Opens the object for a reader or for the writer. Returns false, and does nothing, if the writer would
    // not be alone.
    bool open(GxDb::OpenMode mode) noexcept;

    // Ends one opening. Returns whether there was one.
    bool close() noexcept;

    int openCount() const noexcept;

    const TDF_Label label;
    const std::uint64_t rank;

private:
    static constexpr int kWriter = -1;

    std::atomic<int> mOpenings{0}; // the number of readers, or kWriter
};

// The records of one document.
//
// Invariants:
//  1. A label has at most one record, which does not move.
//  2. Ranks ascend in the order in which the records are made.
//  3. The table keeps the labels' nodes alive.
//
// Thread safety: one thread at a time.
class LabelTable {
public:
    explicit LabelTable(const Handle(TDF_Data) & data) : mData(data) {}
    LabelTable(const LabelTable&) = delete;
    LabelTable& operator=(const LabelTable&) = delete;
    ~LabelTable();

    // Returns the table of a document, which all its databases share.
    static std::shared_ptr<LabelTable> of(const Handle(TDF_Data) & data);

    LabelRecord& recordOf(const TDF_Label& label);

    const Handle(TDF_Data) & data() const noexcept { return mData; }

private:
    Handle(TDF_Data) mData;
    std::deque<LabelRecord> mRecords;
    NCollection_DataMap<TDF_Label, LabelRecord*, TDF_LabelMapHasher> mRecordOfLabel;
};

} // namespace kvopencascade::detail
