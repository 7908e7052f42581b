// isSame: compares values with as few calls of the application as possible.
#pragma once

#include <type_traits>

class GxDbObjectId;

namespace kvdetail {

// Returns a == b. Ids with the same stub name the same object, so they are compared without a call of the
// application. Only the application knows whether ids with different stubs name different objects.
template <class T>
bool isSame(const T& a, const T& b) {
    if constexpr (std::is_same_v<T, GxDbObjectId>)
        return a.stub() == b.stub() || a == b;
    else
        return a == b;
}

} // namespace kvdetail
