// Checks a platform against what the headers in platform/ promise.
//
// Whoever connects a platform compiles SeamConformance.cpp with it, calls check() with ids of a database, and
// reads the report. The check needs the seam, the containers of base/ and the standard library only.
//
// What the compiler or the linker checks by itself is not checked again. Leaks and data races are left to the
// sanitizers: run the check under them, with the option allocator_may_return_null=1, since the check asks for
// more memory than there is.
#pragma once

#include "platform/KvDatabase.h"

#include <functional>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

namespace kvconformance {

// Ids and functions of the platform to check. Whatever is empty leaves some promises unchecked, and the
// report says which.
struct Subject {
    std::vector<GxDbObjectId> entities; // open as entities; each names another object
    std::vector<GxDbObjectId> erased;   // erased entities
    std::vector<GxDbObjectId> others;   // a database knows their objects, which open as no entity
    std::vector<GxDbObjectId> invalid;  // no database knows an object by them; not null
    std::vector<std::pair<GxDbObjectId, GxDbObjectId>> twins; // different stubs of one object

    // Returns a path that the entity of an id can highlight. If empty, the path has the id only.
    std::function<GxDbFullSubentPath(GxDbObjectId)> pathOf;

    // Returns the number of current openings of an object. Is not called for the null id.
    std::function<int(GxDbObjectId)> openCount;
};

// What the check has found.
struct Report {
    std::vector<std::string> broken; // one sentence for each promise that does not hold
    std::vector<std::string>
        unchecked; // one sentence for each promise that the subject says too little about
    int held = 0;  // the number of promises that hold as far as the check can tell
};

// Opens, highlights and closes the entities of the subject, on this thread and on others. Leaves the database
// as it was. A platform that locks up makes the check report this and go on. Takes a second or so.
Report check(const Subject& subject);

// Writes a report, one sentence a line.
std::ostream& operator<<(std::ostream& out, const Report& report);

} // namespace kvconformance
