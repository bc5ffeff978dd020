#include "scheduler/cmd/BatchScript.h"

#include <string.h>

namespace RuvoCmd {
namespace {

bool isBlank(char c) { return c != '\0' && strchr(" \t\r\v\f", c) != nullptr; }

// Both cut the blanks at an end of a text that a zero byte ends.
char* withoutBlanksBefore(char* text) {
    while (isBlank(*text)) ++text;
    return text;
}
void cutBlanksBehind(char* text) {
    size_t size = strlen(text);
    while (size > 0 && isBlank(text[size - 1])) --size;
    text[size] = '\0';
}

// What is behind the first word of `text`; null unless that is `word`, which is in
// lower case.
char* behindWord(char* text, const char* word) {
    for (; *word != '\0'; ++text, ++word) {
        const char c = *text;
        if ((c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c) != *word) return nullptr;
    }
    return *text == '\0' || isBlank(*text) ? withoutBlanksBefore(text) : nullptr;
}

// The directory that the line changes to; null when it is another line.
char* directoryOf(char* line) {
    char* directory = behindWord(withoutBlanksBefore(line), "cd");
    if (directory != nullptr) directory = behindWord(directory, "/d");
    if (directory == nullptr) return nullptr;
    cutBlanksBehind(directory);
    const size_t size = strlen(directory);
    if (size >= 2 && directory[0] == '"' && directory[size - 1] == '"') {
        directory[size - 1] = '\0';
        ++directory;
    }
    return directory;
}

}  // namespace

bool BatchScript::next(BatchStep& step) {
    while (at_ < end_) {
        char* const line = at_;
        auto* lineEnd = static_cast<char*>(memchr(line, '\n', static_cast<size_t>(end_ - line)));
        at_ = lineEnd != nullptr ? lineEnd + 1 : end_;
        if (lineEnd == nullptr) lineEnd = end_;
        *lineEnd = '\0';
        const size_t size = strlen(line);
        if (size > 0 && line[size - 1] == '\r') line[size - 1] = '\0';
        if (*withoutBlanksBefore(line) == '\0') continue;
        char* const directory = directoryOf(line);
        if (directory != nullptr) {
            step = {BatchStep::Kind::ChangeDirectory, directory};
        } else {
            step = {BatchStep::Kind::Command, line};
        }
        return true;
    }
    return false;
}

}  // namespace RuvoCmd
