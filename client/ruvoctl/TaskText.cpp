#include "client/ruvoctl/TaskText.h"

#include "client/ruvoctl/Session.h"
#include "runtime/platform/BatchQuote.h"
#include "runtime/platform/PathText.h"

#include <filesystem>

namespace Ruvoctl {
namespace {

using Ruvo::RuvoFrequency;

constexpr std::int32_t kStatusMask = 255;  // all that some systems hand on
constexpr int kLostStatus = 255;

void refuseLineEnds(const std::string& text) {
    if (text.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos) {
        throw UsageError("a task's command, folder and log file are one line each");
    }
}

std::string absolute(const std::string& path) {
    return VornPlatform::utf8FromPath(
        std::filesystem::absolute(VornPlatform::pathFromUtf8(path)).lexically_normal());
}

std::string joined(const std::vector<std::string>& words, std::size_t first, bool isShellText) {
    std::string line;
    for (std::size_t i = first; i < words.size(); ++i) {
        if (i > first) line += ' ';
        line += isShellText ? words[i] : VornPlatform::quoteForBatch(words[i]);
    }
    return line;
}

}  // namespace

std::string frequencyText(RuvoFrequency frequency) {
    switch (frequency) {
        case RuvoFrequency::Daily: return "daily";
        case RuvoFrequency::Weekly: return "weekly";
        case RuvoFrequency::Monthly: return "every 28 days";
        case RuvoFrequency::Once: return "once";
        case RuvoFrequency::Soon: return "once, soon";
    }
    return "frequency " + std::to_string(static_cast<std::uint32_t>(frequency)) + ", runs once";
}

Ruvo::RuvoTaskCommand commandOf(const TypedCommand& typed) {
    for (const std::string& word : typed.words) refuseLineEnds(word);
    refuseLineEnds(typed.directory);
    refuseLineEnds(typed.logFile);
    Ruvo::RuvoTaskCommand command;
    if (typed.isShellText && !typed.logFile.empty()) {
        command.program = VornPlatform::groupForBatch(joined(typed.words, 0, true));
    } else if (!typed.words.empty()) {
        const std::string& program = typed.words.front();
        command.program = typed.isShellText ? program : VornPlatform::quoteForBatch(program);
        command.parameters = joined(typed.words, 1, typed.isShellText);
    }
    if (!typed.directory.empty()) {
        command.directory = VornPlatform::directoryForBatch(absolute(typed.directory));
    }
    if (!typed.logFile.empty()) {
        command.logFile = VornPlatform::quoteForBatch(absolute(typed.logFile));
    }
    return command;
}

int exitStatusOf(std::int32_t taskStatus) {
    const std::int32_t handedOn = taskStatus & kStatusMask;
    return taskStatus != 0 && handedOn == 0 ? kLostStatus : handedOn;
}

}  // namespace Ruvoctl
