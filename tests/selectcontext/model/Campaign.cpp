#include "tests/selectcontext/model/Campaign.h"

#include "tests/selectcontext/model/Episodes.h"
#include "tests/selectcontext/model/Machine.h"
#include "tests/selectcontext/model/Shared.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace kvmodel {

namespace {

constexpr int kTrackedEpisodes = 16; // one episode in so many tracks the blocks of _kvMalloc

template <class Number>
Number fromEnvironment(const char* name, Number otherwise) {
    const char* const text = std::getenv(name);
    return text && *text ? static_cast<Number>(std::strtoull(text, nullptr, 0)) : otherwise;
}

// Which allocation is the n-th depends on the sizes of hashes, and these depend on addresses.
bool dependsOnAddresses(const Operation& operation) {
    return operation.kind == Kind::failNext || operation.kind == Kind::lookUpWithoutMemory ||
           operation.kind == Kind::selectWithoutMemory;
}

Operations withoutAddresses(Operations operations) {
    operations.erase(std::remove_if(operations.begin(), operations.end(), dependsOnAddresses),
                     operations.end());
    return operations;
}

} // namespace

std::uint64_t seedOr(std::uint64_t seed) {
    return fromEnvironment("KV_MODEL_SEED", seed);
}

long operationsOr(long count) {
    return fromEnvironment("KV_MODEL_OPERATIONS", count);
}

std::string runCampaign(const Profile& profile, std::uint64_t seed, long count) {
    const bool hasDigest = fromEnvironment("KV_MODEL_DIGEST", 0) != 0;
    const auto episodeOf = [&](long number) {
        const long left = count - number * profile.episodeLength;
        const int length = static_cast<int>(std::min<long>(left, profile.episodeLength));
        std::ostringstream name;
        name << "KV_MODEL_SEED=" << seed << ", episode " << number;
        const Operations drawn = drawOperations(profile, seedOf(seed, number), length);
        return Episode{name.str(), profile, hasDigest ? withoutAddresses(drawn) : drawn,
                       number % kTrackedEpisodes == 0};
    };
    const Shared<std::uint64_t> digest;
    const auto perform = [&](const Episode& episode, const Progress& progress) {
        runOperations(episode, progress, hasDigest ? &*digest : nullptr);
    };
    const long episodes = (count + profile.episodeLength - 1) / profile.episodeLength;
    const Result result = runEpisodes(episodes, episodeOf, perform);
    if (hasDigest && result.failure.empty())
        std::printf("digest of %s: %016" PRIx64 "\n", profile.name, *digest);
    return result.failure;
}

} // namespace kvmodel
