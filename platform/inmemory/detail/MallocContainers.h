// Containers and single blocks in memory from malloc. MallocAllocator explains why they use malloc.
#pragma once

#include "platform/inmemory/InMemoryOsBase.h"

#include <cstddef>
#include <functional>
#include <string>
#include <unordered_map>
#include <utility>

namespace kvinmemory::detail {

template <class Key, class Value, class Hash = std::hash<Key>>
using MallocMap =
    std::unordered_map<Key, Value, Hash, std::equal_to<Key>, MallocAllocator<std::pair<const Key, Value>>>;

using MallocString = std::basic_string<char, std::char_traits<char>, MallocAllocator<char>>;

// Allocate and free the memory of an object. A class calls them in its operators new and delete.
// allocateObject() throws std::bad_alloc if there is no memory.
inline void* allocateObject(std::size_t bytes) {
    return MallocAllocator<char>().allocate(bytes);
}

inline void deallocateObject(void* memory) noexcept {
    MallocAllocator<char>().deallocate(static_cast<char*>(memory), 0);
}

} // namespace kvinmemory::detail
