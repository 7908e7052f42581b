#include "tests/selectcontext/model/Operation.h"

#include "tests/selectcontext/model/Model.h"
#include "tests/selectcontext/model/World.h"

#include <cstddef>
#include <cstring>
#include <random>

namespace kvmodel {

namespace {

struct Description {
    const char* name;
    const char* roles;
    int smallWeight;
    int largeWeight;
};

constexpr Description kDescriptions[] = {
#define KV_MODEL_DESCRIPTION(name, roles, small, large) {#name, roles, small, large},
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
        return "main";
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
        return "flag";
    default:
        return "number";
    }
}

class Draw {
public:
    Draw(const Profile& profile, std::uint64_t seed) : mProfile(profile), mRandom(seed) {
        std::vector<int> weights;
        for (const Description& description : kDescriptions)
            weights.push_back(profile.isLarge ? description.largeWeight : description.smallWeight);
        mKinds = std::discrete_distribution<int>(weights.begin(), weights.end());
    }

    Operation operation() {
        Operation drawn{static_cast<Kind>(mKinds(mRandom)), {}};
        const char* const roles = descriptionOf(drawn.kind).roles;
        for (std::size_t i = 0; roles[i]; ++i)
            drawn.arguments[i] = argument(roles[i]);
        return drawn;
    }

private:
    int below(int bound) { return static_cast<int>(mRandom() % static_cast<unsigned>(bound)); }

    int id() {
        const int kind = below(30);
        if (kind == 0)
            return 0;
        return kind == 1 ? mProfile.idCount + 1 : 1 + below(mProfile.idCount);
    }

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
            return id();
        case 'u':
            return below(3);
        case 'm':
            return kMarkers[below(4)];
        case 'n':
            return below(World::kNestedPathCount + 1) - 1;
        case 'f':
            return below(World::kInfoCount + 1) - 1;
        case 'p':
            return position();
        case 'q':
            return below(5) - 1;
        case 'x':
            return below(World::kSubentPathCount);
        case 'X':
            return below(World::kSubentPathCount + 4) - 4 < 0 ? -1 : below(World::kSubentPathCount);
        case 'b':
            return below(2);
        case 'v':
            return below(256);
        default:
            return below(6000);
        }
    }

    const Profile& mProfile;
    std::mt19937_64 mRandom;
    std::discrete_distribution<int> mKinds;
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

std::vector<Operation> drawOperations(const Profile& profile, std::uint64_t seed, int count) {
    Draw draw(profile, seed);
    std::vector<Operation> drawn;
    for (int i = 0; i < count; ++i)
        drawn.push_back(draw.operation());
    return drawn;
}

} // namespace kvmodel
