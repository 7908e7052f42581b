// Deliberate wrong frees. A volatile function pointer hides each call from the compiler's warnings.
#pragma once

#include "platform/KvOsBase.h"

#include <new>

namespace kvtest {

inline void deleteByMistake(void* memory) {
    void (*volatile giveBack)(void*) = static_cast<void (*)(void*)>(&::operator delete);
    giveBack(memory);
}

inline void freeByMistake(void* memory) {
    void (*volatile giveBack)(void*) = &_kvFree;
    giveBack(memory);
}

} // namespace kvtest
