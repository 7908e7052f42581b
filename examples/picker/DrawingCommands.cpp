#include "examples/picker/CommandGroups.h"

#include "examples/picker/CommandTools.h"
#include "examples/picker/Table.h"

#include <algorithm>
#include <utility>

namespace picker {
namespace {

std::string omissionsLine(const std::vector<Omission>& omissions) {
    constexpr std::size_t kMostKinds = 12;
    std::string line;
    for (std::size_t i = 0; i < std::min(omissions.size(), kMostKinds); ++i) {
        const Omission& omission = omissions[i];
        line += line.empty() ? "not drawn: " : ", ";
        line += std::to_string(omission.count) + " " + shortened(omission.what, 60);
        line += " (line " + std::to_string(omission.firstLine) + (omission.count > 1 ? "...)" : ")");
    }
    if (omissions.size() > kMostKinds)
        line += ", and " + std::to_string(omissions.size() - kMostKinds) + " kinds more";
    return line;
}

std::size_t referencesIn(const BlockDefinition& block) {
    const auto& contents = block.contents();
    return static_cast<std::size_t>(
        std::count_if(contents.begin(), contents.end(),
                      [](const BlockDefinition::Content& content) { return content.reference != nullptr; }));
}

void info(Console& console, const Arguments& arguments) {
    arguments.expectNone();
    const Drawing& drawing = console.session.drawing();
    const std::size_t references = referencesIn(drawing.model());
    console.out << drawing.name() << ", " << sizeOf(drawing.page()) << ": "
                << entities(drawing.model().curveCount()) << " placed";
    if (references > 0)
        console.out << ", " << drawing.model().contents().size() - references << " plain, the others by "
                    << plural(references, "reference", "references") << " to "
                    << plural(drawing.blocks().size() - 1, "block", "blocks");
    console.out << '\n';
    const std::string omissions = omissionsLine(drawing.omissions());
    if (!omissions.empty())
        console.out << omissions << '\n';
}

void load(Console& console, const Arguments& arguments) {
    if (console.session.savedSets().count(arguments.word()) > 0) {
        recall(console, arguments);
        return;
    }
    console.session.load(arguments.word());
    info(console, Arguments({}, ""));
}

void blocks(Console& console, const Arguments& arguments) {
    arguments.expectNone();
    Table table({{"block"},
                 {"own entities", Table::Align::right},
                 {"references", Table::Align::right},
                 {"entities shown", Table::Align::right},
                 {"size"}});
    for (const BlockDefinition* block : console.session.drawing().blocks()) {
        const std::size_t references = referencesIn(*block);
        table.add({block == &console.session.drawing().model() ? "(the drawing)" : block->name(),
                   std::to_string(block->contents().size() - references), std::to_string(references),
                   std::to_string(block->curveCount()), sizeOf(block->box())});
    }
    table.print(console.out, console.width);
}

} // namespace

CommandGroup drawingCommands() {
    return {"The drawing",
            {{"load", "FILE|NAME", "load a drawing, whose old sets go, or a saved set", load},
             {"info", "", "what the drawing holds, and what is not drawn", info},
             {"blocks", "", "the blocks of the drawing", blocks}}};
}

} // namespace picker
