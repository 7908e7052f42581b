// A drawing for tests that open and highlight entities. The tests read the calls that the drawing gets as
// lines of text.
#pragma once

#include "tests/selectcontext/support/RecordTestSupport.h"

#include <optional>
#include <string>
#include <vector>

namespace kvtest {

// Has a drawing. Expects that no object is left open after the test, and that no object outlives the drawing.
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

    // Returns one line for each call so far, in order. The lines are: "highlight A 1", "unhighlight A 1",
    // "open A", "close A" and "delete". A is the name of the entity, and 1 the index of the part.
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

// Returns the number n of each id. Every id must come from id(n).
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

// Adds one segment for each part index to the item at `position`. Does not copy shared data: all sets that
// share the data get the segments.
inline void addSegments(GxapSelectSet& set, int position, const std::vector<std::int64_t>& indices) {
    GxapSelectSet::Iterator it(&set, position);
    for (const std::int64_t index : indices) {
        const GxDbFullSubentPath path = subentPath({1}, 1, index);
        it.setHighlightSegment(&path);
    }
}

// Returns the part index of each segment of the record. A null segment counts as -1.
inline std::vector<std::int64_t> segmentsOf(const selected_entity& record) {
    return record.highlightSegmentArray ? indicesOf(*record.highlightSegmentArray)
                                        : std::vector<std::int64_t>();
}

inline std::vector<std::int64_t> segmentsAt(const GxapSelectSet& set, std::size_t position) {
    return segmentsOf(*recordAt(set, position));
}

} // namespace kvtest
