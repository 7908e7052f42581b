// Mistakes with memory that tests make on purpose, made where compilers do not see them coming.
#pragma once

#include "platform/KvOsBase.h"

#include <new>

namespace kvtest {

// Gives any memory to operator delete.
inline void deleteByMistake(void* memory) {
    void (*volatile giveBack)(void*) = static_cast<void (*)(void*)>(&::operator delete);
    giveBack(memory);
}

// Gives any memory to _kvFree.
inline void freeByMistake(void* memory) {
    void (*volatile giveBack)(void*) = &_kvFree;
    giveBack(memory);
}

} // namespace kvtest
