// A library of its own, since a program and the libraries that it loads have to be the same mutant.
#include "tests/mutants/Mutant.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace kvmutant {

unsigned char kvMutantStates[kMostMutants];

namespace {

// The bytes of a file. A child of the program writes into the same file, and a crash loses nothing.
unsigned char* gReached = nullptr;

unsigned char* openRecord(const char* path) noexcept {
    const int file = ::open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (file < 0 || ::ftruncate(file, kMostMutants) != 0)
        std::abort();
    void* const bytes = ::mmap(nullptr, kMostMutants, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (bytes == MAP_FAILED)
        std::abort();
    ::close(file);
    return static_cast<unsigned char*>(bytes);
}

[[gnu::constructor]] void chooseMutant() noexcept {
    if (const char* const mutant = std::getenv("KV_MUTANT"))
        kvMutantStates[std::strtoul(mutant, nullptr, 10) % kMostMutants] = 1;
    if (const char* const path = std::getenv("KV_MUTANT_RECORD")) {
        gReached = openRecord(path);
        std::memset(kvMutantStates, 2, sizeof kvMutantStates);
    }
}

} // namespace

bool kvReachMutant(unsigned mutant) noexcept {
    if (kvMutantStates[mutant] == 1)
        return true;
    gReached[mutant] = 1;
    kvMutantStates[mutant] = 0;
    return false;
}

} // namespace kvmutant
