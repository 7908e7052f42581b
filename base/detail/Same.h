// isSame: compares values with as few calls into the application as possible.
#pragma once

#include <type_traits>

class GxDbObjectId;

namespace kvdetail {

// Returns a == b. Ids with the same stub name the same object, so comparing them needs no call into the
// application. Ids with different stubs may also name the same object, which only the application knows.
template <class T>
bool isSame(const T& a, const T& b) {
    if constexpr (std::is_same_v<T, GxDbObjectId>)
        return a.stub() == b.stub() || a == b;
    else
        return a == b;
}

} // namespace kvdetail
