#include "examples/assembly/StepFile.h"

#include <Message.hxx>
#include <Message_Messenger.hxx>
#include <Message_ProgressIndicator.hxx>
#include <Message_ProgressScope.hxx>
#include <STEPCAFControl_Reader.hxx>
#include <STEPCAFControl_Writer.hxx>
#include <Standard_Failure.hxx>
#include <TDF_LabelSequence.hxx>
#include <XCAFApp_Application.hxx>
#include <XCAFDoc_DocumentTool.hxx>
#include <XCAFDoc_ShapeTool.hxx>
#include <array>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace assembly {

namespace {

// The kernel prints what it finds odd in a file. This program says one line.
void silenceKernel() {
    Message::DefaultMessenger()->ChangePrinters().Clear();
}

class Indicator : public Message_ProgressIndicator {
public:
    explicit Indicator(const Progress& progress) : mProgress(progress) {}

protected:
    void Show(const Message_ProgressScope&, Standard_Boolean) override {
        const int percent = static_cast<int>(GetPosition() * 100);
        if (percent < mNext)
            return;
        mNext = percent + kStep;
        mProgress("building shapes", percent);
    }

private:
    static constexpr int kStep = 10;

    const Progress& mProgress;
    int mNext = 0;
};

// ---- Checks before the kernel sees a file

[[noreturn]] void refuse(const std::string& file, const std::string& why) {
    throw StepError(file + ": " + why);
}

std::string headOf(std::ifstream& in) {
    std::string head(200, '\0');
    in.read(head.data(), static_cast<std::streamsize>(head.size()));
    head.resize(static_cast<std::size_t>(in.gcount()));
    in.clear();
    return head;
}

std::string tailOf(std::ifstream& in, std::uintmax_t size) {
    std::string tail(static_cast<std::size_t>(std::min<std::uintmax_t>(size, 200)), '\0');
    in.seekg(-static_cast<std::streamoff>(tail.size()), std::ios::end);
    in.read(tail.data(), static_cast<std::streamsize>(tail.size()));
    return tail;
}

void checkFile(const std::string& file, std::uintmax_t largest) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error))
        refuse(file, "there is no such file");
    const std::uintmax_t size = std::filesystem::file_size(file, error);
    if (error)
        refuse(file, error.message());
    if (size == 0)
        refuse(file, "the file is empty");
    if (size > largest)
        refuse(file, "the file has " + std::to_string(size) + " bytes, more than " + std::to_string(largest));
    std::ifstream in(file, std::ios::binary);
    if (!in)
        refuse(file, "the file cannot be read");
    if (headOf(in).find("ISO-10303-21;") == std::string::npos)
        refuse(file, "this is no STEP file");
    if (tailOf(in, size).find("END-ISO-10303-21;") == std::string::npos)
        refuse(file, "the file breaks off before its end");
}

void readInto(Handle(TDocStd_Document) & document, const std::string& file, const Progress& progress) {
    STEPCAFControl_Reader reader;
    reader.SetNameMode(true);
    reader.SetColorMode(true);
    progress("reading " + file, 0);
    if (reader.ReadFile(file.c_str()) != IFSelect_RetDone)
        refuse(file, "the file is broken");
    const Handle(Indicator) indicator = new Indicator(progress);
    if (!reader.Transfer(document, indicator->Start()))
        refuse(file, "no shape can be made of it");
    TDF_LabelSequence roots;
    XCAFDoc_DocumentTool::ShapeTool(document->Main())->GetFreeShapes(roots);
    if (roots.IsEmpty())
        refuse(file, "the file has no shapes");
}

} // namespace

Handle(TDocStd_Document) newDocument() {
    Handle(TDocStd_Document) document;
    XCAFApp_Application::GetApplication()->NewDocument("BinXCAF", document);
    return document;
}

void closeDocument(const Handle(TDocStd_Document) & document) {
    XCAFApp_Application::GetApplication()->Close(document);
}

Handle(TDocStd_Document) loadStep(const std::string& file, const Progress& progress, std::uintmax_t largest) {
    checkFile(file, largest);
    silenceKernel();
    Handle(TDocStd_Document) document = newDocument();
    try {
        readInto(document, file, progress);
    } catch (const Standard_Failure& failure) {
        closeDocument(document);
        refuse(file, std::string("the kernel gives up: ") + failure.GetMessageString());
    } catch (...) {
        closeDocument(document);
        throw;
    }
    return document;
}

void saveStep(const Handle(TDocStd_Document) & document, const std::string& file) {
    silenceKernel();
    STEPCAFControl_Writer writer;
    writer.SetNameMode(true);
    writer.SetColorMode(true);
    if (!writer.Transfer(document) || writer.Write(file.c_str()) != IFSelect_RetDone)
        refuse(file, "the file cannot be written");
}

} // namespace assembly
