// Helpers for tests of pictures: a working directory, a stand-in for the PNG converter, and functions that
// read a picture.
#pragma once

#include <pugixml.hpp>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

namespace kvtest {

inline std::string textOf(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// Makes a new directory, and makes it the working directory. The destructor restores the old working
// directory and deletes the new one.
class WorkingDirectory {
public:
    explicit WorkingDirectory(const std::string& name)
        : mBefore(std::filesystem::current_path()),
          mPath(std::filesystem::temp_directory_path() / (name + std::to_string(getpid()))) {
        std::filesystem::remove_all(mPath);
        std::filesystem::create_directories(mPath);
        std::filesystem::current_path(mPath);
    }
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;
    ~WorkingDirectory() {
        std::filesystem::current_path(mBefore);
        std::filesystem::remove_all(mPath);
    }

private:
    std::filesystem::path mBefore;
    std::filesystem::path mPath;
};

// Sets PATH to the subdirectory "programs" of the working directory. So no other programs are found. The
// destructor restores PATH.
class ProgramDirectory {
public:
    ProgramDirectory() {
        if (const char* path = std::getenv("PATH"))
            mBefore = path;
        const std::filesystem::path directory = std::filesystem::current_path() / "programs";
        std::filesystem::create_directories(directory);
        setenv("PATH", directory.c_str(), 1);
    }
    ProgramDirectory(const ProgramDirectory&) = delete;
    ProgramDirectory& operator=(const ProgramDirectory&) = delete;
    ~ProgramDirectory() { setenv("PATH", mBefore.c_str(), 1); }

private:
    std::string mBefore;
};

// Makes a program that replaces rsvg-convert. The program only writes its arguments to its output file. So
// the tests do not need the real program.
class StandInConverter {
public:
    StandInConverter() {
        const std::string file = "programs/rsvg-convert";
        std::ofstream(file) << "#!/bin/sh\nexec 2>/dev/null\nall=\"$*\"\n"
                               "while [ \"$1\" != --output ]; do shift; done\n"
                               "echo \"$all\" > \"$2\"\n";
        std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    }

private:
    ProgramDirectory mDirectory;
};

// Returns "main path marker" for each element that a picture adds to the drawing.
inline std::multiset<std::string> highlightsIn(const std::string& picture) {
    pugi::xml_document document;
    document.load_string(picture.c_str());
    std::multiset<std::string> found;
    const pugi::xml_node group = document.document_element().find_child_by_attribute("g", "id", "highlight");
    for (const pugi::xml_node element : group.children()) {
        found.insert(std::string(element.attribute("data-main").value()) + " " +
                     element.attribute("data-path").value() + " " + element.attribute("data-marker").value());
    }
    return found;
}

// Returns the path data of the only element that a picture adds to the drawing, or "several".
inline std::string onlyPathDataIn(const std::string& picture) {
    pugi::xml_document document;
    document.load_string(picture.c_str());
    const pugi::xml_node group = document.document_element().find_child_by_attribute("g", "id", "highlight");
    const pugi::xml_node element = group.first_child();
    return element.next_sibling() ? "several" : element.attribute("d").value();
}

} // namespace kvtest
