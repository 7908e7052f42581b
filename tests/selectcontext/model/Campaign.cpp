#include "tests/selectcontext/model/Campaign.h"

#include "tests/selectcontext/model/Machine.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <new>
#include <sstream>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kvmodel {

namespace {

constexpr int kTrackedEpisodes = 16;    // one episode in so many tracks the blocks of _kvMalloc
constexpr unsigned kReplaySeconds = 20; // a replay that takes longer counts as failed
constexpr unsigned kCampaignSeconds = 540;
constexpr auto kShrinkTime = std::chrono::seconds(60);
constexpr int kFailed = 1;

using Operations = std::vector<Operation>;

// What the child process reports. The report is in memory that the child shares with its parent, so it
// survives a crash of the child.
struct Report {
    long episode;
    int operation;
    char message[1000];
};

class SharedReport {
public:
    SharedReport() {
        void* const memory =
            mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED)
            throw std::bad_alloc();
        mReport = new (memory) Report();
    }
    SharedReport(const SharedReport&) = delete;
    SharedReport& operator=(const SharedReport&) = delete;
    ~SharedReport() { munmap(mReport, sizeof(Report)); }

    Report* operator->() const { return mReport; }

    void write(const std::string& message) const {
        std::snprintf(mReport->message, sizeof mReport->message, "%s", message.c_str());
    }

private:
    Report* mReport;
};

std::uint64_t mixed(std::uint64_t seed, std::uint64_t episode) {
    std::uint64_t x = seed + 0x9E3779B97F4A7C15U * (episode + 1);
    x = (x ^ (x >> 30U)) * 0xBF58476D1CE4E5B9U;
    x = (x ^ (x >> 27U)) * 0x94D049BB133111EBU;
    return x ^ (x >> 31U);
}

bool tracksMemory(long episode) {
    return episode % kTrackedEpisodes == 0;
}

// Runs the work in a child process. Returns whether the work failed: by a mismatch, an exception, a crash or
// a timeout.
bool failsInChild(const SharedReport& report, unsigned seconds, bool isQuiet,
                  const std::function<void()>& work) {
    report->message[0] = '\0';
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0)
        throw std::bad_alloc();
    if (child == 0) {
        alarm(seconds);
        if (isQuiet) {
            const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
            dup2(nowhere, STDERR_FILENO);
        }
        try {
            work();
        } catch (const Mismatch& mismatch) {
            report.write(mismatch.what);
            _exit(kFailed);
        } catch (...) {
            report.write("something was thrown");
            _exit(kFailed);
        }
        std::exit(0); // the leak sanitizer checks at exit
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {}
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
        return false;
    if (report->message[0] == '\0') {
        std::ostringstream text;
        if (WIFSIGNALED(status))
            text << "killed by signal " << WTERMSIG(status) << " (" << strsignal(WTERMSIG(status)) << ')';
        else
            text << "ended with exit code " << WEXITSTATUS(status);
        report.write(text.str());
    }
    return true;
}

bool operationsFail(const SharedReport& report, const Profile& profile, const Operations& operations,
                    bool tracked, bool isQuiet) {
    return failsInChild(report, kReplaySeconds, isQuiet, [&] {
        runOperations(profile, operations, tracked, [&](int i) { report->operation = i; });
    });
}

// Returns `failing` without operations that the failure does not need. Tries to leave out one sequence of
// operations after the other: first sequences of half the length of `failing`, then shorter ones, and at last
// single operations. Ends when the time is up.
Operations shrunk(const SharedReport& report, const Profile& profile, Operations failing, bool tracked) {
    const auto end = std::chrono::steady_clock::now() + kShrinkTime;
    bool shrinks = true;
    for (std::size_t length = failing.size() / 2; length > 0;
         length = shrinks && length == 1 ? 1 : length / 2) {
        shrinks = false;
        for (std::size_t at = 0; at < failing.size();) {
            if (std::chrono::steady_clock::now() > end)
                return failing;
            Operations fewer = failing;
            const auto first = fewer.begin() + static_cast<std::ptrdiff_t>(at);
            fewer.erase(first, first + static_cast<std::ptrdiff_t>(std::min(length, failing.size() - at)));
            if (operationsFail(report, profile, fewer, tracked, true)) {
                failing = fewer;
                shrinks = true;
            } else {
                at += length;
            }
        }
    }
    return failing;
}

std::string described(const Profile& profile, std::uint64_t seed, long episode, const std::string& first,
                      const std::string& last, const Operations& operations) {
    std::ostringstream text;
    text << profile.name << ", KV_MODEL_SEED=" << seed << ", episode " << episode << ": " << first << '\n'
         << operations.size() << " operations remain, which end with: " << last << '\n';
    for (const Operation& operation : operations)
        text << "  " << operation << '\n';
    return text.str();
}

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
    const SharedReport report;
    const long episodes = (count + profile.episodeLength - 1) / profile.episodeLength;
    const auto operationsOf = [&](long episode) {
        const long left = count - episode * profile.episodeLength;
        return drawOperations(profile, mixed(seed, static_cast<std::uint64_t>(episode)),
                              static_cast<int>(std::min<long>(left, profile.episodeLength)));
    };
    const bool failed = failsInChild(report, kCampaignSeconds, false, [&] {
        for (long episode = 0; episode < episodes; ++episode) {
            report->episode = episode;
            runOperations(profile, operationsOf(episode), tracksMemory(episode),
                          [&](int i) { report->operation = i; });
        }
    });
    if (!failed)
        return {};

    const std::string first = report->message;
    const long episode = report->episode;
    const bool tracked = tracksMemory(episode);
    Operations operations = operationsOf(episode);
    operations.resize(std::min(operations.size(), static_cast<std::size_t>(report->operation) + 1));
    if (!operationsFail(report, profile, operations, tracked, true))
        return described(profile, seed, episode, first, "nothing when they are done alone", operations);
    operations = shrunk(report, profile, operations, tracked);
    operationsFail(report, profile, operations, tracked, false);
    return described(profile, seed, episode, first, report->message, operations);
}

} // namespace kvmodel
