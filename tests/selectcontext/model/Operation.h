// The operations of a random test, as values that can be generated, printed, left out and repeated.
#pragma once

#include <array>
#include <cstdint>
#include <ostream>
#include <vector>

namespace kvmodel {

// Each line has the name of an operation, a letter for the role of each argument, and four weights: for
// Shape::kSmall, kMiddle, kLarge and kRuns. The letters:
//   s set               S set or null          c any cursor      k const cursor    w writable cursor
//   i main id           j main id to look up   u sub id          m marker          n nested path
//   e spare id          g id to equate with    f entity info     p item position   q path position
//   x sub-entity path   X the same or null     b flag            y rarely set flag h run length
//   v small number      z large number      t kind of failure a n-th call        l calls to let pass
#define KV_MODEL_OPERATIONS(OPERATION)                                                                       \
    OPERATION(construct, "svs", 2, 2, 1, 1)                                                                  \
    OPERATION(assign, "ss", 6, 6, 4, 5)                                                                      \
    OPERATION(copyFrom, "ss", 3, 3, 1, 2)                                                                    \
    OPERATION(createData, "s", 1, 1, 0, 0)                                                                   \
    OPERATION(releaseData, "s", 1, 1, 0, 0)                                                                  \
    OPERATION(assignData, "sS", 1, 1, 0, 1)                                                                  \
    OPERATION(assignClone, "ss", 1, 1, 1, 2)                                                                 \
    OPERATION(countForLisp, "sv", 1, 1, 1, 0)                                                                \
    OPERATION(clear, "s", 2, 1, 1, 1)                                                                        \
    OPERATION(clearData, "s", 1, 0, 1, 1)                                                                    \
    OPERATION(writeData, "s", 2, 2, 2, 3)                                                                    \
    OPERATION(updateDataMap, "s", 3, 3, 2, 1)                                                                \
    OPERATION(setNestedMode, "sb", 2, 2, 1, 0)                                                               \
    OPERATION(setUnique, "sy", 4, 2, 1, 3)                                                                   \
    OPERATION(select, "siumfn", 24, 30, 20, 24)                                                              \
    OPERATION(selectKeysOf, "sspf", 4, 4, 2, 8)                                                              \
    OPERATION(append, "siu", 5, 8, 5, 3)                                                                     \
    OPERATION(appendRecord, "ssp", 6, 6, 3, 6)                                                               \
    OPERATION(removeMain, "sj", 3, 3, 3, 1)                                                                  \
    OPERATION(removeSub, "sju", 3, 3, 2, 1)                                                                  \
    OPERATION(removeMarker, "sjum", 5, 5, 3, 10)                                                             \
    OPERATION(removeKeysOf, "sspv", 6, 6, 4, 14)                                                             \
    OPERATION(removeAtIndex, "sp", 6, 6, 6, 12)                                                              \
    OPERATION(removeAtCursor, "swb", 10, 10, 10, 8)                                                          \
    OPERATION(merge, "sSS", 4, 6, 1, 3)                                                                      \
    OPERATION(minus, "sSS", 4, 6, 1, 3)                                                                      \
    OPERATION(transfer, "ssSvb", 4, 4, 1, 2)                                                                 \
    OPERATION(makeCursor, "ksvjumnpb", 14, 14, 10, 6)                                                        \
    OPERATION(makeWritableCursor, "wsvjumpb", 14, 14, 10, 6)                                                 \
    OPERATION(copyCursor, "cc", 3, 3, 2, 1)                                                                  \
    OPERATION(assignCursor, "cc", 5, 5, 3, 1)                                                                \
    OPERATION(step, "c", 14, 14, 14, 4)                                                                      \
    OPERATION(previous, "cc", 10, 10, 8, 2)                                                                  \
    OPERATION(disable, "c", 1, 1, 1, 0)                                                                      \
    OPERATION(destroyCursor, "c", 1, 1, 1, 1)                                                                \
    OPERATION(readCursor, "c", 10, 10, 8, 2)                                                                 \
    OPERATION(compareCursors, "cc", 4, 4, 3, 0)                                                              \
    OPERATION(setNestedPath, "wn", 3, 3, 1, 1)                                                               \
    OPERATION(setSegment, "wXbs", 8, 8, 1, 0)                                                                \
    OPERATION(writeViewports, "cv", 3, 3, 1, 0)                                                              \
    OPERATION(lookUp, "sjumnf", 8, 12, 6, 24)                                                                \
    OPERATION(lookUpKeysOf, "sspfb", 4, 8, 14, 20)                                                           \
    OPERATION(readPositions, "sp", 4, 4, 8, 1)                                                               \
    OPERATION(compareSets, "sS", 5, 5, 2, 4)                                                                 \
    OPERATION(draw, "sbb", 1, 1, 0, 0)                                                                       \
    OPERATION(drawCursor, "scbb", 2, 2, 0, 0)                                                                \
    OPERATION(makeSubselection, "spxv", 5, 5, 1, 0)                                                          \
    OPERATION(toggleSubselection, "sp", 2, 2, 0, 0)                                                          \
    OPERATION(appendSubselection, "sx", 5, 5, 1, 1)                                                          \
    OPERATION(removeSubselection, "sx", 5, 5, 1, 0)                                                          \
    OPERATION(removeSubselectionAt, "spq", 5, 5, 1, 0)                                                       \
    OPERATION(findSubselection, "six", 4, 4, 1, 0)                                                           \
    OPERATION(readSubselection, "spq", 4, 4, 1, 0)                                                           \
    OPERATION(editRecord, "spiumb", 3, 3, 1, 1)                                                              \
    OPERATION(replaceRecord, "spiumb", 2, 2, 1, 1)                                                           \
    OPERATION(fill, "sz", 0, 6, 6, 0)                                                                        \
    OPERATION(removeRun, "spz", 0, 3, 3, 4)                                                                  \
    OPERATION(removeThroughCursor, "swpz", 0, 2, 3, 3)                                                       \
    OPERATION(fillRun, "siuhv", 0, 0, 0, 14)                                                                 \
    OPERATION(uniteIds, "eg", 0, 0, 0, 8)                                                                    \
    OPERATION(editIndex, "spb", 2, 2, 1, 3)                                                                  \
    OPERATION(lookUpWithoutMemory, "sjumnv", 0, 0, 0, 9)                                                     \
    OPERATION(selectWithoutMemory, "siumfnv", 0, 0, 0, 12)                                                   \
    OPERATION(failNext, "tal", 12, 12, 8, 8)                                                                 \
    OPERATION(throwNext, "a", 2, 2, 1, 1)

enum class Kind {
#define KV_MODEL_ENUMERATOR(name, roles, small, middle, large, runs) name,
    KV_MODEL_OPERATIONS(KV_MODEL_ENUMERATOR)
#undef KV_MODEL_ENUMERATOR
};

struct Operation {
    Kind kind;
    std::array<int, 9> arguments;
    int operator[](std::size_t i) const { return arguments[i]; }
};
using Operations = std::vector<Operation>;

std::ostream& operator<<(std::ostream& out, const Operation& operation);

// The number of kinds of failure that failNext can have.
constexpr int kFailureCount = 5;

// Operations are drawn without knowing the set. So they have codes for positions. positionOf() converts a
// code to a position in a set of `count` items. A code of 0 or more is taken modulo `count`. A negative code
// stands for a position at or beyond an end of the set.
enum PositionCode : int { kMinusOne = -1, kCount = -2, kBeyondCount = -3, kLast = -4, kFirst = -5 };
int positionOf(int code, int count);

enum class Shape {
    kSmall,  // few items with few ids
    kMiddle, // up to a few hundred items on one page
    kLarge,  // several pages
    kRuns    // hundreds of items of one main id; updateDataMap() follows each change of a record by hand
};

// The limits and weights of a campaign.
struct Profile {
    const char* name;
    Shape shape;
    bool hasEqualIds;  // some ids have different stubs, but are equal
    int idCount;       // ids 1 to idCount belong to entities; the next id is invalid
    int itemLimit;     // sets with more items are cleared
    int episodeLength; // number of operations on new sets
    int fullEvery;     // number of operations between two full comparisons
};

// Where the operations and their arguments come from.
class Choices {
public:
    Choices() = default;
    Choices(const Choices&) = delete;
    Choices& operator=(const Choices&) = delete;
    virtual ~Choices() = default;

    // Returns a number from 0 to `bound` - 1.
    virtual int below(int bound) = 0;

    // Returns false if there is nothing left to choose. below() then returns 0.
    virtual bool hasMore() const = 0;
};

// Draws operations until there are `count` of them, or nothing is left to choose.
Operations drawOperations(const Profile& profile, Choices& choices, int count);

// Draws random operations.
Operations drawOperations(const Profile& profile, std::uint64_t seed, int count);

} // namespace kvmodel
