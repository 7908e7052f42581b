// Errors: turns the library's exceptions, which are pointers, into sentences and into std::exception.
#pragma once

#include "aids/AidsExport.h"
#include "platform/KvOsBase.h"

#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace kv {

// Returns a sentence for a developer that says what the exception is, with the place if it has one. Returns
// "No error." for null. Characters of a message that are not ASCII are written as UTF-8. The caller keeps the
// exception. Throws std::bad_alloc.
KV_AIDS_API std::string sentenceOf(const KvException* exception);

// What rethrowing() throws instead of a KvException. what() is the sentence.
class KV_AIDS_API Error : public std::runtime_error {
public:
    // Throws std::bad_alloc.
    explicit Error(const KvException& cause);
    Error(const Error&) = default;
    Error& operator=(const Error&) = default;
    ~Error() override;

    // The status of a KvErrorStatus. Nothing for other exceptions.
    std::optional<int> status() const noexcept { return mStatus; }

private:
    std::optional<int> mStatus;
};

// Throws std::bad_alloc for a KvErrorStatus 6, which says that there is no memory. Throws an Error for any
// other exception. Deletes the exception first.
[[noreturn]] KV_AIDS_API void throwAsStandard(std::unique_ptr<KvException> exception);

// Calls f() and returns its result. If f() throws a KvException, throws a std::exception instead, by
// throwAsStandard(). Other exceptions pass through. Costs nothing without an exception.
template <class Function>
decltype(auto) rethrowing(Function&& f) {
    try {
        return std::forward<Function>(f)();
    } catch (KvException* exception) {
        throwAsStandard(std::unique_ptr<KvException>(exception));
    }
}

} // namespace kv
