// Containers for the platform's own books; see BookAllocator.
#pragma once

#include "platform/inmemory/InMemoryOsBase.h"

#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>

namespace kvinmemory {

template <class Key, class Value, class Hash = std::hash<Key>>
using BookMap =
    std::unordered_map<Key, Value, Hash, std::equal_to<Key>, BookAllocator<std::pair<const Key, Value>>>;

using BookString = std::basic_string<char, std::char_traits<char>, BookAllocator<char>>;

} // namespace kvinmemory
