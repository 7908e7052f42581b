// Replays the inputs of the corpus. Checks that a difference between two builds is found and reduced.
#include "tests/selectcontext/fuzz/Bytes.h"
#include "tests/selectcontext/fuzz/Lockstep.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace {

using kvmodel::Bytes;
using kvmodel::Episode;
using kvmodel::Lockstep;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

std::string textOf(const Episode& episode) {
    std::ostringstream text;
    text << episode.profile.name << '\n';
    for (const kvmodel::Operation& operation : episode.operations)
        text << operation << '\n';
    return text.str();
}

std::vector<std::filesystem::path> corpus() {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(KV_FUZZ_CORPUS))
        files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

Bytes bytesOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

Episode randomEpisode(long number) {
    return kvmodel::episodeOf(kvmodel::randomBytes(kvmodel::seedOf(1, number)), "random");
}

kvmodel::Result performAll(const Lockstep& lockstep, long count,
                           const std::function<Episode(long)>& episode) {
    return kvmodel::runEpisodes(count, episode, [&](const Episode& each, const kvmodel::Progress& progress) {
        lockstep.perform(each, progress);
    });
}

TEST(FuzzBytes, NoBytesAreAnEpisodeWithoutOperations) {
    EXPECT_THAT(kvmodel::episodeOf({}, "").operations, IsEmpty());
}

TEST(FuzzBytes, AnyFirstByteChoosesAProfile) {
    for (int first = 0; first < 256; ++first) {
        const Episode episode = kvmodel::episodeOf({static_cast<unsigned char>(first), 1, 1}, "");
        EXPECT_GT(episode.profile.idCount, 0) << first;
        EXPECT_GT(episode.profile.fullEvery, 0) << first;
    }
}

TEST(FuzzBytes, EqualBytesAreEqualOperations) {
    const Bytes bytes = kvmodel::randomBytes(1);
    EXPECT_EQ(textOf(kvmodel::episodeOf(bytes, "")), textOf(kvmodel::episodeOf(bytes, "")));
    EXPECT_NE(textOf(kvmodel::episodeOf(bytes, "")), textOf(kvmodel::episodeOf(kvmodel::randomBytes(2), "")));
}

TEST(FuzzBytes, ArgumentsAfterTheLastByteAreZero) {
    const Episode cut = kvmodel::episodeOf({0, 0}, "");
    ASSERT_THAT(cut.operations, SizeIs(1));
    EXPECT_EQ(textOf(cut), textOf(kvmodel::episodeOf({0, 0, 0, 0}, "")));
}

TEST(FuzzBytes, AChangeAtTheEndLeavesTheOperationsBefore) {
    Bytes bytes = kvmodel::randomBytes(3);
    const std::string before = textOf(kvmodel::episodeOf(bytes, ""));
    bytes.push_back(1);
    const std::string after = textOf(kvmodel::episodeOf(bytes, ""));
    EXPECT_EQ(after.substr(0, before.rfind(": ")), before.substr(0, before.rfind(": ")));
}

TEST(FuzzBytes, RandomBytesMakeOperationsOfEveryKindAndEveryProfile) {
    std::string all;
    for (long number = 0; number < 2000; ++number)
        all += textOf(randomEpisode(number));
    for (const char* profile : {"small sets", "equal ids\n", "middle sets", "sets across pages", "long runs",
                                "equal ids in long runs"})
        EXPECT_THAT(all.find(profile), Not(std::string::npos)) << profile;
#define KV_MODEL_EXPECT_KIND(name, roles, small, middle, large, runs)                                        \
    EXPECT_NE(all.find("\n" #name ":"), std::string::npos) << #name;
    KV_MODEL_OPERATIONS(KV_MODEL_EXPECT_KIND)
#undef KV_MODEL_EXPECT_KIND
}

TEST(Fuzz, TheBuildsAndTheirModelsAgreeOnTheCorpus) {
    const Lockstep lockstep;
    const auto files = corpus();
    ASSERT_THAT(files, Not(IsEmpty()));
    const kvmodel::Result result = performAll(lockstep, static_cast<long>(files.size()), [&](long i) {
        const auto& path = files[static_cast<std::size_t>(i)];
        return kvmodel::episodeOf(bytesOf(path), path.filename());
    });
    EXPECT_EQ(result.failure, "");
    EXPECT_GT(result.operations, 0);
}

TEST(Fuzz, FailuresEndCallsOfTheLibrary) {
    const Lockstep lockstep;
    EXPECT_EQ(performAll(lockstep, 20, randomEpisode).failure, "");
    EXPECT_GT(lockstep.counts().failedCalls, 0);
}

TEST(Fuzz, ADifferenceBetweenTheBuildsIsFoundAndReduced) {
    const Lockstep lockstep;
    lockstep.plantDifference();
    const kvmodel::Result result = performAll(lockstep, 100, randomEpisode);
    EXPECT_THAT(result.failure, HasSubstr("the builds differ"));
    EXPECT_THAT(result.failure, HasSubstr("a planted difference"));
    EXPECT_LE(std::count(result.failure.begin(), result.failure.end(), '\n'), 2 + 4) << result.failure;
}

} // namespace
