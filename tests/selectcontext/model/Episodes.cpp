#include "tests/selectcontext/model/Episodes.h"

#include "tests/selectcontext/model/Expect.h"
#include "tests/selectcontext/model/Shared.h"

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
#include <sys/wait.h>
#include <unistd.h>

namespace kvmodel {

namespace {

constexpr unsigned kReplaySeconds = 20;   // a replay that takes longer counts as failed
constexpr unsigned kEpisodeSeconds = 540; // an episode of a campaign that takes longer counts as failed
constexpr auto kShrinkTime = std::chrono::seconds(60);
constexpr int kFailed = 1;

// What the child process reports. It survives a crash of the child.
struct Report {
    long episode;
    int operation;
    long operations; // of all episodes
    char message[1000];

    void write(const std::string& text) { std::snprintf(message, sizeof message, "%s", text.c_str()); }
};
using SharedReport = Shared<Report>;

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
            report->write(mismatch.what);
            _exit(kFailed);
        } catch (...) {
            report->write("something was thrown");
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
        report->write(text.str());
    }
    return true;
}

// Returns whether the episode fails. Notes the operation at which it fails.
bool episodeFails(const SharedReport& report, const Episode& episode, const Performance& perform,
                  bool isQuiet) {
    return failsInChild(report, kReplaySeconds, isQuiet,
                        [&] { perform(episode, [&](int i) { report->operation = i; }); });
}

// Returns `failing` without operations that the failure does not need. Tries to leave out one sequence of
// operations after the other: first sequences of half the length of `failing`, then shorter ones, and at last
// single operations. Ends when the time is up.
Episode shrunk(const SharedReport& report, Episode failing, const Performance& perform) {
    const auto end = std::chrono::steady_clock::now() + kShrinkTime;
    bool shrinks = true;
    for (std::size_t length = failing.operations.size() / 2; length > 0;
         length = shrinks && length == 1 ? 1 : length / 2) {
        shrinks = false;
        for (std::size_t at = 0; at < failing.operations.size();) {
            if (std::chrono::steady_clock::now() > end)
                return failing;
            Episode fewer = failing;
            const auto first = fewer.operations.begin() + static_cast<std::ptrdiff_t>(at);
            fewer.operations.erase(
                first, first + static_cast<std::ptrdiff_t>(std::min(length, failing.operations.size() - at)));
            if (episodeFails(report, fewer, perform, true)) {
                failing = fewer;
                shrinks = true;
            } else {
                at += length;
            }
        }
    }
    return failing;
}

std::string described(const Episode& episode, const std::string& first, const std::string& last) {
    std::ostringstream text;
    text << episode.profile.name << ", " << episode.name << ": " << first << '\n'
         << episode.operations.size() << " operations remain, which end with: " << last << '\n';
    for (const Operation& operation : episode.operations)
        text << "  " << operation << '\n';
    return text.str();
}

// Describes the failing episode, which has failed at the reported operation.
std::string explained(const SharedReport& report, Episode episode, const Performance& perform) {
    const std::string first = report->message;
    const auto last = static_cast<std::size_t>(report->operation) + 1;
    if (last < episode.operations.size())
        episode.operations.resize(last);
    if (!episodeFails(report, episode, perform, true))
        return described(episode, first, "nothing when they are done alone");
    episode = shrunk(report, episode, perform);
    episodeFails(report, episode, perform, false);
    return described(episode, first, report->message);
}

} // namespace

std::uint64_t seedOf(std::uint64_t seed, long episode) {
    std::uint64_t x = seed + 0x9E3779B97F4A7C15U * (static_cast<std::uint64_t>(episode) + 1);
    x = (x ^ (x >> 30U)) * 0xBF58476D1CE4E5B9U;
    x = (x ^ (x >> 27U)) * 0x94D049BB133111EBU;
    return x ^ (x >> 31U);
}

Result runEpisodes(long count, const std::function<Episode(long)>& episode, const Performance& perform) {
    const SharedReport report;
    const bool failed = failsInChild(report, kEpisodeSeconds, false, [&] {
        for (long number = 0; number < count; ++number) {
            alarm(kEpisodeSeconds);
            report->episode = number;
            report->operation = 0;
            perform(episode(number), [&](int i) {
                report->operation = i;
                ++report->operations;
            });
        }
    });
    const long operations = report->operations;
    return {failed ? explained(report, episode(report->episode), perform) : std::string(), operations};
}

} // namespace kvmodel
