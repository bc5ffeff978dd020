#include "runtime/platform/CommandLine_windows.h"

#include <cstddef>

namespace VornPlatform {
namespace {

// Backslashes count only in front of a quote, the last one included: there each
// is written twice.
void appendQuoted(std::wstring& line, const std::wstring& word) {
    line += L'"';
    std::size_t backslashes = 0;
    for (const wchar_t c : word) {
        if (c == L'"') line.append(backslashes + 1, L'\\');
        line += c;
        backslashes = c == L'\\' ? backslashes + 1 : 0;
    }
    line.append(backslashes, L'\\').append(1, L'"');
}

}  // namespace

std::wstring joinCommandLine(const std::vector<std::wstring>& words) {
    std::wstring line = L'"' + words.front() + L'"';
    for (std::size_t i = 1; i < words.size(); ++i) {
        line += L' ';
        const bool isPlain =
            !words[i].empty() && words[i].find_first_of(L" \t\n\v\f\r\"") == std::wstring::npos;
        if (isPlain) {
            line += words[i];
        } else {
            appendQuoted(line, words[i]);
        }
    }
    return line;
}

bool joinBatchLine(const std::wstring& interpreter, const std::vector<std::wstring>& words,
                   std::wstring& line) {
    // Between quotes all is text to the interpreter but these; the outer pair it
    // takes away. "/v:off" makes text of "!", "/d" leaves out what a user has set up
    // for every start.
    line = L'"' + interpreter + L"\" /d /e:on /v:off /c \"";
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i].find_first_of(L"\"%\r\n") != std::wstring::npos) return false;
        if (i > 0) line += L' ';
        appendQuoted(line, words[i]);
    }
    line += L'"';
    return true;
}

}  // namespace VornPlatform
