#include "aids/Inspect.h"

#include "selectcontext/IteratorTrace.h"

#ifdef KV_TRACE_ITERATORS

#include <cstdlib>
#include <cxxabi.h>
#include <dlfcn.h>
#include <memory>
#include <sstream>

namespace kv {

namespace {

std::string demangled(const char* name) {
    const std::unique_ptr<char, void (*)(void*)> text(abi::__cxa_demangle(name, nullptr, nullptr, nullptr),
                                                      &std::free);
    return text ? text.get() : name;
}

// Returns the function's name. Functions that are not exported have none.
std::string placeOf(const void* address) {
    Dl_info found{};
    if (::dladdr(address, &found) == 0)
        return "unknown";
    if (found.dli_sname)
        return demangled(found.dli_sname);
    std::ostringstream place;
    place << found.dli_fname << "+0x" << std::hex
          << static_cast<const char*>(address) - static_cast<const char*>(found.dli_fbase);
    return place.str();
}

} // namespace

std::vector<std::string> whereDisabled(const GxapSelectSet::ConstIterator& it) {
    void* callers[kvtrace::kMostCallers];
    const std::size_t count = kvtrace::callersOfDisabling(&it, callers);
    std::vector<std::string> places;
    places.reserve(count);
    for (std::size_t i = 0; i < count; ++i)
        places.push_back(placeOf(callers[i]));
    return places;
}

} // namespace kv

#else

namespace kv {

std::vector<std::string> whereDisabled(const GxapSelectSet::ConstIterator& /*it*/) {
    return {};
}

} // namespace kv

#endif
