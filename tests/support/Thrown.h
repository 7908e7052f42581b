// Catches what is thrown as a pointer, and looks at it.
#pragma once

#include "platform/KvOsBase.h"

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <typeinfo>

namespace kvtest {

// Runs f, which is to throw a pointer to an object of just the type E, and answers that object; null and a
// failure of the test if it throws nothing or anything else.
template <class E, class F>
std::unique_ptr<E> thrown(F f) {
    try {
        f();
    } catch (KvException* exception) {
        std::unique_ptr<KvException> owner(exception);
        if (typeid(*exception) == typeid(E))
            return std::unique_ptr<E>(static_cast<E*>(owner.release()));
        ADD_FAILURE() << "an exception of another class was thrown: " << typeid(*exception).name();
        return nullptr;
    } catch (...) {
        ADD_FAILURE() << "something else than a pointer to a KvException was thrown";
        return nullptr;
    }
    ADD_FAILURE() << "nothing was thrown";
    return nullptr;
}

// f throws a KvErrorStatus of this status, or a KvExceptionWithMsg of this message, raised the one way: file
// argument L"\"\"", line 0, and shown to the in-memory platform's recording crash recorder, if that is
// installed, once. A failure names the place of the call.
void expectStatus(const std::function<void()>& f, int status, const char* file = __builtin_FILE(),
                  int line = __builtin_LINE());
void expectMessage(const std::function<void()>& f, const wchar_t* message,
                   const char* file = __builtin_FILE(), int line = __builtin_LINE());

} // namespace kvtest
