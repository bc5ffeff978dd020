#include "scheduler/RuvoTSRecord.h"

#include "runtime/platform/FreshFile.h"
#include "runtime/support/VornHex.h"
#include "scheduler/RuvoTSEscape.h"

#include <algorithm>
#include <cstddef>
#include <limits>

namespace RuvoService {
namespace {

constexpr std::size_t kCheckSize = 8;
// A time before 1970 is written as blanks, with one before and one behind them.
constexpr std::size_t kNoTimeBlanks = 19 + 2;

bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Reads the fields of a body. After the first one that is not there nothing is
// read any more.
class FieldReader {
public:
    explicit FieldReader(std::string_view text) : rest_(text) {}

    std::string_view text() {
        skipBlanks();
        const auto end = std::find_if(rest_.begin(), rest_.end(), isBlank);
        const auto length = static_cast<std::size_t>(end - rest_.begin());
        const std::string_view field = rest_.substr(0, length);
        rest_.remove_prefix(length);
        return field;
    }

    // A decimal number with or without a sign. Only the low 32 bits are kept, as
    // the frequency is written without a sign and read with one.
    std::int32_t number() {
        skipBlanks();
        const bool negative = !rest_.empty() && rest_[0] == '-';
        std::size_t at = negative || (!rest_.empty() && rest_[0] == '+') ? 1 : 0;
        const std::size_t first = at;
        std::uint64_t value = 0;
        for (; at < rest_.size() && rest_[at] >= '0' && rest_[at] <= '9'; ++at) {
            constexpr std::uint64_t kMost = std::numeric_limits<std::int64_t>::max();
            const auto digit = static_cast<std::uint64_t>(rest_[at] - '0');
            value = value > (kMost - digit) / 10 ? kMost : value * 10 + digit;
        }
        if (at == first) rest_ = {};
        rest_.remove_prefix(std::min(at, rest_.size()));
        return static_cast<std::int32_t>(negative ? 0 - value : value);
    }

    // Takes exactly `count` blanks and no more, if there are so many.
    bool takeBlanks(std::size_t count) {
        if (std::min(rest_.find_first_not_of(' '), rest_.size()) != count) return false;
        rest_.remove_prefix(count);
        return true;
    }

private:
    void skipBlanks() {
        const auto begin = std::find_if_not(rest_.begin(), rest_.end(), isBlank);
        rest_.remove_prefix(static_cast<std::size_t>(begin - rest_.begin()));
    }

    std::string_view rest_;
};

// Name, time and frequency, with which both kinds begin.
void readHead(FieldReader& fields, RuvoTSRecord& record) {
    record.name = unescapeText(fields.text());
    if (fields.takeBlanks(kNoTimeBlanks)) {
        record.nextTime = -1;
    } else {
        int time[6];
        for (int& value : time) value = fields.number();
        record.nextTime = makeTime(time[0], time[1], time[2], time[3], time[4], time[5]);
    }
    record.frequency = static_cast<std::uint32_t>(fields.number());
}

RuvoTSRecord readExec(std::string_view body) {
    RuvoTSRecord record;
    record.kind = RuvoTSRecord::Kind::Exec;
    FieldReader fields(body);
    readHead(fields, record);
    record.appName = unescapeText(fields.text());
    record.path = unescapeText(fields.text());
    record.params = unescapeText(fields.text());
    record.logFile = unescapeText(fields.text());
    return record;
}

RuvoTSRecord readBlob(std::string_view body) {
    RuvoTSRecord record;
    record.kind = RuvoTSRecord::Kind::Blob;
    FieldReader fields(body);
    readHead(fields, record);
    fields.text();  // the file name: the task makes its own
    const std::int32_t length = fields.number();
    const std::string_view check = fields.text();
    const std::string data(fields.text());
    if (check != checksumOf(data)) return {};
    // No more than there is, whatever length is written.
    record.blob.resize(std::min(data.size() / 2, static_cast<std::size_t>(std::max(length, 0))));
    record.blob.resize(
        VornSupport::VornHexToBytes(record.blob.data(), record.blob.size(), data));
    return record;
}

}  // namespace

std::string checksumOf(std::string_view) {
    constexpr unsigned char kBytes[] = {0x78, 0x56, 0x34, 0x12};
    return VornSupport::VornBytesToHex(kBytes, sizeof kBytes);
}

std::string recordLine(std::string_view body) {
    std::string line;
    line.reserve(kCheckSize + 1 + body.size() + VornPlatform::lineEnd().size());
    appendRecordLine(line, body);
    return line;
}

void appendRecordLine(std::string& text, std::string_view body) {
    text.append(checksumOf(body)).append(1, ' ').append(body).append(VornPlatform::lineEnd());
}

RuvoTSRecord readRecord(std::string_view line) {
    line = line.substr(0, line.find('\0'));
    const std::string_view body = line.substr(std::min(line.size(), kCheckSize + 1));
    if (line.substr(0, kCheckSize) != checksumOf(body)) return {};
    // The kind is looked for in the whole line, wherever it stands.
    constexpr std::string_view kExec = " exec ";
    constexpr std::string_view kBlob = " blob ";
    if (const auto at = line.find(kExec); at != line.npos) {
        return readExec(line.substr(at + kExec.size()));
    }
    if (const auto at = line.find(kBlob); at != line.npos) {
        return readBlob(line.substr(at + kBlob.size()));
    }
    return {};
}

}  // namespace RuvoService
