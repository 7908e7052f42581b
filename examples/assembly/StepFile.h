// Reads and writes STEP files with their assembly structure, names and colours.
#pragma once

#include <Standard_Handle.hxx>
#include <TDocStd_Document.hxx>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>

namespace assembly {

// The text is one line, for the user.
class StepError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Larger files are refused: reading takes many times their size in memory.
constexpr std::uintmax_t kLargestFile = std::uintmax_t{1} << 30;

// Is called with what is being done, and how much of it is done, in percent.
using Progress = std::function<void(const std::string& step, int percent)>;

// A new document without shapes. The caller closes it.
Handle(TDocStd_Document) newDocument();
void closeDocument(const Handle(TDocStd_Document) & document);

// Reads a file into a new document, which the caller closes. Throws StepError for a file that cannot be read,
// is empty, too large or broken, or has no shapes.
Handle(TDocStd_Document)
    loadStep(const std::string& file, const Progress& progress, std::uintmax_t largest = kLargestFile);

// Writes the document. Throws StepError if that fails.
void saveStep(const Handle(TDocStd_Document) & document, const std::string& file);

} // namespace assembly
