// A drawing for tests of opening and highlighting. The calls that the drawing gets can be read as lines of
// text.
#pragma once

#include "tests/selectcontext/support/RecordTestSupport.h"

#include <optional>
#include <string>
#include <vector>

namespace kvtest {

// Expects that a test closes and deletes each object that it opens.
class DrawingTest : public SetTest {
protected:
    void SetUp() override {
        SetTest::SetUp();
        mObjectsAtStart = kvinmemory::liveObjects();
        mDrawing.emplace(1024);
    }

    void TearDown() override {
        EXPECT_EQ(kvinmemory::openObjects(), 0) << "objects left open";
        mDrawing.reset();
        EXPECT_EQ(kvinmemory::liveObjects(), mObjectsAtStart) << "objects left undeleted";
        SetTest::TearDown();
    }

    kvinmemory::Database& drawing() { return *mDrawing; }

    // Returns what was opened, highlighted and released so far, in order: "open A", "highlight A 1",
    // "unhighlight A 1", "close A", "delete". The number is the index of the path's part.
    std::vector<std::string> calls() const {
        std::vector<std::string> lines;
        for (const kvinmemory::DatabaseEvent& event : kvinmemory::databaseEvents()) {
            const std::string line = describe(event);
            if (!line.empty())
                lines.push_back(line);
        }
        return lines;
    }

private:
    std::string describe(const kvinmemory::DatabaseEvent& event) const {
        const std::string name(mDrawing->nameOf(event.id));
        const std::string part = std::to_string(event.contents.part.index);
        switch (event.call) {
        case kvinmemory::DatabaseCall::Open:
            return "open " + name;
        case kvinmemory::DatabaseCall::Close:
            return "close " + name;
        case kvinmemory::DatabaseCall::Delete:
            return "delete";
        case kvinmemory::DatabaseCall::Highlight:
            return "highlight " + name + " " + part;
        case kvinmemory::DatabaseCall::Unhighlight:
            return "unhighlight " + name + " " + part;
        default:
            return "";
        }
    }

    std::optional<kvinmemory::Database> mDrawing;
    long mObjectsAtStart = 0;
};

using Lines = std::vector<std::string>;

// Returns the numbers n of a vector of id(n).
inline std::vector<unsigned long> numbersOf(const KvVector<GxDbObjectId>& ids) {
    std::vector<unsigned long> numbers;
    for (int i = 0; i < ids.logicalLength(); ++i)
        numbers.push_back(numberOf(ids.at(i)));
    return numbers;
}

inline std::vector<unsigned long> numbersOf(const GxDbFullSubentPath& path) {
    std::vector<unsigned long> numbers;
    for (int i = 0; i < path.objectIds().logicalLength(); ++i)
        numbers.push_back(numberOf(path.objectIds().at(i)));
    return numbers;
}

// Adds segments to the item at `position`. The parts of the segments have these indices. If the data is
// shared, changes it without copying it.
inline void addSegments(GxapSelectSet& set, int position, const std::vector<std::int64_t>& indices) {
    GxapSelectSet::Iterator it(&set, position);
    for (const std::int64_t index : indices) {
        const GxDbFullSubentPath path = subentPath({1}, 1, index);
        it.setHighlightSegment(&path);
    }
}

// Returns the indices of the parts of a record's segments. A null element counts as -1.
inline std::vector<std::int64_t> segmentsOf(const selected_entity& record) {
    return record.highlightSegmentArray ? indicesOf(*record.highlightSegmentArray)
                                        : std::vector<std::int64_t>();
}

inline std::vector<std::int64_t> segmentsAt(const GxapSelectSet& set, std::size_t position) {
    return segmentsOf(*recordAt(set, position));
}

} // namespace kvtest
