// Performs random operations on sets that share data, and the same operations on a model.
//
// The environment variable KV_MODEL_SEED selects other operations. KV_MODEL_OPERATIONS sets their number.
// With KV_MODEL_DIGEST=1, each campaign prints a digest, which is the same in all builds.
#include "tests/selectcontext/model/Campaign.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>

namespace {

using kvmodel::Profile;
using kvmodel::Shape;

#ifndef __has_feature
#define __has_feature(feature) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || __has_feature(address_sanitizer) ||     \
    __has_feature(thread_sanitizer)
constexpr long kOperations = 100000;
#elif defined(NDEBUG)
constexpr long kOperations = 1000000;
#else
constexpr long kOperations = 100000;
#endif

constexpr std::uint64_t kSeed = 1;

constexpr Profile kSmall{"small sets", Shape::kSmall, false, 8, 40, 500, 1};
constexpr Profile kEqual{"ids that are equal although distinct", Shape::kSmall, true, 8, 40, 250, 1};
constexpr Profile kMiddle{"middle sets", Shape::kMiddle, false, 120, 300, 300, 8};
constexpr Profile kLarge{"sets across pages", Shape::kLarge, false, 6000, 9000, 200, 24};
constexpr Profile kRuns{"long runs of one id", Shape::kRuns, false, 60, 2500, 300, 24};
constexpr Profile kEqualInRuns{"equal ids in long runs", Shape::kRuns, true, 60, 2500, 300, 24};

void expectAgreement(const Profile& profile, long operations) {
    const std::string failure =
        kvmodel::runCampaign(profile, kvmodel::seedOr(kSeed), kvmodel::operationsOr(operations));
    EXPECT_TRUE(failure.empty()) << failure;
}

TEST(SelectSetModel, SmallSetsAgreeWithTheirModelAfterEveryOperation) {
    expectAgreement(kSmall, kOperations);
}

TEST(SelectSetModel, SetsOfDistinctButEqualIdsAgreeWithTheirModel) {
    expectAgreement(kEqual, kOperations / 20);
}

TEST(SelectSetModel, SetsOfHundredsOfItemsAgreeWithTheirModel) {
    expectAgreement(kMiddle, kOperations / 10);
}

TEST(SelectSetModel, SetsOfSeveralPagesAgreeWithTheirModel) {
    expectAgreement(kLarge, kOperations / 125);
}

TEST(SelectSetModel, LongRunsOfOneIdAgreeWithTheirModel) {
    expectAgreement(kRuns, kOperations / 60);
}

TEST(SelectSetModel, EqualIdsInLongRunsAgreeWithTheirModel) {
    expectAgreement(kEqualInRuns, kOperations / 60);
}

} // namespace
