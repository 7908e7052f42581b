// GxDbElasticData: a block of 8-byte fields that holds only those that are present.
#pragma once

#include "base/KvRaise.h"
#include "platform/KvOsBase.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <new>

// The head of a block; the payload of `capacity` bytes follows at byte 4, so fields in it are misaligned and
// are moved with memcpy. The functions take the pointer that holds the block and may replace it.
struct GxDbElasticData {
    std::uint16_t capacity; // payload bytes allocated
    std::uint16_t size;     // payload bytes in use
};
static_assert(sizeof(GxDbElasticData) == 4, "the payload begins at byte 4");

namespace kvdetail {

constexpr unsigned kElasticFieldBytes = 8;

inline unsigned char* elasticPayload(GxDbElasticData* block) noexcept {
    return reinterpret_cast<unsigned char*>(block + 1);
}

// An empty block for `capacity` bytes. KvErrorStatus 6 when there is no memory.
inline GxDbElasticData* makeElasticBlock(unsigned capacity) {
    void* const memory = capacity > std::numeric_limits<std::uint16_t>::max()
                             ? nullptr
                             : _kvMalloc(sizeof(GxDbElasticData) + capacity);
    if (!memory)
        raiseStatus(kStatusOutOfMemory);
    return new (memory) GxDbElasticData{static_cast<std::uint16_t>(capacity), 0};
}

// Inserts a field at `offset` and moves the fields from there on up. False, and nothing changed, for an
// offset beyond the size. KvErrorStatus 6, and nothing changed, when the block cannot grow.
template <class T>
bool elasticInsert(GxDbElasticData*& block, unsigned offset, T* value) {
    static_assert(sizeof(value) == kElasticFieldBytes, "fields are pointers of 8 bytes");
    const unsigned size = block ? block->size : 0;
    if (offset > size)
        return false;
    if (!block || block->capacity - size < kElasticFieldBytes) {
        GxDbElasticData* const grown = makeElasticBlock(size + kElasticFieldBytes);
        if (block)
            std::memcpy(elasticPayload(grown), elasticPayload(block), size);
        _kvFree(block);
        block = grown;
    }
    unsigned char* const at = elasticPayload(block) + offset;
    std::memmove(at + kElasticFieldBytes, at, size - offset);
    std::memcpy(at, &value, kElasticFieldBytes);
    block->size = static_cast<std::uint16_t>(size + kElasticFieldBytes);
    return true;
}

inline bool elasticHolds(const GxDbElasticData* block, unsigned offset) noexcept {
    return block && offset + kElasticFieldBytes <= block->size;
}

// Overwrites the field at `offset`. False, and nothing changed, when the block does not hold one there.
template <class T>
bool elasticSetAtOffset(GxDbElasticData* block, unsigned offset, T* value) noexcept {
    static_assert(sizeof(value) == kElasticFieldBytes, "fields are pointers of 8 bytes");
    if (!elasticHolds(block, offset))
        return false;
    std::memcpy(elasticPayload(block) + offset, &value, kElasticFieldBytes);
    return true;
}

// Takes the field at `offset` out and moves the later ones down. With `compact` the block shrinks to what is
// left, unless nothing is: an empty block is kept. False, and nothing changed, when the block does not hold a
// field there. KvErrorStatus 6, and nothing changed, when there is no memory for the smaller block.
inline bool elasticErase(GxDbElasticData*& block, unsigned offset, bool compact) {
    if (!elasticHolds(block, offset))
        return false;
    const unsigned newSize = block->size - kElasticFieldBytes;
    const unsigned behind = newSize - offset;
    GxDbElasticData* const target =
        compact && newSize != 0 && newSize != block->capacity ? makeElasticBlock(newSize) : block;
    std::memmove(elasticPayload(target), elasticPayload(block), offset);
    std::memmove(elasticPayload(target) + offset, elasticPayload(block) + offset + kElasticFieldBytes,
                 behind);
    target->size = static_cast<std::uint16_t>(newSize);
    if (target != block)
        _kvFree(block);
    block = target;
    return true;
}

} // namespace kvdetail
