#include "tests/platform/conformance/SeamConformance.h"

#include "tests/platform/conformance/MistakenPlatform.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

namespace {

using kvconformance::Report;
using kvmistaken::Mistake;

Report reportOf(Mistake mistake) {
    kvmistaken::makeMistake(mistake);
    Report report = kvconformance::check(kvmistaken::subject());
    kvmistaken::makeMistake(Mistake::kNone);
    return report;
}

TEST(SeamConformance, FindsNothingInAPlatformWithoutMistakes) {
    const Report report = reportOf(Mistake::kNone);
    EXPECT_THAT(report.broken, testing::IsEmpty());
    EXPECT_THAT(report.unchecked, testing::IsEmpty());
    EXPECT_GT(report.held, 50);
}

TEST(SeamConformance, SaysWhatItCannotCheck) {
    kvmistaken::makeMistake(Mistake::kNone);
    const Report report = kvconformance::check({});
    EXPECT_THAT(report.broken, testing::IsEmpty());
    EXPECT_THAT(
        report.unchecked,
        testing::IsSupersetOf({testing::HasSubstr("no twins"), testing::HasSubstr("no entities"),
                               testing::HasSubstr("no erased entities"), testing::HasSubstr("no others"),
                               testing::HasSubstr("no invalid ids"), testing::HasSubstr("no count")}));
}

TEST(SeamConformance, WritesOneSentenceALine) {
    std::ostringstream text;
    text << Report{{"one thing"}, {"another thing"}, 3};
    EXPECT_EQ(text.str(), "broken: one thing\nnot checked: another thing\n3 promises hold, 1 are broken\n");
}

// A mistake, and what the report says about it.
struct Expected {
    Mistake mistake;
    const char* sentence; // the beginning of it, without the header's name
};

void PrintTo(const Expected& expected, std::ostream* out) {
    *out << expected.sentence;
}

class AMistake : public testing::TestWithParam<Expected> {};

TEST_P(AMistake, IsReported) {
    const Report report = reportOf(GetParam().mistake);
    EXPECT_THAT(report.broken, testing::Contains(testing::HasSubstr(GetParam().sentence)));
}

const Expected kExpected[] = {
    {Mistake::kMallocForgetsAlignment, "memory of _kvMalloc is aligned"},
    {Mistake::kMallocOverflows, "_kvMalloc returns null if there is no memory"},
    {Mistake::kMallocReusesOneBlock, "blocks of _kvMalloc share no bytes"},
    {Mistake::kEmptyBlockHasStorage, "the empty block has lengths 0"},
    {Mistake::kEmptyBlockHasNoOwner, "the application owns one reference"},
    {Mistake::kEmptyBlockComesLate, "gpEmptyVectorData is initialised at compile time"},
    {Mistake::kStatusForgetsLine, "KvErrorStatus returns what"},
    {Mistake::kMessageForgetsText, "KvExceptionWithMsg returns what"},
    {Mistake::kRecorderDeletes, "a crash recorder does not delete"},
    {Mistake::kRecorderThrows, "a crash recorder throws nothing"},
    {Mistake::kRecorderOfOneThread, "any thread may call gxapGetCrashRecorder()"},
    {Mistake::kLockExcludesNobody, "at most one thread owns a KvLocker"},
    {Mistake::kLockIsNotRecursive, "the owner of a KvLocker may call lock() again"},
    {Mistake::kLockIsFreedByOneUnlock, "the owner of a KvLocker must call unlock() as often"},
    {Mistake::kLockNeverComesBack, "lock() waits until the lock is free"},
    {Mistake::kToleranceComesLate, "gTol is constant-initialised"},
    {Mistake::kMatrixStartsWithZeros, "GxGeMatrix3d() makes the identity"},
    {Mistake::kIdentityForgetsTranslation, "setToIdentity() makes the transform the identity"},
    {Mistake::kIdentityReturnsACopy, "setToIdentity() returns *this"},
    {Mistake::kComparisonForgetsARow, "transforms outside the tolerance are not equal"},
    {Mistake::kComparisonIsExact, "transforms within the tolerance are equal"},
    {Mistake::kComparisonTakesNaN, "what is not a number is within no tolerance"},
    {Mistake::kTwinsDiffer, "ids that name one object are equal"},
    {Mistake::kEqualityIsOneSided, "equality is symmetric"},
    {Mistake::kEqualityIsNearness, "equality is transitive"},
    {Mistake::kEverythingIsEqual, "ids of different objects are not equal"},
    {Mistake::kNothingIsEqual, "equality is reflexive"},
    {Mistake::kOrderHasTies, "ids are equal exactly when neither comes before the other"},
    {Mistake::kOrderIsReflexive, "no id comes before itself"},
    {Mistake::kOrderIsACycle, "the order is transitive"},
    {Mistake::kOrderChanges, "the order of two ids does not change"},
    {Mistake::kOrderDependsOnThread, "any thread may compare ids"},
    {Mistake::kNothingIsNull, "isNull() says whether an id equals kNull"},
    {Mistake::kInvalidIdIsValid, "an id is not valid if no database knows its object"},
    {Mistake::kErasedIdIsInvalid, "the id of an erased object is valid"},
    {Mistake::kNoIdIsValid, "an id is valid if a database knows its object"},
    {Mistake::kPathStartsWithAPart, "a new path has no ids and the null part"},
    {Mistake::kPathCopyForgetsThePart, "copying a path copies the ids and the part"},
    {Mistake::kPathAssignmentForgetsIds, "assigning a path copies the ids and the part"},
    {Mistake::kPathSelfAssignmentClears, "assigning a path copies the ids and the part (to itself)"},
    {Mistake::kPathEqualityForgetsOrder, "another part are not equal (another order)"},
    {Mistake::kPathEqualityForgetsLength, "another part are not equal (one id less)"},
    {Mistake::kPathEqualityForgetsExtra, "another part are not equal (another extra)"},
    {Mistake::kPathEqualityTruncatesIndex, "another part are not equal (another index)"},
    {Mistake::kPathEqualityComparesStubs, "paths compare their ids as ids"},
    {Mistake::kNewObjectHasAnId, "an object that no database has, has no id"},
    {Mistake::kObjectForgetsItsId, "a resident object has its id"},
    {Mistake::kOpensNothing, "gxdbOpenObject() opens the entity that an id names"},
    {Mistake::kOpensWithoutObject, "gxdbOpenObject() opens the entity that an id names"},
    {Mistake::kFailureLeavesTheArgument, "after a failure, the entity is null"},
    {Mistake::kFailureLeavesAnOpening, "a failed opening leaves no opening behind"},
    {Mistake::kOneReaderOnly, "several openings for reading may exist at once"},
    {Mistake::kReadersDisturbEachOther, "several threads may have one object open for reading"},
    {Mistake::kWriterIsNotAlone, "an opening for writing is the only opening"},
    {Mistake::kCloseFails, "close() ends an opening"},
    {Mistake::kCloseDoesNothing, "closing an object leaves no opening behind"},
    {Mistake::kOpensErased, "an erased entity does not open without request"},
    {Mistake::kNeverOpensErased, "an erased entity opens on request"},
    {Mistake::kOpensWhatIsNoEntity, "an id that names no entity does not open"},
    {Mistake::kOpensNull, "the null id does not open"},
    {Mistake::kResidentObjectIsCopied, "each opening yields the resident object"},
    {Mistake::kHighlightTakesThePath, "the path of a highlight belongs to the caller"},
    {Mistake::kUnhighlightThrows, "an open entity is highlighted and unhighlighted"},
    {Mistake::kNameKeyStaysUnset, "gxdbInitGdsNameKey() sets the second word"},
    {Mistake::kNameKeyOverwritesTheAddress, "gxdbInitGdsNameKey() writes the second word only"},
    {Mistake::kNameKeyIsTooLong, "gxdbInitGdsNameKey() writes the second word only"},
};

INSTANTIATE_TEST_SUITE_P(SeamConformance, AMistake, testing::ValuesIn(kExpected));

TEST(SeamConformance, IsShownEveryMistake) {
    for (int i = 1; i < static_cast<int>(Mistake::kCount); ++i) {
        EXPECT_TRUE(std::any_of(std::begin(kExpected), std::end(kExpected), [i](const Expected& each) {
            return static_cast<int>(each.mistake) == i;
        })) << i;
    }
}

} // namespace
