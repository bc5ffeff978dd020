// Any bytes as the store of the tasks: they are cut into lines, each is read as a
// task or passed over, and what has been read is written and read again unchanged.

#include "scheduler/RuvoTSBlobTask.h"
#include "scheduler/RuvoTSExecTask.h"
#include "scheduler/RuvoTSRecord.h"
#include "scheduler/RuvoTSStore.h"
#include "scheduler/RuvoTSTime.h"
#include "tests/fuzz/Check.h"
#include "tests/fuzz/Replay.h"
#include "tests/scheduler/TimeZoneScope.h"
#include "tests/support/TestSupport.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

using namespace RuvoService;
using FuzzTests::check;

namespace {

struct Scene {
    Scene() { setUtcOffset(utcOffsetMinutes()); }

    // The times of other zones that have changed their standard time move.
    const TestSupport::TimeZoneScope zone{"UTC0"};
    const TestSupport::TemporaryDirectory folder;
    const std::string file = folder.file("store.dat");
};

std::vector<std::string> linesOf(std::string_view text) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

std::vector<std::string> readStore(const std::string& file, std::string_view content) {
    TestSupport::writeFile(file, content);
    std::vector<std::string> lines;
    std::string reason;
    const bool read = RuvoTSStore::read(
        file, [&lines](std::string_view line) { lines.emplace_back(line); }, reason);
    check(read, "the store can be read: " + reason);
    return lines;
}

// The body that the task of the record writes. It is made without its timer.
std::string bodyOf(const RuvoTSRecord& record) {
    if (record.kind == RuvoTSRecord::Kind::Exec) {
        return VornSupport::makeCounted<RuvoTSExecTask>(record.name, record.nextTime,
                                                        record.frequency, record.appName,
                                                        record.path, record.params, record.logFile)
            ->serialize();
    }
    return VornSupport::makeCounted<RuvoTSBlobTask>(record.name, record.nextTime, record.frequency,
                                                    record.blob)
        ->serialize();
}

void checkEqual(const RuvoTSRecord& read, const RuvoTSRecord& again) {
    check(again.kind == read.kind, "a task keeps its kind");
    check(again.name == read.name, "a task keeps its name");
    check(again.nextTime == std::max(read.nextTime, -1), "a task keeps its time");
    check(again.frequency == read.frequency, "a task keeps its frequency");
    check(again.appName == read.appName, "a task keeps its command");
    check(again.path == read.path, "a task keeps its directory");
    check(again.params == read.params, "a task keeps its arguments");
    check(again.logFile == read.logFile, "a task keeps its log file");
    check(again.blob == read.blob, "a task keeps its bytes");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Scene scene;
    const std::string_view input(reinterpret_cast<const char*>(data), size);

    const auto lines = readStore(scene.file, input);
    check(lines == linesOf(input), "the lines of the store are those of the file");

    std::vector<RuvoTSRecord> records;
    std::string written;
    for (const std::string& line : lines) {
        const RuvoTSRecord record = readRecord(line);
        if (record.kind == RuvoTSRecord::Kind::None) continue;
        check(record.blob.size() <= line.size() / 2, "no bytes that do not stand in the line");
        appendRecordLine(written, bodyOf(record));
        records.push_back(record);
    }

    const auto again = readStore(scene.file, written);
    check(again.size() == records.size(), "one line a task");
    for (std::size_t i = 0; i < records.size(); ++i) checkEqual(records[i], readRecord(again[i]));
    return 0;
}
