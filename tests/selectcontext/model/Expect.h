// Compares values of the library with values of the model.
#pragma once

#include <sstream>
#include <string>

namespace kvmodel {

// Thrown if library and model differ.
struct Mismatch {
    std::string what;
};

inline void expect(bool holds, const char* what) {
    if (!holds)
        throw Mismatch{what};
}

template <class Value>
void expectEqual(Value actual, Value model, const char* what) {
    if (actual == model)
        return;
    std::ostringstream text;
    text << what << ": the library has " << actual << ", the model " << model;
    throw Mismatch{text.str()};
}

inline void expectSame(long actual, long model, const char* what) {
    expectEqual(actual, model, what);
}

inline void expectSame(const void* actual, const void* model, const char* what) {
    expectEqual(actual, model, what);
}

// The first call stores `actual`, an address of the library, in `known`. Later calls expect that `actual` is
// the stored address.
template <class T>
void bind(T actual, T& known, const char* what) {
    expect(actual != nullptr, what);
    if (!known)
        known = actual;
    expectSame(static_cast<const void*>(actual), static_cast<const void*>(known), what);
}

} // namespace kvmodel
