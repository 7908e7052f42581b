// The operations of a random test as data. So they can be generated, printed, removed and repeated.
#pragma once

#include <array>
#include <cstdint>
#include <ostream>
#include <vector>

namespace kvmodel {

// Name, roles of the arguments, weight in small sets, weight in large sets. The roles:
//   s set               S set or null          c any cursor      k const cursor    w writable cursor
//   i main id           u sub id               m marker          n nested path     f entity info
//   p item position     q path position        x sub-entity path X the same or null
//   b flag              v small number         z large number
#define KV_MODEL_OPERATIONS(OPERATION)                                                                       \
    OPERATION(construct, "svs", 2, 1)                                                                        \
    OPERATION(assign, "ss", 6, 4)                                                                            \
    OPERATION(copyFrom, "ss", 3, 1)                                                                          \
    OPERATION(createData, "s", 1, 0)                                                                         \
    OPERATION(releaseData, "s", 1, 0)                                                                        \
    OPERATION(assignData, "sS", 1, 0)                                                                        \
    OPERATION(assignClone, "ss", 1, 1)                                                                       \
    OPERATION(countForLisp, "sv", 1, 1)                                                                      \
    OPERATION(clear, "s", 2, 1)                                                                              \
    OPERATION(clearData, "s", 1, 1)                                                                          \
    OPERATION(writeData, "s", 2, 2)                                                                          \
    OPERATION(updateDataMap, "s", 3, 2)                                                                      \
    OPERATION(setNestedMode, "sb", 2, 1)                                                                     \
    OPERATION(setUnique, "sb", 4, 1)                                                                         \
    OPERATION(select, "siumfn", 24, 20)                                                                      \
    OPERATION(selectKeysOf, "sspf", 4, 2)                                                                    \
    OPERATION(append, "siu", 5, 5)                                                                           \
    OPERATION(appendRecord, "ssp", 6, 3)                                                                     \
    OPERATION(removeMain, "si", 3, 3)                                                                        \
    OPERATION(removeSub, "siu", 3, 2)                                                                        \
    OPERATION(removeMarker, "sium", 5, 3)                                                                    \
    OPERATION(removeKeysOf, "sspv", 6, 4)                                                                    \
    OPERATION(removeAtIndex, "sp", 6, 6)                                                                     \
    OPERATION(removeAtCursor, "swb", 10, 10)                                                                 \
    OPERATION(merge, "sSS", 4, 1)                                                                            \
    OPERATION(minus, "sSS", 4, 1)                                                                            \
    OPERATION(transfer, "ssSvb", 4, 1)                                                                       \
    OPERATION(makeCursor, "ksviumnpb", 14, 10)                                                               \
    OPERATION(makeWritableCursor, "wsviumpb", 14, 10)                                                        \
    OPERATION(copyCursor, "cc", 3, 2)                                                                        \
    OPERATION(assignCursor, "cc", 5, 3)                                                                      \
    OPERATION(step, "c", 14, 14)                                                                             \
    OPERATION(previous, "cc", 10, 8)                                                                         \
    OPERATION(disable, "c", 1, 1)                                                                            \
    OPERATION(destroyCursor, "c", 1, 1)                                                                      \
    OPERATION(readCursor, "c", 10, 8)                                                                        \
    OPERATION(compareCursors, "cc", 4, 3)                                                                    \
    OPERATION(setNestedPath, "wn", 3, 1)                                                                     \
    OPERATION(setSegment, "wXbs", 8, 1)                                                                      \
    OPERATION(writeViewports, "cv", 3, 1)                                                                    \
    OPERATION(lookUp, "siumnf", 8, 6)                                                                        \
    OPERATION(lookUpKeysOf, "sspfb", 4, 14)                                                                  \
    OPERATION(readPositions, "sp", 4, 8)                                                                     \
    OPERATION(compareSets, "sS", 5, 2)                                                                       \
    OPERATION(draw, "sbb", 1, 0)                                                                             \
    OPERATION(drawCursor, "scbb", 2, 0)                                                                      \
    OPERATION(makeSubselection, "spxv", 5, 1)                                                                \
    OPERATION(toggleSubselection, "sp", 2, 0)                                                                \
    OPERATION(appendSubselection, "sx", 5, 1)                                                                \
    OPERATION(removeSubselection, "sx", 5, 1)                                                                \
    OPERATION(removeSubselectionAt, "spq", 5, 1)                                                             \
    OPERATION(findSubselection, "six", 4, 1)                                                                 \
    OPERATION(readSubselection, "spq", 4, 1)                                                                 \
    OPERATION(editRecord, "spiumb", 3, 1)                                                                    \
    OPERATION(replaceRecord, "spiumb", 2, 1)                                                                 \
    OPERATION(fill, "sz", 0, 6)                                                                              \
    OPERATION(removeRun, "spz", 0, 3)                                                                        \
    OPERATION(removeThroughCursor, "swpz", 0, 3)

enum class Kind {
#define KV_MODEL_ENUMERATOR(name, roles, small, large) name,
    KV_MODEL_OPERATIONS(KV_MODEL_ENUMERATOR)
#undef KV_MODEL_ENUMERATOR
};

struct Operation {
    Kind kind;
    std::array<int, 9> arguments;
    int operator[](std::size_t i) const { return arguments[i]; }
};

std::ostream& operator<<(std::ostream& out, const Operation& operation);

// Converts a code to a position. Positions are drawn without knowing the set. A code of 0 or more is taken
// modulo the number of items. The other codes stand for the ends of the set.
enum PositionCode : int { kMinusOne = -1, kCount = -2, kBeyondCount = -3, kLast = -4, kFirst = -5 };
int positionOf(int code, int count);

// The limits and weights of a campaign.
struct Profile {
    const char* name;
    bool isLarge;      // selects the weights; only small sets are compared in full after every step
    bool hasEqualIds;  // some ids are distinct but equal
    int idCount;       // ids 1 to idCount belong to entities; the next id is invalid
    int itemLimit;     // sets with more items are cleared
    int episodeLength; // number of operations on new sets
};

std::vector<Operation> drawOperations(const Profile& profile, std::uint64_t seed, int count);

} // namespace kvmodel
