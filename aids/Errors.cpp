#include "aids/Errors.h"

#include <cwchar>

namespace kv {
namespace {

constexpr int kOutOfMemory = 6;
constexpr int kInvalidIndex = 24;

void appendUtf8(std::string& text, char32_t character) {
    const auto append = [&text](char32_t byte) {
        text += static_cast<char>(static_cast<unsigned char>(byte));
    };
    if (character < 0x80) {
        append(character);
    } else if (character < 0x800) {
        append(0xC0 | (character >> 6));
        append(0x80 | (character & 0x3F));
    } else if (character < 0x10000) {
        append(0xE0 | (character >> 12));
        append(0x80 | ((character >> 6) & 0x3F));
        append(0x80 | (character & 0x3F));
    } else {
        append(0xF0 | ((character >> 18) & 0x07));
        append(0x80 | ((character >> 12) & 0x3F));
        append(0x80 | ((character >> 6) & 0x3F));
        append(0x80 | (character & 0x3F));
    }
}

std::string utf8Of(const wchar_t* wide) {
    std::string text;
    for (; wide && *wide; ++wide)
        appendUtf8(text, static_cast<char32_t>(*wide));
    return text;
}

// The library itself gives an empty pair of quotes as file.
std::string placeOf(const wchar_t* file, int line) {
    if (!file || *file == L'\0' || std::wcscmp(file, L"\"\"") == 0)
        return ".";
    return " (" + utf8Of(file) + ":" + std::to_string(line) + ").";
}

std::string meaningOf(int status) {
    switch (status) {
    case kOutOfMemory:
        return "there is no memory";
    case kInvalidIndex:
        return "an index is out of range";
    default:
        return "its meaning is the application's";
    }
}

} // namespace

std::string sentenceOf(const KvException* exception) {
    if (!exception)
        return "No error.";
    if (const auto* const status = dynamic_cast<const KvErrorStatus*>(exception))
        return "Error status " + std::to_string(status->status()) + ": " + meaningOf(status->status()) +
               placeOf(status->file(), status->line());
    if (const auto* const message = dynamic_cast<const KvExceptionWithMsg*>(exception))
        return utf8Of(message->message()) + placeOf(message->file(), message->line());
    return "An exception of the application.";
}

Error::Error(const KvException& cause) : std::runtime_error(sentenceOf(&cause)) {
    if (const auto* const status = dynamic_cast<const KvErrorStatus*>(&cause))
        mStatus = status->status();
}

Error::~Error() = default;

void throwAsStandard(std::unique_ptr<KvException> exception) {
    const auto* const status = dynamic_cast<const KvErrorStatus*>(exception.get());
    if (status && status->status() == kOutOfMemory)
        throw std::bad_alloc();
    throw Error(*exception);
}

} // namespace kv
