#include "examples/picker/CommandGroups.h"

#include "examples/picker/CommandTools.h"
#include "examples/picker/Picture.h"

#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>

namespace picker {
namespace {

void sayHighlights(Console& console) {
    const std::size_t count = highlightCount(console.session.drawing());
    console.out << "the drawing shows " << plural(count, "highlight", "highlights") << '\n';
}

void highlight(Console& console, const Arguments& arguments) {
    const std::vector<int> positions = arguments.positions(0, std::numeric_limits<std::size_t>::max());
    if (positions.empty())
        console.session.highlightAll();
    console.session.highlight(positions);
    sayHighlights(console);
}

void highlightEdge(Console& console, const Arguments& arguments) {
    const PointPick where = pointPick(console, arguments);
    const std::optional<int> position = console.session.highlightSegment(where.point, where.reach);
    console.out << (position ? "of item " + std::to_string(*position) : "nothing there") << "; ";
    sayHighlights(console);
}

void unhighlight(Console& console, const Arguments& arguments) {
    const std::vector<int> positions = arguments.positions(0, std::numeric_limits<std::size_t>::max());
    if (positions.empty())
        console.session.unhighlightAll();
    console.session.unhighlight(positions);
    sayHighlights(console);
}

// A picture consists of two files with one stem.
struct PictureFiles {
    std::filesystem::path svg;
    std::filesystem::path png;
};

std::string fileText(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// Returns whether a file that is there may be lost: it was written here, or has nothing but a picture.
bool isOwn(const Session& session, const std::filesystem::path& svg) {
    if (session.hasWritten(svg))
        return true;
    const std::string text = fileText(svg);
    return isPicture(text) || text == session.drawing().source();
}

void expectOwn(const Session& session, const PictureFiles& files, const std::string& usage) {
    std::error_code failure;
    const bool hasSvg = std::filesystem::exists(files.svg, failure);
    const bool hasPng = std::filesystem::exists(files.png, failure);
    const bool isFree = hasSvg ? isOwn(session, files.svg) : !hasPng || session.hasWritten(files.svg);
    if (!isFree)
        throw CommandError((hasSvg ? files.svg : files.png).string() +
                           " is there already, and no picture of this drawing; a ! behind the name "
                           "overwrites it; usage: " +
                           usage);
}

// Returns the files that the arguments name. Throws CommandError if that is the drawing itself.
PictureFiles pictureFiles(const Session& session, const Arguments& arguments) {
    PictureFiles files;
    files.svg = arguments.optionalWord();
    if (files.svg.empty())
        files.svg = std::filesystem::path(session.drawing().name()).stem().string() + "-highlight.svg";
    if (files.svg.extension() != ".svg")
        arguments.fail("'" + files.svg.string() + "' is not the name of an .svg file");
    std::error_code isUnrelated;
    if (!session.file().empty() && std::filesystem::equivalent(files.svg, session.file(), isUnrelated))
        throw CommandError(files.svg.string() + " is the drawing itself");
    files.png = files.svg;
    files.png.replace_extension(".png");
    return files;
}

void writeFile(const std::filesystem::path& file, const std::string& text) {
    std::error_code failure; // not checked: after a failure, the file cannot be opened
    if (file.has_parent_path())
        std::filesystem::create_directories(file.parent_path(), failure);
    std::ofstream out(file, std::ios::binary);
    out << text;
    out.close();
    if (!out)
        throw CommandError(file.string() + " cannot be written");
}

void show(Console& console, const Arguments& arguments) {
    const Drawing& drawing = console.session.drawing();
    std::vector<std::string> words = arguments.words();
    const bool mayOverwrite = !words.empty() && words.back() == "!";
    if (mayOverwrite)
        words.pop_back();
    const PictureFiles files = pictureFiles(console.session, Arguments(words, arguments.usage()));
    if (!mayOverwrite)
        expectOwn(console.session, files, arguments.usage());
    writeFile(files.svg, pictureOf(drawing));
    console.session.noteWritten(files.svg);
    const Conversion conversion = convertToPng(files.svg.string(), files.png.string());
    if (conversion != Conversion::done)
        throw CommandError(
            files.svg.string() + " is written, but no PNG: rsvg-convert " +
            (conversion == Conversion::noProgram ? "is not installed (package librsvg2-bin)" : "failed"));
    console.out << plural(highlightCount(drawing), "highlight", "highlights") << " in " << files.svg.string()
                << " and " << files.png.string() << '\n';
}

} // namespace

CommandGroup highlightCommands() {
    return {"Highlights",
            {{"highlight", "[POSITION]...", "highlight items, or the whole current set", highlight},
             {"highlight-edge", "X Y [APERTURE]", "highlight the segment nearest to a point", highlightEdge},
             {"unhighlight", "[POSITION]...", "no more highlight items, or the whole set", unhighlight},
             {"show", "[FILE.svg] [!]", "write drawing and highlights, as SVG and as PNG", show}}};
}

} // namespace picker
