// Checks of exceptions that are thrown as pointers.
#pragma once

#include "platform/KvOsBase.h"

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <typeinfo>

namespace kvtest {

// Runs `f` and returns the exception that it throws. `f` must throw a pointer to an object of exactly type E.
// Otherwise the test fails, and null is returned.
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

// Expect that `f` throws a KvErrorStatus with this status, or a KvExceptionWithMsg with this message. The
// exception must have the file name L"\"\"" and line 0. If the in-memory platform's crash recorder is
// installed, it must have logged the exception once. A failure names the file and line of the call.
void expectStatus(const std::function<void()>& f, int status, const char* file = __builtin_FILE(),
                  int line = __builtin_LINE());
void expectMessage(const std::function<void()>& f, const wchar_t* message,
                   const char* file = __builtin_FILE(), int line = __builtin_LINE());

} // namespace kvtest
