// The fixture of tests of sub-selections.
#pragma once

#include "tests/selectcontext/support/EditTestSupport.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace kvtest {

// Has a database with three entities. The library copies paths for sub-selections and never deletes the
// copies. The fixture deletes them after the test.
class SubselectionTest : public EditTest {
protected:
    using Path = GxDbFullSubentPath;

    void TearDown() override {
        freeLeftRecords();
        freePathCopiesLeft();
        std::vector<std::unique_ptr<Path>>().swap(mPaths);
        EditTest::TearDown();
    }

    // Returns the path to part number n of the entity.
    static Path part(const GxDbObjectId& entity, std::int64_t n) { return subentPath({entity}, 1, n); }

    // Makes `path` the path to part number n of the entity. Copies no path, so the log of the database shows
    // no copy.
    static void setToPart(Path& path, const GxDbObjectId& entity, std::int64_t n) {
        path.objectIds().setLogicalLength(1);
        path.objectIds()[0] = entity;
        path.subentId().type = 1;
        path.subentId().index = n;
    }

    // Gives the record a sub-selection of these parts of its entity. The fixture owns the paths.
    SegmentArray& subselect(selected_entity& target, const std::vector<std::int64_t>& parts) {
        target.hasSubselPaths = true;
        target.subselPathArray = new SegmentArray;
        for (const std::int64_t n : parts) {
            mPaths.push_back(std::make_unique<Path>());
            setToPart(*mPaths.back(), target.mainEntId, n);
            append(*target.subselPathArray, mPaths.back().get());
        }
        return *target.subselPathArray;
    }

    // Adds the entities `first` and `second` to the set. The item of `second` gets a sub-selection of these
    // parts.
    SegmentArray& fillWithSubselection(GxapSelectSet& set, const std::vector<std::int64_t>& parts) {
        edit(set).append(first, kNoId);
        edit(set).append(second, kNoId);
        return subselect(*record(set, 1), parts);
    }

    kvinmemory::Database database;
    const GxDbObjectId first = database.addEntity();
    const GxDbObjectId second = database.addEntity();
    const GxDbObjectId third = database.addEntity();

private:
    std::vector<std::unique_ptr<Path>> mPaths;
};

} // namespace kvtest
