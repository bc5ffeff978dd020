#include "scheduler/RuvoTSStore.h"

#include "runtime/net/VornNetLimits.h"
#include "runtime/platform/FileSteps.h"
#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

using namespace RuvoService;
using TestSupport::exists;
using TestSupport::LogCapture;
using TestSupport::readFile;
using TestSupport::StoreFolder;
using TestSupport::writeFile;

namespace {

using Lines = std::vector<std::string>;

class RuvoTSStoreTest : public testing::Test {
protected:
    bool write(const Lines& lines) {
        if (!store_.begin()) return false;
        for (const std::string& line : lines) {
            store_.buffer() += line;
            store_.settle();
        }
        return store_.finish();
    }

    StoreFolder folder_;
    RuvoTSStore store_;
};

Lines read(const std::string& file) {
    Lines lines;
    std::string reason;
    EXPECT_TRUE(RuvoTSStore::read(
        file, [&](std::string_view line) { lines.emplace_back(line); }, reason))
        << reason;
    return lines;
}

TEST_F(RuvoTSStoreTest, StandsInTheFolderOfTemporaryFiles) {
    EXPECT_EQ(TestSupport::toPath(RuvoTSStore::names().current),
              TestSupport::toPath(folder_.store()));
    EXPECT_EQ(TestSupport::toPath(RuvoTSStore::names().fresh),
              TestSupport::toPath(folder_.fresh()));
    EXPECT_EQ(TestSupport::toPath(RuvoTSStore::names().previous),
              TestSupport::toPath(folder_.previous()));
    for (const auto& nothing : {std::optional<std::string>(), std::optional<std::string>("")}) {
        const TestSupport::Variable unset("TEMP", nothing);
        EXPECT_EQ(RuvoTSStore::names().current, "RuvoTSEngineExecTasks.dat");
        EXPECT_EQ(RuvoTSStore::names().fresh, "RuvoTSEngineExecTasks.tmp");
        EXPECT_EQ(RuvoTSStore::names().previous, "RuvoTSEngineExecTasks.bak");
        EXPECT_EQ(RuvoTSStore::inTemporaryFolder("a.bat"), "a.bat");
    }
}

TEST_F(RuvoTSStoreTest, FollowsTheVariable) {
    const StoreFolder other;
    EXPECT_TRUE(write({"a\n"}));
    EXPECT_TRUE(exists(other.store()));
    EXPECT_FALSE(exists(folder_.store()));
}

TEST_F(RuvoTSStoreTest, KeepsThePreviousOne) {
    EXPECT_TRUE(write({"one\n", "two\n"}));
    EXPECT_EQ(readFile(folder_.store()), "one\ntwo\n");
    EXPECT_FALSE(exists(folder_.previous()));
    EXPECT_TRUE(write({"three\n"}));
    EXPECT_EQ(readFile(folder_.store()), "three\n");
    EXPECT_EQ(readFile(folder_.previous()), "one\ntwo\n");
    EXPECT_TRUE(write({}));
    EXPECT_EQ(readFile(folder_.store()), "");
    EXPECT_TRUE(exists(folder_.store()));
    EXPECT_EQ(readFile(folder_.previous()), "three\n");
    EXPECT_FALSE(exists(folder_.fresh()));
}

TEST_F(RuvoTSStoreTest, DropsWhatAnEarlierLifeLeftHalfWritten) {
    writeFile(folder_.fresh(), std::string(100'000, 'x'));
    EXPECT_TRUE(write({"one\n"}));
    EXPECT_EQ(readFile(folder_.store()), "one\n");
}

TEST_F(RuvoTSStoreTest, WritesMoreThanItGathers) {
    Lines lines;
    std::string all;
    for (int i = 0; i < 20'000; ++i) {
        lines.push_back(std::to_string(i) + std::string(80, 'x') + '\n');
        all += lines.back();
    }
    lines.push_back(std::string(5'000'000, 'y') + '\n');
    all += lines.back();
    EXPECT_TRUE(write(lines));
    EXPECT_EQ(readFile(folder_.store()), all);
    EXPECT_EQ(read(folder_.store()).size(), 20'001u);
}

using VornPlatform::FileStep;

std::vector<FileStep>& steps() {
    static std::vector<FileStep> all;
    return all;
}

// A system that stops at any moment keeps whole stores only when the bytes are on
// the disk before the name is, and the name before anybody is told.
TEST_F(RuvoTSStoreTest, IsOnTheDiskBeforeItTakesThePlaceOfTheOldOne) {
    EXPECT_TRUE(write({"old\n"}));
    steps().clear();
    VornPlatform::setFileStepsForTest([](FileStep step) { steps().push_back(step); });
    EXPECT_TRUE(write({"new\n", std::string(1'000'000, 'n') + '\n', "last\n"}));
    VornPlatform::setFileStepsForTest(nullptr);
    // However many writes there are, nothing is written behind the flush.
    steps().erase(std::unique(steps().begin(), steps().end()), steps().end());
    EXPECT_EQ(steps(), (std::vector<FileStep>{FileStep::Create, FileStep::Write,
                                              FileStep::FlushToDisk, FileStep::Close,
                                              FileStep::Replace, FileStep::FlushFolder}));
}

// ---- what cannot be written ------------------------------------------------------

TEST_F(RuvoTSStoreTest, KeepsTheOldStoreWhenTheNewOneCannotBeOpened) {
    EXPECT_TRUE(write({"old\n"}));
    EXPECT_TRUE(write({"older is bak\n"}));
    std::filesystem::create_directory(TestSupport::toPath(folder_.fresh()));
    EXPECT_FALSE(write({"new\n"}));
    EXPECT_EQ(readFile(folder_.store()), "older is bak\n");
    EXPECT_EQ(readFile(folder_.previous()), "old\n");
}

TEST_F(RuvoTSStoreTest, KeepsTheOldStoreWhenItCannotBeReplaced) {
    std::filesystem::create_directory(TestSupport::toPath(folder_.store()));
    writeFile(TestSupport::toText(TestSupport::toPath(folder_.store()) / "inside"), "");
    const LogCapture log(2);
    EXPECT_FALSE(write({"new\n"}));
    EXPECT_FALSE(exists(folder_.fresh()));  // nothing is left lying about
    ASSERT_EQ(log.texts(2).size(), 1u);
    EXPECT_TRUE(log.texts(2)[0].starts_with("RuvoTSTaskSet::recordTaskSet: cannot replace "));
}

TEST_F(RuvoTSStoreTest, LogsOnceAChangeOfCondition) {
    const LogCapture log(2);
    EXPECT_TRUE(write({"one\n"}));
    std::filesystem::create_directory(TestSupport::toPath(folder_.fresh()));
    for (int i = 0; i < 3; ++i) EXPECT_FALSE(write({"two\n"}));
    const std::string begin = "RuvoTSTaskSet::recordTaskSet: cannot write ";
    EXPECT_EQ(log.beginning(begin).size(), 1u);

    // Another cause.
    std::filesystem::remove(TestSupport::toPath(folder_.fresh()));
    {
        const TestSupport::Variable gone("TEMP", folder_.file("nowhere"));
        for (int i = 0; i < 3; ++i) EXPECT_FALSE(write({"two\n"}));
    }
    EXPECT_EQ(log.beginning(begin).size(), 2u);

    for (int i = 0; i < 3; ++i) EXPECT_TRUE(write({"two\n"}));
    EXPECT_EQ(log.count(2, "RuvoTSTaskSet::recordTaskSet: " + RuvoTSStore::names().current +
                               " is written again"),
              1u);
    EXPECT_EQ(log.texts(2).size(), 3u);
    std::filesystem::create_directory(TestSupport::toPath(folder_.fresh()));
    EXPECT_FALSE(write({"three\n"}));
    EXPECT_EQ(log.texts(2).size(), 4u);
}

// ---- reading ---------------------------------------------------------------------

TEST_F(RuvoTSStoreTest, ReadsLinesWithAndWithoutALastEnd) {
    EXPECT_EQ(read(folder_.file("missing")), Lines{});
    writeFile(folder_.store(), "");
    EXPECT_EQ(read(folder_.store()), Lines{});
    writeFile(folder_.store(), "one");
    EXPECT_EQ(read(folder_.store()), Lines{"one"});
    writeFile(folder_.store(), "one\n");
    EXPECT_EQ(read(folder_.store()), Lines{"one"});
    writeFile(folder_.store(), "one\r\n\ntwo\nthree");
    EXPECT_EQ(read(folder_.store()), (Lines{"one\r", "", "two", "three"}));
    writeFile(folder_.store(), "\n\n");
    EXPECT_EQ(read(folder_.store()), (Lines{"", ""}));
}

TEST_F(RuvoTSStoreTest, ReadsLinesAcrossTheEdgesOfItsBuffer) {
    constexpr std::size_t kBuffer = 256 * 1024;
    for (const std::size_t length : {kBuffer - 1, kBuffer, kBuffer + 1, 3 * kBuffer + 5}) {
        const std::string line(length, 'a');
        writeFile(folder_.store(), line + "\nb\n");
        EXPECT_EQ(read(folder_.store()), (Lines{line, "b"})) << length;
    }
}

TEST_F(RuvoTSStoreTest, ReadsAnyBytes) {
    std::mt19937 random(3);
    std::string bytes(3'000'000, '\0');
    for (char& c : bytes) c = static_cast<char>(random());
    writeFile(folder_.store(), bytes);
    std::string together;
    for (const std::string& line : read(folder_.store())) together += line + '\n';
    if (bytes.back() != '\n') together.pop_back();
    EXPECT_EQ(together, bytes);
}

TEST_F(RuvoTSStoreTest, KnowsTheLongestLineOfATask) {
    auto& limits = VornNet::VornNetLimits::getInstance();
    const std::size_t usual = RuvoTSStore::longestLine();
    EXPECT_GT(usual, 2 * std::size_t{limits.blockBytes} + 3 * std::size_t{limits.stringBytes});
    EXPECT_LT(usual, 3 * std::size_t{limits.blockBytes});
    const std::uint32_t before = limits.blockBytes;
    limits.blockBytes = 2 * before;
    EXPECT_EQ(RuvoTSStore::longestLine(), usual + 2 * std::size_t{before});
    limits.blockBytes = 10;
    EXPECT_EQ(RuvoTSStore::longestLine(), usual);  // what was let in comes back
    limits.blockBytes = before;
}

// No task that could be let in takes so much; what does is not gathered, but said,
// so that nobody writes a store without it.
TEST_F(RuvoTSStoreTest, LeavesOutLinesThatNoTaskHas) {
    const std::size_t longest = RuvoTSStore::longestLine();
    using Lengths = std::vector<std::size_t>;
    struct Case {
        std::size_t length;
        std::string rest;
        Lengths lengths;  // of the lines that are given out
    };
    for (const Case& one : {Case{longest, "\nlast\n", {5, longest, 4}},
                            Case{longest + 1, "\nlast\n", {5, 4}},
                            Case{longest + 3'000'000, "", {5}}}) {
        writeFile(folder_.store(), "first\n");
        const auto path = TestSupport::toPath(folder_.store());
        std::filesystem::resize_file(path, 6 + one.length);
        std::ofstream(path, std::ios::binary | std::ios::app) << one.rest;
        Lengths lengths;
        std::string reason;
        EXPECT_EQ(RuvoTSStore::read(
                      folder_.store(),
                      [&](std::string_view line) { lengths.push_back(line.size()); }, reason),
                  one.length <= longest);
        EXPECT_EQ(lengths, one.lengths);
        EXPECT_EQ(reason.starts_with("a line is longer than " + std::to_string(longest) +
                                     " bytes"),
                  one.length > longest)
            << reason;
    }
}

TEST_F(RuvoTSStoreTest, SaysWhatItCannotRead) {
    std::filesystem::create_directory(TestSupport::toPath(folder_.store()));
    std::string reason;
    EXPECT_FALSE(RuvoTSStore::read(folder_.store(), [](std::string_view) {}, reason));
    EXPECT_EQ(reason, "it is no file");
}

}  // namespace
