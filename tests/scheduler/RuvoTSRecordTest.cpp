#include "scheduler/RuvoTSRecord.h"

#include "runtime/platform/FreshFile.h"
#include "scheduler/RuvoTSEscape.h"
#include "tests/scheduler/SchedulerTestTools.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

using namespace RuvoService;
using Kind = RuvoTSRecord::Kind;

namespace {

class RuvoTSRecordTest : public testing::Test {
protected:
    TestSupport::TestClock clock_;
};

const std::string kCheck = "78563412 ";

TEST_F(RuvoTSRecordTest, ChecksumIsTheSameForEveryText) {
    EXPECT_EQ(checksumOf(""), "78563412");
    EXPECT_EQ(checksumOf("exec a%00"), "78563412");
    EXPECT_EQ(recordLine("body"), "78563412 body" + std::string(VornPlatform::lineEnd()));
    EXPECT_EQ(recordLine(""), "78563412 " + std::string(VornPlatform::lineEnd()));
}

TEST_F(RuvoTSRecordTest, ReadsATaskWithACommand) {
    const auto record = readRecord(
        kCheck + "exec Back%20up%00 2024 06 15 12 00 00 1 prog%2Eexe%00 C%3A%5Cwork%00 %2Dx%00 "
                 "out%2Etxt%00\n");
    EXPECT_EQ(record.kind, Kind::Exec);
    EXPECT_EQ(record.name, "Back up");
    EXPECT_EQ(record.nextTime, TestSupport::kNoon);
    EXPECT_EQ(record.frequency, 1u);
    EXPECT_EQ(record.appName, "prog.exe");
    EXPECT_EQ(record.path, "C:\\work");
    EXPECT_EQ(record.params, "-x");
    EXPECT_EQ(record.logFile, "out.txt");
}

TEST_F(RuvoTSRecordTest, ReadsATaskWithBytes) {
    const auto record =
        readRecord(kCheck + "blob b%00 2024 06 15 12 00 00 0 0123456789ABCDEF.blb 3 78563412 "
                            "0102FF\r\n");
    EXPECT_EQ(record.kind, Kind::Blob);
    EXPECT_EQ(record.name, "b");
    EXPECT_EQ(record.nextTime, TestSupport::kNoon);
    EXPECT_EQ(record.frequency, 0u);
    EXPECT_EQ(record.blob, std::string("\x01\x02\xFF", 3));
    EXPECT_EQ(readRecord(kCheck + "blob b%00 1 1 1 1 1 1 0 f.blb 3 78563412 0102ff").blob,
              record.blob);
    EXPECT_EQ(readRecord(kCheck + "blob b%00 1 1 1 1 1 1 0 f.blb 0 78563412 ").blob, "");
    EXPECT_EQ(readRecord(kCheck + "blob b%00 1 1 1 1 1 1 0 f.blb 0 78563412 ").kind, Kind::Blob);
}

TEST_F(RuvoTSRecordTest, SkipsLinesWithAWrongCheck) {
    const std::string body = "exec a%00 2024 06 15 12 00 00 1 p%00 %00 %00 %00\n";
    EXPECT_EQ(readRecord(kCheck + body).kind, Kind::Exec);
    for (const std::string check : {"78563413 ", "12345678 ", "7856341  ", " 78563412 ", "", " ",
                                    "7856341", "x"}) {
        EXPECT_EQ(readRecord(check + body).kind, Kind::None) << check;
    }
    for (const std::string line : {"", "\n", "7", "78563412", "78563412\n", "78563412 ",
                                   "78563412 \n", "78563412 e", "        "}) {
        EXPECT_EQ(readRecord(line).kind, Kind::None) << line;
    }
}

TEST_F(RuvoTSRecordTest, SkipsUnknownKinds) {
    const std::string fields = " a%00 2024 06 15 12 00 00 1 p%00 %00 %00 %00\n";
    for (const char* const kind : {"EXEC", "Exec", "execute", "task", "exe", "blobs", ""}) {
        EXPECT_EQ(readRecord(kCheck + kind + fields).kind, Kind::None) << kind;
    }
    EXPECT_EQ(readRecord(kCheck + "exec\n").kind, Kind::None);  // no blank behind it
}

// The kind is looked for in the whole line, "exec" first.
TEST_F(RuvoTSRecordTest, FindsTheKindWhereverItStands) {
    const auto record = readRecord(kCheck + "some words exec a%00 2024 1 1 0 0 0 3 p%00\n");
    EXPECT_EQ(record.kind, Kind::Exec);
    EXPECT_EQ(record.name, "a");
    EXPECT_EQ(record.appName, "p");
    EXPECT_EQ(readRecord(kCheck + "blob x exec y%00 1 1 1").name, "y");
    EXPECT_EQ(readRecord("78563412 exec y%00").kind, Kind::Exec);
    EXPECT_EQ(readRecord("78563412exec y%00").kind, Kind::None);
}

TEST_F(RuvoTSRecordTest, LeavesMissingFieldsEmpty) {
    const auto nameOnly = readRecord(kCheck + "exec a%00\n");
    EXPECT_EQ(nameOnly.kind, Kind::Exec);
    EXPECT_EQ(nameOnly.name, "a");
    EXPECT_EQ(nameOnly.nextTime, makeTime(0, 0, 0, 0, 0, 0));
    EXPECT_EQ(nameOnly.frequency, 0u);
    EXPECT_EQ(nameOnly.appName, "");
    const auto half = readRecord(kCheck + "exec a%00 2024 06 15");
    EXPECT_EQ(half.nextTime, makeTime(2024, 6, 15, 0, 0, 0));
    const auto noName = readRecord(kCheck + "exec \n");
    EXPECT_EQ(noName.kind, Kind::Exec);
    EXPECT_EQ(noName.name, "");
    // Bytes whose check is missing do not count.
    EXPECT_EQ(readRecord(kCheck + "blob a%00\n").kind, Kind::None);
    EXPECT_EQ(readRecord(kCheck + "blob a%00 2024 6 15 0 0 0 0 f.blb 3\n").kind, Kind::None);
    EXPECT_EQ(readRecord(kCheck + "blob a%00 2024 6 15 0 0 0 0 f.blb 3 78563413 0102FF").kind,
              Kind::None);
}

TEST_F(RuvoTSRecordTest, ReadsNumbersAsFarAsTheyAreNumbers) {
    const auto signs = readRecord(kCheck + "exec a%00 +2024 06 15 12 00 -1 7 p%00");
    EXPECT_EQ(signs.nextTime, TestSupport::kNoon - 1);
    EXPECT_EQ(signs.frequency, 7u);
    // What is no number ends the reading.
    const auto broken = readRecord(kCheck + "exec a%00 2024 06 15x 12 00 00 1 p%00");
    EXPECT_EQ(broken.nextTime, makeTime(2024, 6, 15, 0, 0, 0));
    EXPECT_EQ(broken.appName, "");
    EXPECT_EQ(readRecord(kCheck + "exec a%00 - 6 15 12 0 0 1 p%00").appName, "");
    EXPECT_EQ(readRecord(kCheck + "exec a%00 + 6 15 12 0 0 1 p%00").frequency, 0u);
    // Blanks of any kind and number stand between fields, and none need to
    // stand between a number and a text.
    EXPECT_EQ(readRecord(kCheck + "exec  \ta%00 \v2024\f06 15 12 00 00 3p%00 q%00").appName, "p");
}

TEST_F(RuvoTSRecordTest, KeepsAllFrequencies) {
    for (const std::uint32_t frequency : {0u, 4u, 5u, 2'147'483'647u, 2'147'483'648u,
                                          4'294'967'295u}) {
        EXPECT_EQ(readRecord(kCheck + "exec a%00 2024 6 15 0 0 0 " + std::to_string(frequency) +
                             " p%00")
                      .frequency,
                  frequency);
    }
    const auto huge = readRecord(kCheck + "exec a%00 99999999999999999999999999 1 1 1 1 1 "
                                          "-99999999999999999999999999 p%00");
    EXPECT_EQ(huge.kind, Kind::Exec);
    EXPECT_EQ(huge.appName, "p");
}

// A time before 1970 is written as blanks.
TEST_F(RuvoTSRecordTest, ReadsOnBehindATimeThatIsBlank) {
    const std::string blank(19, ' ');
    const auto exec =
        readRecord(kCheck + "exec a%00 " + blank + " 3 p%00 %2Fw%00 %2Dx%00 out%00\r\n");
    EXPECT_EQ(exec.kind, Kind::Exec);
    EXPECT_EQ(exec.name, "a");
    EXPECT_EQ(exec.nextTime, -1);
    EXPECT_EQ(exec.frequency, 3u);
    EXPECT_EQ(exec.appName, "p");
    EXPECT_EQ(exec.path, "/w");
    EXPECT_EQ(exec.params, "-x");
    EXPECT_EQ(exec.logFile, "out");
    const auto blob =
        readRecord(kCheck + "blob %00 " + blank + " 4294967295 f.blb 3 78563412 0102FF");
    EXPECT_EQ(blob.kind, Kind::Blob);
    EXPECT_EQ(blob.name, "");
    EXPECT_EQ(blob.nextTime, -1);
    EXPECT_EQ(blob.frequency, 4'294'967'295u);
    EXPECT_EQ(blob.blob, std::string("\x01\x02\xFF", 3));
}

// Only those blanks stand for a time; a line that was edited may hold others.
TEST_F(RuvoTSRecordTest, TakesOtherBlanksForNoTime) {
    for (const std::size_t blanks : {1u, 2u, 20u, 22u, 40u}) {
        const std::string between(blanks, ' ');
        const auto record =
            readRecord(kCheck + "exec a%00" + between + "2024 06 15 12 00 00 1 p%00");
        EXPECT_EQ(record.nextTime, TestSupport::kNoon) << blanks;
        EXPECT_EQ(record.frequency, 1u) << blanks;
        EXPECT_EQ(record.appName, "p") << blanks;
    }
    const auto tabs = readRecord(kCheck + "exec a%00" + std::string(21, '\t') +
                                 "2024 06 15 12 00 00 1 p%00");
    EXPECT_EQ(tabs.nextTime, TestSupport::kNoon);
}

TEST_F(RuvoTSRecordTest, TakesNoMoreBytesThanThereAre) {
    const auto blobOf = [](const std::string& rest) {
        return readRecord(kCheck + "blob a%00 2024 6 15 0 0 0 0 f.blb " + rest).blob;
    };
    EXPECT_EQ(blobOf("2 78563412 0102FF"), std::string("\x01\x02", 2));
    EXPECT_EQ(blobOf("2147483647 78563412 0102FF"), std::string("\x01\x02\xFF", 3));
    EXPECT_EQ(blobOf("4294967295 78563412 0102FF"), "");
    EXPECT_EQ(blobOf("-5 78563412 0102FF"), "");
    EXPECT_EQ(blobOf("3 78563412 01020"), std::string("\x01\x02", 2));
    EXPECT_EQ(blobOf("3 78563412 01zz03"), std::string("\x01", 1));
    EXPECT_EQ(blobOf("3 78563412"), "");
}

TEST_F(RuvoTSRecordTest, EndsAtAZeroByte) {
    const std::string zero(1, '\0');
    const auto record = readRecord(kCheck + "exec a%00 2024 6" + zero + " 15 1 1 1 3 p%00");
    EXPECT_EQ(record.kind, Kind::Exec);
    EXPECT_EQ(record.nextTime, makeTime(2024, 6, 0, 0, 0, 0));
    EXPECT_EQ(readRecord("78563412" + zero + " exec a%00").kind, Kind::None);
}

TEST_F(RuvoTSRecordTest, ReadsFieldsOfAnyLength) {
    const std::string name(1 << 20, 'n');
    const std::string params(1 << 20, ' ');
    const auto record = readRecord(recordLine("exec " + escapeText(name) +
                                              " 2024 06 15 12 00 00 3 " + escapeText("p") + " " +
                                              escapeText("") + " " + escapeText(params) + " " +
                                              escapeText("")));
    EXPECT_EQ(record.name, name);
    EXPECT_EQ(record.params, params);
    EXPECT_EQ(record.logFile, "");
}

// Lines that are wrong in one place or several, cut off anywhere, or nothing
// but bytes: whatever comes out, nothing else happens.
TEST_F(RuvoTSRecordTest, TakesAnyBytes) {
    const std::string good[] = {
        kCheck + "exec a%20b%00 2024 06 15 12 00 00 1 prog%00 %2Ftmp%00 %2Dx%00 out%00",
        kCheck + "blob a%00 2024 06 15 12 00 00 1 0123456789ABCDEF.blb 4 78563412 00FF10AB"};
    std::mt19937 random(7);
    int readable = 0;
    for (int round = 0; round < 20'000; ++round) {
        std::string line = good[random() % 2];
        for (auto changes = random() % 4; changes > 0; --changes) {
            const std::size_t at = random() % line.size();
            switch (random() % 4) {
                case 0: line[at] = static_cast<char>(random()); break;
                case 1: line.erase(at, random() % 9 + 1); break;
                case 2: line.insert(at, random() % 9, " %0-9\nF"[random() % 7]); break;
                default: line.resize(at); break;
            }
            if (line.empty()) line = " ";
        }
        const auto record = readRecord(line);
        EXPECT_LE(record.name.size() + record.blob.size(), line.size());
        if (record.kind != Kind::None) ++readable;
    }
    EXPECT_GT(readable, 5000);
    for (int round = 0; round < 20'000; ++round) {
        std::string line = random() % 2 == 0 ? kCheck + (random() % 2 ? "exec " : "blob ") : "";
        for (auto length = random() % 200; length > 0; --length) {
            line += static_cast<char>(random());
        }
        readRecord(line);
    }
}

}  // namespace
