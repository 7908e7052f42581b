// Performs random operations, or those that files stand for, with two builds of the library and their models.
// See docs/trust.md.

#include "tests/selectcontext/fuzz/Bytes.h"
#include "tests/selectcontext/fuzz/Lockstep.h"

#include <chrono>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using kvmodel::Bytes;
using kvmodel::Lockstep;
using Clock = std::chrono::steady_clock;

constexpr const char* kUsage = "usage: kv_fuzz [--seed S] [--count OPERATIONS] [--seconds T] [--file F]...\n"
                               "  --count, --seconds   when to end; default: 100000 operations\n"
                               "  --file               performs the operations of files instead\n";

constexpr long kEpisodesAtOnce = 200; // in one child process
constexpr long kDefaultCount = 100000;
constexpr int kTrackedEpisodes = 16; // one episode in so many tracks the blocks of _kvMalloc

struct Arguments {
    std::uint64_t seed = 1;
    long count = 0;   // 0: no limit
    long seconds = 0; // 0: no limit
    std::vector<std::string> files;
};

Arguments parsed(int count, char** words) {
    Arguments arguments;
    for (int i = 1; i < count; i += 2) {
        const std::string name = words[i];
        if (i + 1 == count)
            throw std::invalid_argument(kUsage);
        const std::string value = words[i + 1];
        if (name == "--seed")
            arguments.seed = std::stoull(value);
        else if (name == "--count")
            arguments.count = std::stol(value);
        else if (name == "--seconds")
            arguments.seconds = std::stol(value);
        else if (name == "--file")
            arguments.files.push_back(value);
        else
            throw std::invalid_argument(kUsage);
    }
    if (arguments.count == 0 && arguments.seconds == 0)
        arguments.count = kDefaultCount;
    return arguments;
}

Bytes bytesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// What was performed so far.
class Tally {
public:
    explicit Tally(const Lockstep& lockstep) : mLockstep(lockstep) {}

    // Returns whether all went well. Says once a minute how far it has come.
    bool add(const kvmodel::Result& result) {
        mOperations += result.operations;
        if (!result.failure.empty())
            std::cout << result.failure;
        const auto minutes = static_cast<long>(seconds() / 60);
        if (minutes > mMinutes)
            std::cerr << mOperations << " operations in " << minutes << " minutes" << std::endl;
        mMinutes = minutes;
        return result.failure.empty();
    }
    long operations() const { return mOperations; }
    double seconds() const { return std::chrono::duration<double>(Clock::now() - mBegin).count(); }

    void print(bool isWell) const {
        std::cout << "operations " << mOperations << ", seconds " << seconds() << ", per second "
                  << static_cast<long>(static_cast<double>(mOperations) / seconds()) << ", failed calls "
                  << mLockstep.counts().failedCalls << ", resets " << mLockstep.counts().resets << ", "
                  << (isWell ? "no difference" : "a difference") << std::endl;
    }

private:
    const Lockstep& mLockstep;
    const Clock::time_point mBegin = Clock::now();
    long mOperations = 0;
    long mMinutes = 0;
};

kvmodel::Performance performanceOf(const Lockstep& lockstep) {
    return [&lockstep](const kvmodel::Episode& episode, const kvmodel::Progress& progress) {
        lockstep.perform(episode, progress);
    };
}

bool performFiles(const Lockstep& lockstep, const std::vector<std::string>& files, Tally& tally) {
    const auto episodeOf = [&](long i) {
        const std::string& path = files[static_cast<std::size_t>(i)];
        return kvmodel::episodeOf(bytesOf(path), path);
    };
    return tally.add(
        kvmodel::runEpisodes(static_cast<long>(files.size()), episodeOf, performanceOf(lockstep)));
}

bool performRandom(const Lockstep& lockstep, const Arguments& arguments, Tally& tally) {
    const auto isEnough = [&] {
        return (arguments.count != 0 && tally.operations() >= arguments.count) ||
               (arguments.seconds != 0 && tally.seconds() >= static_cast<double>(arguments.seconds));
    };
    for (long first = 0; !isEnough(); first += kEpisodesAtOnce) {
        const auto episodeOf = [&](long i) {
            const long number = first + i;
            const std::uint64_t seed = kvmodel::seedOf(arguments.seed, number);
            kvmodel::Episode episode =
                kvmodel::episodeOf(kvmodel::randomBytes(seed), "--seed " + std::to_string(arguments.seed) +
                                                                   ", episode " + std::to_string(number));
            episode.tracksMemory = number % kTrackedEpisodes == 0;
            return episode;
        };
        if (!tally.add(kvmodel::runEpisodes(kEpisodesAtOnce, episodeOf, performanceOf(lockstep))))
            return false;
    }
    return true;
}

} // namespace

int main(int count, char** words) {
    try {
        const Arguments arguments = parsed(count, words);
        const Lockstep lockstep;
        Tally tally(lockstep);
        const bool isWell = arguments.files.empty() ? performRandom(lockstep, arguments, tally)
                                                    : performFiles(lockstep, arguments.files, tally);
        tally.print(isWell);
        return isWell ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
