#include "tests/selectcontext/model/Campaign.h"

#include "tests/selectcontext/model/Episodes.h"
#include "tests/selectcontext/model/Machine.h"

#include <algorithm>
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

} // namespace

std::uint64_t seedOr(std::uint64_t seed) {
    return fromEnvironment("KV_MODEL_SEED", seed);
}

long operationsOr(long count) {
    return fromEnvironment("KV_MODEL_OPERATIONS", count);
}

std::string runCampaign(const Profile& profile, std::uint64_t seed, long count) {
    const auto episodeOf = [&](long number) {
        const long left = count - number * profile.episodeLength;
        const int length = static_cast<int>(std::min<long>(left, profile.episodeLength));
        std::ostringstream name;
        name << "KV_MODEL_SEED=" << seed << ", episode " << number;
        return Episode{name.str(), profile, drawOperations(profile, seedOf(seed, number), length),
                       number % kTrackedEpisodes == 0};
    };
    const long episodes = (count + profile.episodeLength - 1) / profile.episodeLength;
    return runEpisodes(episodes, episodeOf, runOperations).failure;
}

} // namespace kvmodel
