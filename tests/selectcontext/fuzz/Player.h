// Player: performs operations with one build of the library.
#pragma once

#include "tests/selectcontext/model/Operation.h"

#include <cstdint>

namespace kvmodel {

// A module has a build of the library, the platform and a machine, each for itself, and one player. So two
// builds work side by side in one process.
//
// The functions that return bool return false if library and model differ. message() then says how, and
// nothing else may be called.
//
// Thread safety: none.
class Player {
public:
    Player() = default;
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;
    virtual ~Player() = default;

    // Begins an episode with new sets. finish() ends it, and checks that nothing is left.
    virtual bool begin(const Profile& profile, bool tracksMemory) = 0;
    virtual bool perform(const Operation& operation) = 0;
    virtual bool finish() = 0;
    virtual const char* message() const = 0;

    // Do what the functions of class Machine do.
    virtual std::uint64_t number() const = 0;
    virtual const char* text() = 0;
    virtual bool mayDiffer() const = 0;
    virtual bool reset() = 0;
    virtual long failedCalls() const = 0;

    // From now on, number() and text() are wrong while set 0 has three items or more.
    virtual void plantDifference() = 0;
};

} // namespace kvmodel

// The function that a module exports.
constexpr const char* kPlayerFunction = "kvFuzzPlayer";
extern "C" __attribute__((visibility("default"))) kvmodel::Player* kvFuzzPlayer();
