#include "examples/picker/CommandGroups.h"

#include "examples/picker/CommandTools.h"

namespace picker {
namespace {

void aperture(Console& console, const Arguments& arguments) {
    const std::vector<double> size = arguments.numbers(0, 1);
    if (!size.empty() && size[0] < 0)
        arguments.fail("the aperture cannot be negative");
    if (!size.empty())
        console.session.setAperture(size[0]);
    console.out << "point picks reach " << shortNumber(console.session.aperture()) << " units far\n";
}

void pick(Console& console, const Arguments& arguments) {
    const PointPick where = pointPick(console, arguments);
    sayTally(console, console.session.pick(where.point, where.reach));
}

void window(Console& console, const Arguments& arguments) {
    sayTally(console, console.session.window(boxOf(arguments)));
}

void crossing(Console& console, const Arguments& arguments) {
    sayTally(console, console.session.crossing(boxOf(arguments)));
}

void fence(Console& console, const Arguments& arguments) {
    sayTally(console, console.session.fence(chainOf(arguments)));
}

void all(Console& console, const Arguments& arguments) {
    arguments.expectNone();
    sayTally(console, console.session.all());
}

void byId(Console& console, const Arguments& arguments) {
    sayTally(console, console.session.byPaths(idPaths(console, arguments)));
}

void invert(Console& console, const Arguments& arguments) {
    arguments.expectNone();
    console.session.invert();
    sayCount(console, "inverted");
}

void previous(Console& console, const Arguments& arguments) {
    arguments.expectNone();
    sayTally(console, console.session.addPrevious());
}

} // namespace

CommandGroup pickCommands() {
    return {"Picks, which add to the current set",
            {{"pick", "X Y [APERTURE]", "add the entity nearest to a point", pick},
             {"aperture", "[SIZE]", "how far point picks reach", aperture},
             {"window", "X1 Y1 X2 Y2", "add the entities wholly inside a box", window},
             {"crossing", "X1 Y1 X2 Y2", "add the entities that a box touches", crossing},
             {"fence", "X1 Y1 X2 Y2 [X Y]...", "add the entities that a chain of lines crosses", fence},
             {"all", "", "add everything", all},
             {"id", "ID[/ID]...", "add what has an id, a name or a path of ids", byId},
             {"previous", "", "add the items of the set that was cleared last", previous},
             {"invert", "", "replace the items by all other entities", invert}}};
}

} // namespace picker
