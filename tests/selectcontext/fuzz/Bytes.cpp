#include "tests/selectcontext/fuzz/Bytes.h"

#include <random>

namespace kvmodel {

namespace {

// A profile and the number of first bytes, of 256, that choose it.
struct Share {
    int bytes;
    Profile profile;
};

// Episodes of the last three profiles are slow, so they have few bytes.
const Share kShares[] = {
    {136, {"small sets", Shape::kSmall, false, 8, 40, 0, 1}},
    {32, {"equal ids", Shape::kSmall, true, 8, 40, 0, 1}},
    {72, {"middle sets", Shape::kMiddle, false, 120, 300, 0, 8}},
    {4, {"sets across pages", Shape::kLarge, false, 6000, 9000, 0, 24}},
    {8, {"long runs", Shape::kRuns, false, 60, 2500, 0, 24}},
    {4, {"equal ids in long runs", Shape::kRuns, true, 60, 2500, 0, 24}},
};

constexpr int kMostOperations = 1000;
constexpr std::size_t kMostBytes = 2048;

const Profile& profileOf(int first) {
    const Share* share = kShares;
    while (first >= share->bytes) {
        first -= share->bytes;
        ++share;
    }
    return share->profile;
}

class ByteChoices : public Choices {
public:
    explicit ByteChoices(const Bytes& bytes) : mBytes(bytes) {}

    int below(int bound) override {
        constexpr int kBytes = 256;
        const int low = next();
        return (bound <= kBytes ? low : low + kBytes * next()) % bound;
    }
    bool hasMore() const override { return mAt < mBytes.size(); }

    int next() { return hasMore() ? mBytes[mAt++] : 0; }

private:
    const Bytes& mBytes;
    std::size_t mAt = 0;
};

} // namespace

Episode episodeOf(const Bytes& bytes, const std::string& name) {
    ByteChoices choices(bytes);
    const Profile& profile = profileOf(choices.next());
    return {name, profile, drawOperations(profile, choices, kMostOperations), true};
}

Bytes randomBytes(std::uint64_t seed) {
    std::mt19937_64 random(seed);
    Bytes bytes(1 + random() % kMostBytes);
    for (unsigned char& byte : bytes)
        byte = static_cast<unsigned char>(random());
    return bytes;
}

} // namespace kvmodel
