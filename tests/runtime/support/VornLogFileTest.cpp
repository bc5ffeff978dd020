#include "runtime/support/VornLogFile.h"

#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

using namespace VornSupport;
using std::chrono::milliseconds;
using std::chrono::seconds;
using TestSupport::readFile;
using VornPlatform::OsCondition;
using VornPlatform::OsError;

namespace {

// An error number of this system that means `condition`.
OsError errorOf(OsCondition condition) {
    for (int code = 1; code < 12000; ++code) {
        if (OsError(code).condition() == condition) return OsError(code);
    }
    throw std::logic_error("no such error here");
}

// A disk whose space, names and errors the test decides on.
class FakeStorage : public VornLogStorage {
public:
    struct Disk {
        std::map<std::string, std::string> files;
        std::optional<std::size_t> space;  // bytes left; none: no limit
        OsError openError;
        OsError writeError;
        OsError renameError;
        bool regular = true;
        int opens = 0;
        int writes = 0;
        int checks = 0;
        std::string lastWrite;
    };

    explicit FakeStorage(Disk& disk) : disk_(disk) {}

    OsError open(const std::string& path) override {
        ++disk_.opens;
        if (disk_.openError) return disk_.openError;
        if (!disk_.files.contains(path)) disk_.files[path] = "";
        open_ = &disk_.files[path];
        return {};
    }
    void close() override { open_ = nullptr; }
    bool isOpen() const override { return open_ != nullptr; }
    OsError write(std::string_view bytes, std::size_t& written) override {
        ++disk_.writes;
        written = 0;
        if (disk_.writeError) return disk_.writeError;
        written = std::min(bytes.size(), disk_.space.value_or(bytes.size()));
        if (disk_.space) *disk_.space -= written;
        open_->append(bytes.substr(0, written));
        disk_.lastWrite = bytes.substr(0, written);
        return written < bytes.size() ? errorOf(OsCondition::NoSpace) : OsError{};
    }
    OsError truncate() override {
        if (disk_.renameError) return disk_.renameError;
        open_->clear();
        return {};
    }
    std::optional<std::uint64_t> size() const override {
        if (!disk_.regular) return {};
        return open_->size();
    }
    bool isAt(const std::string& path) const override {
        ++disk_.checks;
        const auto found = disk_.files.find(path);
        return found != disk_.files.end() && &found->second == open_;
    }
    OsError rename(const std::string& from, const std::string& to) override {
        if (disk_.renameError) return disk_.renameError;
        const auto found = disk_.files.find(from);
        if (found == disk_.files.end()) return errorOf(OsCondition::NotFound);
        disk_.files[to] = found->second;
        disk_.files.erase(from);
        return {};
    }

private:
    Disk& disk_;
    std::string* open_ = nullptr;
};

std::string lostLine(std::size_t lost) { return "lost " + std::to_string(lost) + "\n"; }

class VornLogFileTest : public testing::Test {
protected:
    void write(const std::string& line) { file_.write(line, now_); }
    const std::string& content(const std::string& path = "log") { return disk_.files[path]; }

