// isSame: equality that asks the application as seldom as it can.
#pragma once

#include <type_traits>

class GxDbObjectId;

namespace kvdetail {

// a == b. Ids with the same stub name the same object, which spares a call into the application. Only the
// application can say that ids with different stubs name different objects.
template <class T>
bool isSame(const T& a, const T& b) {
    if constexpr (std::is_same_v<T, GxDbObjectId>)
        return a.stub() == b.stub() || a == b;
    else
        return a == b;
}

} // namespace kvdetail
