// A small platform that makes one mistake at a time, on request. It shows what the check of the seam notices.
#pragma once

#include "tests/platform/conformance/SeamConformance.h"

namespace kvmistaken {

enum class Mistake {
    kNone,
    // Memory
    kMallocForgetsAlignment,
    kMallocOverflows,
    kMallocReusesOneBlock,
    // The empty block
    kEmptyBlockHasStorage,
    kEmptyBlockHasNoOwner,
    kEmptyBlockComesLate,
    // Exceptions and their recorder
    kStatusForgetsLine,
    kMessageForgetsText,
    kRecorderDeletes,
    kRecorderThrows,
    kRecorderOfOneThread,
    // The lock
    kLockExcludesNobody,
    kLockIsNotRecursive,
    kLockIsFreedByOneUnlock,
    kLockNeverComesBack,
    // Geometry
    kToleranceComesLate,
    kMatrixStartsWithZeros,
    kIdentityForgetsTranslation,
    kIdentityReturnsACopy,
    kComparisonForgetsARow,
    kComparisonIsExact,
    kComparisonTakesNaN,
    // Ids
    kTwinsDiffer,
    kEqualityIsOneSided,
    kEqualityIsNearness,
    kEverythingIsEqual,
    kNothingIsEqual,
    kOrderHasTies,
    kOrderIsReflexive,
    kOrderIsACycle,
    kOrderChanges,
    kOrderDependsOnThread,
    kNothingIsNull,
    kInvalidIdIsValid,
    kErasedIdIsInvalid,
    kNoIdIsValid,
    // Paths
    kPathStartsWithAPart,
    kPathCopyForgetsThePart,
    kPathAssignmentForgetsIds,
    kPathSelfAssignmentClears,
    kPathEqualityForgetsOrder,
    kPathEqualityForgetsLength,
    kPathEqualityForgetsExtra,
    kPathEqualityTruncatesIndex,
    kPathEqualityComparesStubs,
    // Objects
    kNewObjectHasAnId,
    kObjectForgetsItsId,
    kOpensNothing,
    kOpensWithoutObject,
    kFailureLeavesTheArgument,
    kFailureLeavesAnOpening,
    kOneReaderOnly,
    kReadersDisturbEachOther,
    kWriterIsNotAlone,
    kCloseFails,
    kCloseDoesNothing,
    kOpensErased,
    kNeverOpensErased,
    kOpensWhatIsNoEntity,
    kOpensNull,
    kResidentObjectIsCopied,
    // Highlighting and names
    kHighlightTakesThePath,
    kUnhighlightThrows,
    kNameKeyStaysUnset,
    kNameKeyOverwritesTheAddress,
    kNameKeyIsTooLong,
    kCount
};

// Sets the mistake, and puts the database into its first state.
void makeMistake(Mistake mistake);

// Returns ids of every kind.
kvconformance::Subject subject();

} // namespace kvmistaken
