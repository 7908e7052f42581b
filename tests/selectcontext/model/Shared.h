// Shared: an object that a process shares with its children.
#pragma once

#include <new>
#include <sys/mman.h>
#include <type_traits>

namespace kvmodel {

// An object in memory that a child process shares with its parent, so that what the child writes survives
// the child.
template <class T>
class Shared {
public:
    static_assert(std::is_trivially_destructible_v<T>);

    // Throws std::bad_alloc if there is no memory.
    Shared() {
        void* const memory =
            mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED)
            throw std::bad_alloc();
        mObject = new (memory) T();
    }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;
    ~Shared() { munmap(mObject, sizeof(T)); }

    T& operator*() const { return *mObject; }
    T* operator->() const { return mObject; }

private:
    T* mObject;
};

} // namespace kvmodel
