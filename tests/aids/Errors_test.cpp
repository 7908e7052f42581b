#include "aids/Errors.h"

#include "base/KvVector.h"
#include "platform/inmemory/InMemoryOsBase.h"
#include "tests/support/KvTest.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <stdexcept>

namespace {

using kv::rethrowing;
using kv::sentenceOf;

class Errors : public kvtest::KvTest {
protected:
    void SetUp() override {
        kvtest::KvTest::SetUp();
        expectNothingLeft();
    }
};

class OtherException : public KvException {};

TEST_F(Errors, HaveSentencesThatSayWhatAStatusMeans) {
    EXPECT_EQ(sentenceOf(std::make_unique<KvErrorStatus>(24, L"\"\"", 0).get()),
              "Error status 24: an index is out of range.");
    EXPECT_EQ(sentenceOf(std::make_unique<KvErrorStatus>(6, L"", 0).get()),
              "Error status 6: there is no memory.");
    EXPECT_EQ(sentenceOf(std::make_unique<KvErrorStatus>(77, nullptr, 0).get()),
              "Error status 77: its meaning is the application's.");
}

TEST_F(Errors, HaveSentencesWithThePlaceIfThereIsOne) {
    EXPECT_EQ(sentenceOf(std::make_unique<KvErrorStatus>(24, L"door.cpp", 12).get()),
              "Error status 24: an index is out of range (door.cpp:12).");
}

TEST_F(Errors, HaveTheMessageAsSentence) {
    EXPECT_EQ(sentenceOf(std::make_unique<KvExceptionWithMsg>(L"\"\"", 0, L"Error access KvTrucker").get()),
              "Error access KvTrucker.");
    const wchar_t* const characters = L"\u00e9 \u20ac \U0001F600";
    EXPECT_EQ(sentenceOf(std::make_unique<KvExceptionWithMsg>(L"", 0, characters).get()),
              "\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80.");
}

TEST_F(Errors, HaveASentenceForEveryException) {
    EXPECT_EQ(sentenceOf(std::make_unique<OtherException>().get()), "An exception of the application.");
    EXPECT_EQ(sentenceOf(nullptr), "No error.");
}

TEST_F(Errors, BecomeStandardExceptionsWithTheirStatus) {
    try {
        rethrowing([] { KvVector<int>().at(5); });
        FAIL() << "nothing was thrown";
    } catch (const kv::Error& error) {
        EXPECT_EQ(error.status(), 24);
        EXPECT_STREQ(error.what(), "Error status 24: an index is out of range.");
    }
}

TEST_F(Errors, WithoutAStatusHaveNone) {
    const kv::Error error{OtherException()};
    EXPECT_EQ(error.status(), std::nullopt);
}

TEST_F(Errors, ForWantOfMemoryBecomeBadAlloc) {
    const auto runsOut = [] {
        kvinmemory::failMalloc(1, kvinmemory::FailureMode::Once);
        KvVector<int>().setLogicalLength(1);
    };
    EXPECT_THROW(rethrowing(runsOut), std::bad_alloc);
    kvinmemory::allowMalloc();
}

TEST_F(Errors, OfOtherKindsPassThrough) {
    EXPECT_THROW(rethrowing([] { throw std::logic_error("other"); }), std::logic_error);
}

TEST_F(Errors, LeaveResultsAsTheyAre) {
    int number = 5;
    EXPECT_EQ(rethrowing([] { return 3; }), 3);
    rethrowing([&]() -> int& { return number; }) = 7;
    EXPECT_EQ(number, 7);
    const std::unique_ptr<int> moved = rethrowing([] { return std::make_unique<int>(4); });
    EXPECT_EQ(*moved, 4);
}

} // namespace
