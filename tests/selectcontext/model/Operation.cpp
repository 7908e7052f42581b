#include "tests/selectcontext/model/Operation.h"

#include "tests/selectcontext/model/Model.h"
#include "tests/selectcontext/model/WorldNumbers.h"

#include <algorithm>
#include <cstddef>
#include <random>

namespace kvmodel {

namespace {

struct Description {
    const char* name;
    const char* roles;
    int weights[4]; // one for each value of Shape
};

constexpr Description kDescriptions[] = {
#define KV_MODEL_DESCRIPTION(name, roles, small, middle, large, runs)                                        \
    {#name, roles, {small, middle, large, runs}},
    KV_MODEL_OPERATIONS(KV_MODEL_DESCRIPTION)
#undef KV_MODEL_DESCRIPTION
};

const Description& descriptionOf(Kind kind) {
    return kDescriptions[static_cast<std::size_t>(kind)];
}

const char* nameOf(char role) {
    switch (role) {
    case 's':
    case 'S':
        return "set";
    case 'c':
    case 'k':
    case 'w':
        return "cursor";
    case 'i':
    case 'j':
        return "main";
    case 'e':
    case 'g':
        return "id";
    case 'u':
        return "sub";
    case 'm':
        return "marker";
    case 'n':
        return "nested";
    case 'f':
        return "info";
    case 'p':
        return "at";
    case 'q':
        return "path at";
    case 'x':
    case 'X':
        return "path";
    case 'b':
    case 'y':
        return "flag";
    case 'h':
        return "length";
    case 't':
        return "kind";
    case 'a':
        return "nth";
    case 'l':
        return "let pass";
    default:
        return "number";
    }
}

class Draw {
public:
    Draw(const Profile& profile, Choices& choices) : mProfile(profile), mChoices(choices) {
        int sum = 0;
        for (const Description& description : kDescriptions) {
            sum += description.weights[static_cast<std::size_t>(profile.shape)];
            mLimits.push_back(sum);
        }
        if (!hasRuns())
            return;
        constexpr int kCounts[] = {1, 3, 12, 40};
        mMainCount = below(4) == 0 ? WorldNumbers::kMainCountOfRuns : 1 + below(3);
        mSubCount = kCounts[below(4)];
        mMarkerCount = 2 + below(4);
        mPathCount = kCounts[below(4)];
    }

    Operation operation() {
        Operation drawn{kind(), {}};
        const char* const roles = descriptionOf(drawn.kind).roles;
        for (std::size_t i = 0; roles[i]; ++i)
            drawn.arguments[i] = argument(roles[i]);
        return drawn;
    }

private:
    int below(int bound) { return mChoices.below(bound); }

    Kind kind() {
        const int drawn = below(mLimits.back());
        return static_cast<Kind>(std::upper_bound(mLimits.begin(), mLimits.end(), drawn) - mLimits.begin());
    }

    bool hasRuns() const { return mProfile.shape == Shape::kRuns; }

    int id() {
        const int kind = below(30);
        if (kind == 0)
            return 0;
        return kind == 1 ? mProfile.idCount + 1 : 1 + below(mProfile.idCount);
    }

    // Returns a main id of the episode. One call in `otherwise` returns another id instead: often one that
    // spare() has returned, and otherwise any id.
    int mainOfRun(int otherwise) {
        if (below(otherwise) != 0)
            return WorldNumbers::mainOfRun(below(mMainCount));
        return below(3) != 0 ? unitedOr(2) : id();
    }

    // Returns an id that spare() has returned. Returns `id` if there is none.
    int unitedOr(int id) {
        return mUnited.empty() ? id
                               : mUnited[static_cast<std::size_t>(below(static_cast<int>(mUnited.size())))];
    }

    int subOfRun() {
        const int kind = below(8);
        if (kind == 0)
            return below(WorldNumbers::kFirstSpare);
        return kind == 1 ? unitedOr(0) : below(mSubCount);
    }

    // Returns a marker. An episode has the first two, three or four of kMarkers, or all four and 56 others.
    int markerOfRun() {
        constexpr int kMarkers[] = {0, -1, 5, 1};
        const int kind = below(mMarkerCount == 5 ? 60 : mMarkerCount);
        return kind < 4 ? kMarkers[kind] : kind;
    }

    int pathOfRun() {
        const int count =
            mPathCount < WorldNumbers::kPathCountOfRuns ? mPathCount : WorldNumbers::kPathCountOfRuns;
        return below(8) == 0 ? -1 : below(count);
    }

    // Returns a spare id. The first calls return all spare ids, the highest first. Later calls return random
    // ones. The lowest spare ids are on nested paths.
    int spare() {
        const int count = mProfile.idCount + 1 - WorldNumbers::kFirstSpare;
        const int drawn = static_cast<int>(mUnited.size());
        const int id = mProfile.idCount - (drawn < count ? drawn : below(count));
        mUnited.push_back(id);
        return id;
    }

    int target() {
        const int kind = below(3);
        if (kind == 0)
            return WorldNumbers::mainOfRun(below(mMainCount));
        return kind == 1 ? unitedOr(1) : below(WorldNumbers::kFirstSpare);
    }

    int runLength() { return below(5) == 0 ? below(1600) : 50 + below(150); }

    int nth() { return 1 + (below(4) == 0 ? below(64) : below(6)); }

    int callsToLetPass() { return below(4) == 0 ? below(100) : 0; }

    int position() {
        const int kind = below(12);
        return kind < 5 ? -1 - kind : below(100000);
    }

    int argument(char role) {
        constexpr int kMarkers[] = {-1, 0, 1, 5};
        switch (role) {
        case 's':
            return below(kSetCount);
        case 'S':
            return below(kSetCount + 1) - 1;
        case 'c':
            return below(kCursorCount);
        case 'k':
            return below(kCursorCount / 2);
        case 'w':
            return kCursorCount / 2 + below(kCursorCount / 2);
        case 'i':
            return hasRuns() ? mainOfRun(12) : id();
        case 'j':
            return hasRuns() ? mainOfRun(5) : id();
        case 'e':
            return spare();
        case 'g':
            return target();
        case 'u':
            return hasRuns() ? subOfRun() : below(3);
        case 'm':
            return hasRuns() ? markerOfRun() : kMarkers[below(4)];
        case 'n':
            return hasRuns() ? pathOfRun() : below(WorldNumbers::kNestedPathCount + 1) - 1;
        case 'f':
            return below(WorldNumbers::kInfoCount + 1) - 1;
        case 'p':
            return position();
        case 'q':
            return below(5) - 1;
        case 'x':
            return below(WorldNumbers::kSubentPathCount);
        case 'X':
            return below(WorldNumbers::kSubentPathCount + 4) - 4 < 0 ? -1
                                                                     : below(WorldNumbers::kSubentPathCount);
        case 'b':
            return below(2);
        case 'y':
            return hasRuns() ? below(6) == 0 : below(2);
        case 'h':
            return runLength();
        case 'v':
            return below(256);
        case 't':
            return below(kFailureCount);
        case 'a':
            return nth();
        case 'l':
            return callsToLetPass();
        default:
            return below(mProfile.shape == Shape::kMiddle ? 200 : 6000);
        }
    }

    const Profile& mProfile;
    Choices& mChoices;
    std::vector<int> mLimits; // for each kind: the sum of its weight and of those before it

    // For an episode with long runs: how many different main ids, sub ids, markers and paths its items have.
    int mMainCount = 0;
    int mSubCount = 0;
    int mMarkerCount = 0;
    int mPathCount = 0;
    std::vector<int> mUnited;
};

class RandomChoices : public Choices {
public:
    explicit RandomChoices(std::uint64_t seed) : mRandom(seed) {}
    int below(int bound) override { return static_cast<int>(mRandom() % static_cast<unsigned>(bound)); }
    bool hasMore() const override { return true; }

private:
    std::mt19937_64 mRandom;
};

} // namespace

std::ostream& operator<<(std::ostream& out, const Operation& operation) {
    const Description& description = descriptionOf(operation.kind);
    out << description.name;
    for (std::size_t i = 0; description.roles[i]; ++i)
        out << (i == 0 ? ": " : ", ") << nameOf(description.roles[i]) << ' ' << operation[i];
    return out;
}

int positionOf(int code, int count) {
    switch (code) {
    case kMinusOne:
        return -1;
    case kCount:
        return count;
    case kBeyondCount:
        return count + 1;
    case kLast:
        return count - 1;
    case kFirst:
        return 0;
    default:
        return count == 0 ? 0 : code % count;
    }
}

Operations drawOperations(const Profile& profile, Choices& choices, int count) {
    Draw draw(profile, choices);
    Operations drawn;
    while (static_cast<int>(drawn.size()) < count && choices.hasMore())
        drawn.push_back(draw.operation());
    return drawn;
}

Operations drawOperations(const Profile& profile, std::uint64_t seed, int count) {
    RandomChoices choices(seed);
    return drawOperations(profile, choices, count);
}

} // namespace kvmodel