    FakeStorage::Disk disk_;
    VornLogFile file_{&lostLine, std::make_unique<FakeStorage>(disk_)};
    VornLogFile::TimePoint now_{seconds(1000)};
};

TEST_F(VornLogFileTest, WritesEachLineWithOneCall) {
    file_.configure("log", 0, 0);
    write("one\n");
    write("two\n");
    EXPECT_EQ(content(), "one\ntwo\n");
    EXPECT_EQ(disk_.writes, 2);
    EXPECT_EQ(disk_.opens, 1);
}

TEST_F(VornLogFileTest, HoldsLinesUntilThereIsAFile) {
    write("one\n");
    write("two\n");
    EXPECT_EQ(file_.heldBytes(), 8u);
    EXPECT_FALSE(file_.flush(now_));
    file_.configure("log", 0, 0);
    write("three\n");
    EXPECT_EQ(content(), "one\ntwo\nthree\n");
    EXPECT_EQ(file_.heldBytes(), 0u);
}

TEST_F(VornLogFileTest, FlushWritesWhatIsHeld) {
    write("one\n");
    file_.configure("log", 0, 0);
    EXPECT_TRUE(file_.flush(now_));
    EXPECT_EQ(content(), "one\n");
}

TEST_F(VornLogFileTest, CatchesUpAfterAFullDisk) {
    file_.configure("log", 0, 0);
    disk_.space = 4;
    write("one\n");
    write("two\n");
    write("three\n");
    EXPECT_EQ(content(), "one\n");
    disk_.space.reset();
    now_ += seconds(1);
    write("four\n");
    EXPECT_EQ(content(), "one\ntwo\nthree\nfour\n");
    EXPECT_EQ(file_.heldBytes(), 0u);
}

TEST_F(VornLogFileTest, CompletesALineThatTheDiskCutOff) {
    file_.configure("log", 0, 0);
    disk_.space = 6;
    write("one\n");
    write("second\n");
    EXPECT_EQ(content(), "one\nse");
    disk_.space = 2;
    now_ += seconds(1);
    write("three\n");
    EXPECT_EQ(content(), "one\nseco");
    disk_.space.reset();
    EXPECT_TRUE(file_.flush(now_));
    EXPECT_EQ(content(), "one\nsecond\nthree\n");
}

TEST_F(VornLogFileTest, TriesAFullDiskOnceASecondOnly) {
    file_.configure("log", 0, 0);
    disk_.writeError = errorOf(OsCondition::NoSpace);
    for (int i = 0; i < 100; ++i) {
        write("line\n");
        now_ += milliseconds(1);
    }
    EXPECT_EQ(disk_.writes, 1);
    now_ += seconds(1);
    write("line\n");
    write("line\n");
    EXPECT_EQ(disk_.writes, 2);
}

TEST_F(VornLogFileTest, BoundsWhatItHoldsAndCountsWhatIsLost) {
    file_.configure("log", 0, 0);
    disk_.writeError = errorOf(OsCondition::NoSpace);
    const std::string line = std::string(1023, 'x') + '\n';
    for (int i = 0; i < 1034; ++i) write(line);
    EXPECT_EQ(file_.heldBytes(), VornLogFile::kMostHeld);
    EXPECT_EQ(file_.lostLines(), 10u);
    write("short\n");
    EXPECT_EQ(file_.lostLines(), 11u);
    disk_.writeError = {};
    now_ += seconds(1);
    write("after\n");
    EXPECT_EQ(content().size(), VornLogFile::kMostHeld + 14);
    EXPECT_EQ(content().substr(VornLogFile::kMostHeld), "lost 11\nafter\n");
    EXPECT_EQ(file_.lostLines(), 0u);
    EXPECT_EQ(file_.heldBytes(), 0u);
}

TEST_F(VornLogFileTest, KeepsOrderWhenTheDiskIsFullAgainAtTheCount) {
    file_.configure("log", 0, 0);
    disk_.writeError = errorOf(OsCondition::NoSpace);
    write(std::string(VornLogFile::kMostHeld, 'x'));
    write("lost\n");
    disk_.writeError = {};
    disk_.space = VornLogFile::kMostHeld + 3;
    now_ += seconds(1);
    write("held\n");
    EXPECT_EQ(content().substr(VornLogFile::kMostHeld), "los");
    disk_.space.reset();
    EXPECT_TRUE(file_.flush(now_));
    EXPECT_EQ(content().substr(VornLogFile::kMostHeld), "lost 1\nheld\n");
}

TEST_F(VornLogFileTest, MakesAVanishedFileAnewWithinASecond) {
    file_.configure("log", 0, 0);
    write("one\n");
    disk_.files["moved"] = "";
    disk_.files["moved"].swap(disk_.files["log"]);
    disk_.files.erase("log");
    now_ += milliseconds(1001);
    write("two\n");
    EXPECT_EQ(content(), "two\n");
}

TEST_F(VornLogFileTest, LooksForItsFileOnceASecondOnly) {
    file_.configure("log", 0, 0);
    for (int i = 0; i < 100; ++i) {
        write("line\n");
        now_ += milliseconds(5);
    }
    EXPECT_EQ(disk_.checks, 0);
    now_ += seconds(1);
    write("line\n");
    write("line\n");
    EXPECT_EQ(disk_.checks, 1);
    EXPECT_EQ(disk_.opens, 1);
}

TEST_F(VornLogFileTest, WritesACutLineWholeIntoANewFile) {
    file_.configure("log", 0, 0);
    disk_.space = 3;
    write("second\n");
    EXPECT_EQ(content(), "sec");
    disk_.space.reset();
    disk_.files["moved"] = content();
    disk_.files.erase("log");
    now_ += seconds(2);
    EXPECT_TRUE(file_.flush(now_));
    EXPECT_EQ(content(), "second\n");
}

TEST_F(VornLogFileTest, TriesToOpenOnceASecondOnly) {
    disk_.openError = errorOf(OsCondition::NotFound);
    file_.configure("log", 0, 0);
    for (int i = 0; i < 100; ++i) write("line\n");
    EXPECT_EQ(disk_.opens, 1);
    now_ += seconds(1);
    disk_.openError = {};
    write("line\n");
    EXPECT_EQ(disk_.opens, 2);
    EXPECT_EQ(content().size(), 101u * 5);
}

TEST_F(VornLogFileTest, OpensAnewAfterAnErrorThatWillNotPass) {
    file_.configure("log", 0, 0);
    write("one\n");
    disk_.writeError = errorOf(OsCondition::Closed);
    write("two\n");
    disk_.writeError = {};
    now_ += seconds(1);
    write("three\n");
    EXPECT_EQ(disk_.opens, 2);
    EXPECT_EQ(content(), "one\ntwo\nthree\n");
}

TEST_F(VornLogFileTest, OpensItsFileWhenAskedTo) {
    file_.open(now_);
    EXPECT_EQ(disk_.opens, 0);
    file_.configure("log", 0, 0);
    file_.open(now_);
    EXPECT_TRUE(disk_.files.contains("log"));
    file_.open(now_);
    write("one\n");
    EXPECT_EQ(disk_.opens, 1);
    EXPECT_EQ(content(), "one\n");
    EXPECT_FALSE(file_.problem());
}

TEST_F(VornLogFileTest, KnowsWhyItsFileCannotBeOpened) {
    disk_.openError = errorOf(OsCondition::NotFound);
    file_.configure("log", 0, 0);
    EXPECT_FALSE(file_.problem());
    file_.open(now_);
    EXPECT_EQ(file_.problem().code(), disk_.openError.code());
    disk_.openError = {};
    now_ += seconds(1);
    write("one\n");
    EXPECT_FALSE(file_.problem());
    disk_.openError = errorOf(OsCondition::NotFound);
    file_.configure("other", 0, 0);
    write("two\n");
    EXPECT_TRUE(file_.problem());
    file_.configure("third", 0, 0);
    EXPECT_FALSE(file_.problem());
}

TEST_F(VornLogFileTest, KnowsWhyItsFileCannotBeWritten) {
    file_.configure("log", 0, 0);
    disk_.space = 4;
    write("one\n");
    EXPECT_FALSE(file_.problem());
    write("two\n");
    EXPECT_EQ(file_.problem().condition(), OsCondition::NoSpace);
    disk_.space.reset();
    EXPECT_TRUE(file_.flush(now_));
    EXPECT_FALSE(file_.problem());
    disk_.writeError = errorOf(OsCondition::WouldBlock);  // a slow reader is no trouble
    write("three\n");
    EXPECT_FALSE(file_.problem());
    disk_.writeError = errorOf(OsCondition::Closed);
    EXPECT_FALSE(file_.flush(now_));
    EXPECT_EQ(file_.problem().condition(), OsCondition::Closed);
}

TEST_F(VornLogFileTest, RotatesBeforeTheLimitIsPassed) {
    file_.configure("log", 10, 2);
    for (const char* line : {"line1\n", "line2\n", "line3\n", "line4\n"}) write(line);
    EXPECT_EQ(content("log"), "line4\n");
    EXPECT_EQ(content("log.1"), "line3\n");
    EXPECT_EQ(content("log.2"), "line2\n");
    EXPECT_FALSE(disk_.files.contains("log.3"));
}

TEST_F(VornLogFileTest, FillsAFileToItsLimit) {
    file_.configure("log", 12, 1);
    write("line1\n");
    write("line2\n");
    EXPECT_EQ(content("log"), "line1\nline2\n");
    write("x\n");
    EXPECT_EQ(content("log"), "x\n");
    EXPECT_EQ(content("log.1"), "line1\nline2\n");
}

TEST_F(VornLogFileTest, CountsWhatWasInTheFileBefore) {
    disk_.files["log"] = "old old old\n";
    file_.configure("log", 12, 1);
    write("new\n");
    EXPECT_EQ(content("log"), "new\n");
    EXPECT_EQ(content("log.1"), "old old old\n");
}

TEST_F(VornLogFileTest, NoticesThatTheFileWasEmptiedByOthers) {
    file_.configure("log", 12, 1);
    write("line1\n");
    write("line2\n");
    disk_.files["log"].clear();
    now_ += seconds(1);
    write("line3\n");
    EXPECT_EQ(content("log"), "line3\n");
    EXPECT_FALSE(disk_.files.contains("log.1"));
}

TEST_F(VornLogFileTest, EmptiesTheFileWhenNoOldOnesAreKept) {
    file_.configure("log", 10, 0);
    for (const char* line : {"line1\n", "line2\n", "line3\n"}) write(line);
    EXPECT_EQ(content("log"), "line3\n");
    EXPECT_EQ(disk_.files.size(), 1u);
}

TEST_F(VornLogFileTest, GivesALineLargerThanTheLimitAFileOfItsOwn) {
    file_.configure("log", 4, 1);
    write("a large line\n");
    write("b\n");
    EXPECT_EQ(content("log"), "b\n");
    EXPECT_EQ(content("log.1"), "a large line\n");
}

TEST_F(VornLogFileTest, NeverRotatesWithoutALimit) {
    file_.configure("log", 0, 3);
    for (int i = 0; i < 100; ++i) write("line\n");
    EXPECT_EQ(content("log").size(), 500u);
    EXPECT_EQ(disk_.files.size(), 1u);
}

// Renaming a device, as the daemon's rights might allow, would be a disaster.
TEST_F(VornLogFileTest, NeverRenamesWhatIsNoRegularFile) {
    disk_.regular = false;
    file_.configure("log", 10, 1);
    for (int i = 0; i < 10; ++i) write("line\n");
    EXPECT_EQ(content("log").size(), 50u);
    EXPECT_EQ(disk_.files.size(), 1u);
}

TEST_F(VornLogFileTest, GoesOnInTheOldFileWhenItCannotBeRotated) {
    for (const int files : {0, 2}) {
        disk_ = {};
        now_ += seconds(10);
        file_.configure(files == 0 ? "log" : "other", 10, files);
        const std::string path = files == 0 ? "log" : "other";
        disk_.renameError = errorOf(OsCondition::AccessDenied);
        for (const char* line : {"line1\n", "line2\n", "line3\n"}) write(line);
        EXPECT_EQ(content(path), "line1\nline2\nline3\n");
        disk_.renameError = {};
        write("line4\n");
        EXPECT_EQ(content(path).size(), 24u) << "tried again at once";
        now_ += seconds(1);
        write("line5\n");
        EXPECT_EQ(content(path), "line5\n");
    }
}

TEST_F(VornLogFileTest, DoesNotRotateInTheMiddleOfALine) {
    file_.configure("log", 10, 1);
    disk_.space = 8;
    write("line1\n");
    write("x\n");
    write("y\n");
    disk_.space = 1;
    now_ += seconds(1);
    write("abcdefgh\n");  // rotates, then one byte fits
    disk_.space.reset();
    EXPECT_TRUE(file_.flush(now_));
    EXPECT_EQ(content("log.1") + content("log"), "line1\nx\ny\nabcdefgh\n");
    EXPECT_EQ(content("log").substr(0, 1), "a");
}

TEST_F(VornLogFileTest, AnotherPathTakesOverWhatIsHeld) {
    file_.configure("first", 0, 0);
    write("one\n");
    disk_.writeError = errorOf(OsCondition::NoSpace);
    write("two\n");
    disk_.writeError = {};
    file_.configure("second", 0, 0);
    write("three\n");
    EXPECT_EQ(content("first"), "one\n");
    EXPECT_EQ(content("second"), "two\nthree\n");
}

TEST_F(VornLogFileTest, BoundsTheNumberOfOldFiles) {
    file_.configure("log", 1, 1'000'000'000);
    write("1\n");
    write("2\n");
    EXPECT_EQ(content("log.1"), "1\n");
    file_.configure("log", 1, -5);
    write("3\n");
    EXPECT_EQ(content("log"), "3\n");
    EXPECT_EQ(content("log.1"), "1\n");
}

class VornLogFileOnDisk : public testing::Test {
protected:
    void write(std::string_view line) { file_.write(line, now_); }

    TestSupport::TemporaryDirectory directory_;
    const std::string path_ = directory_.file("r\xC3\xBCvo.log");
    VornLogFile file_{&lostLine};
    VornLogFile::TimePoint now_{seconds(1000)};
};

TEST_F(VornLogFileOnDisk, RotatesRealFiles) {
    file_.configure(path_, 12, 2);
    for (int i = 1; i <= 8; ++i) write("line" + std::to_string(i) + "\n");
    EXPECT_EQ(readFile(path_), "line7\nline8\n");
    EXPECT_EQ(readFile(path_ + ".1"), "line5\nline6\n");
    EXPECT_EQ(readFile(path_ + ".2"), "line3\nline4\n");
    EXPECT_FALSE(TestSupport::exists(path_ + ".3"));
}

TEST_F(VornLogFileOnDisk, EmptiesRealFiles) {
    file_.configure(path_, 12, 0);
    for (int i = 1; i <= 3; ++i) write("line" + std::to_string(i) + "\n");
    EXPECT_EQ(readFile(path_), "line3\n");
}

TEST_F(VornLogFileOnDisk, FollowsARenamedFile) {
    file_.configure(path_, 0, 0);
    write("one\n");
    std::filesystem::rename(TestSupport::toPath(path_), TestSupport::toPath(path_ + ".old"));
    write("two\n");
    now_ += seconds(1);
    write("three\n");
    EXPECT_EQ(readFile(path_ + ".old"), "one\ntwo\n");
    EXPECT_EQ(readFile(path_), "three\n");
}

TEST_F(VornLogFileOnDisk, WaitsForAMissingFolder) {
    const std::string folder = directory_.file("folder");
    file_.configure(folder + "/log", 0, 0);
    write("one\n");
    EXPECT_EQ(file_.heldBytes(), 4u);
    std::filesystem::create_directory(TestSupport::toPath(folder));
    now_ += seconds(1);
    write("two\n");
    EXPECT_EQ(readFile(folder + "/log"), "one\ntwo\n");
}

TEST_F(VornLogFileOnDisk, LetsOthersReadAndRemoveTheFile) {
    file_.configure(path_, 0, 0);
    write("one\n");
    EXPECT_EQ(readFile(path_), "one\n");
    EXPECT_TRUE(std::filesystem::remove(TestSupport::toPath(path_)));
}

}  // namespace
