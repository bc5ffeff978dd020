#include "runtime/support/VornTokenizer.h"

#include <algorithm>

namespace VornSupport {

void VornTokenizer(const std::string& text, const std::string& separators,
                   std::vector<std::string>& fields) {
    std::vector<std::string> found;
    std::size_t begin = 0;
    while (!text.empty()) {
        const std::size_t end = text.find_first_of(separators, begin);
        found.push_back(text.substr(begin, end - begin));
        if (end == std::string::npos) break;
        begin = end + 1;
    }
    fields.swap(found);
}

std::string VornExtractFirstString(const std::string& text, const std::string& separators,
                                   std::string* rest) {
    const std::size_t begin = std::min(text.find_first_not_of(" \t\r\n"), text.size());
    const std::size_t end = text.find_first_of(separators, begin);
    std::string first = text.substr(begin, end - begin);
    if (rest != nullptr) *rest = end == std::string::npos ? std::string() : text.substr(end + 1);
    return first;
}

bool VornStringToChar(const std::string& text, char* buffer, std::size_t size) {
    if (size == 0) return false;
    const std::size_t length = std::min(text.size(), size - 1);
    std::copy_n(text.data(), length, buffer);
    buffer[length] = '\0';
    return length == text.size();
}

}  // namespace VornSupport
