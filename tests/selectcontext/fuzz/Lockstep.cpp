#include "tests/selectcontext/fuzz/Lockstep.h"

#include "tests/selectcontext/model/Expect.h"

#include <algorithm>
#include <dlfcn.h>
#include <iostream>
#include <sstream>
#include <stdexcept>

namespace kvmodel {

namespace {

// Loads a module. It stays loaded.
Player& playerOf(const char* module) {
    void* const handle = dlopen(module, RTLD_NOW | RTLD_LOCAL);
    if (!handle)
        throw std::runtime_error(dlerror());
    using Function = Player* (*)();
    const auto function = reinterpret_cast<Function>(dlsym(handle, kPlayerFunction));
    if (!function)
        throw std::runtime_error(dlerror());
    return *function();
}

void expectSuccess(bool succeeds, const char* build, const Player& player) {
    if (!succeeds)
        throw Mismatch{std::string(build) + ": " + player.message()};
}

// Returns the first lines that differ.
std::string firstDifference(const std::string& a, const std::string& b) {
    std::istringstream aLines(a);
    std::istringstream bLines(b);
    std::string aLine;
    std::string bLine;
    do {
        if (!std::getline(aLines, aLine))
            aLine = "(end)";
        if (!std::getline(bLines, bLine))
            bLine = "(end)";
    } while (aLine == bLine && aLines && bLines);
    return aLine + " | " + bLine;
}

constexpr const char* kQuick = "with shortcuts";
constexpr const char* kPlain = "without shortcuts";

} // namespace

Lockstep::Lockstep() : mQuick(playerOf(KV_FUZZ_QUICK)), mPlain(playerOf(KV_FUZZ_PLAIN)) {}

void Lockstep::perform(const Episode& episode, const Progress& progress) const {
    expectSuccess(mQuick.begin(episode.profile, episode.tracksMemory), kQuick, mQuick);
    expectSuccess(mPlain.begin(episode.profile, episode.tracksMemory), kPlain, mPlain);
    int number = 0;
    for (const Operation& operation : episode.operations) {
        progress(number++);
        expectSuccess(mQuick.perform(operation), kQuick, mQuick);
        expectSuccess(mPlain.perform(operation), kPlain, mPlain);
        compare(operation);
    }
    mCounts->failedCalls += mQuick.failedCalls() + mPlain.failedCalls();
    expectSuccess(mQuick.finish(), kQuick, mQuick);
    expectSuccess(mPlain.finish(), kPlain, mPlain);
}

// Builds that differ rightly go on with new sets.
void Lockstep::compare(const Operation& operation) const {
    if (mQuick.number() == mPlain.number())
        return;
    if (!mQuick.mayDiffer() && !mPlain.mayDiffer())
        report(operation);
    ++mCounts->resets;
    expectSuccess(mQuick.reset(), kQuick, mQuick);
    expectSuccess(mPlain.reset(), kPlain, mPlain);
    if (mQuick.number() != mPlain.number())
        report(operation);
}

void Lockstep::report(const Operation& operation) const {
    const std::string quick = mQuick.text();
    const std::string plain = mPlain.text();
    std::cerr << "---- " << kQuick << '\n' << quick << "\n---- " << kPlain << '\n' << plain << "\n----\n";
    std::ostringstream what;
    what << "the builds differ after " << operation << ": " << firstDifference(quick, plain);
    throw Mismatch{what.str()};
}

} // namespace kvmodel
