// The window's side of a session: turns what the user shows into commands, and keeps the current set
// highlighted. Knows nothing of windows.
//
// Wherever there is a command for what the user shows, that command is run. So everything can also be typed.
#pragma once

#include "examples/picker/Session.h"
#include "examples/picker/window/Area.h"
#include "examples/picker/window/Spotlight.h"

#include <string>
#include <vector>

namespace picker {

class Workbench {
public:
    // What happened, for the user.
    struct Report {
        std::string command; // the line that was run, or would do the same; may be empty
        std::string text;
        bool isError = false;
        bool isFinished = false; // the command ends the program
    };

    Session& session() { return mSession; }
    const Session& session() const { return mSession; }
    const Drawing* drawing() const { return mSession.hasDrawing() ? &mSession.drawing() : nullptr; }

    Report run(const std::string& line);
    Report pick(const Area& area, Change change);
    // Removes the items at these positions.
    Report removeAt(std::vector<int> positions);

    // Returns the position of the item for a placed entity, or -1.
    int positionOf(const std::vector<GxDbObjectId>& path) const;

private:
    template <class Work>
    Report guarded(Work work);
    std::vector<std::vector<GxDbObjectId>> pathsIn(const Area& area);
    std::string handlesOf(const std::vector<GxDbObjectId>& path) const;
    std::string commandFor(const Area& area, Change change);
    Report toggle(const Area& area);

    Session mSession;
    Spotlight mSpotlight;
};

} // namespace picker
