#include "runtime/support/VornMessageSet.h"

#include "runtime/platform/LocaleName.h"
#include "runtime/support/VornException.h"
#include "runtime/support/VornPropertiesText.h"
#include "runtime/support/VornWideText.h"

#include <algorithm>
#include <cctype>
#include <functional>
#include <string_view>

namespace VornSupport {
namespace {

// Names of locales end up in file names, so only plain letters and digits pass.
bool isSubtag(std::string_view text, std::size_t least, std::size_t most) {
    return text.size() >= least && text.size() <= most &&
           std::all_of(text.begin(), text.end(),
                       [](unsigned char c) { return c < 0x80 && std::isalnum(c) != 0; });
}

std::string changed(std::string_view text, int (*change)(int)) {
    std::string result(text);
    for (char& c : result) c = static_cast<char>(change(static_cast<unsigned char>(c)));
    return result;
}

}  // namespace

VornLocale::VornLocale(const std::string& name) {
    const std::string_view tag = std::string_view(name).substr(0, name.find_first_of(".@"));
    const std::size_t at = tag.find_first_of("_-");
    const std::string_view language = tag.substr(0, at);
    if (!isSubtag(language, 2, 3)) return;
    language_ = changed(language, &std::tolower);
    if (at == std::string_view::npos) return;
    const std::string_view region = tag.substr(at + 1);
    if (isSubtag(region, 2, 3)) region_ = changed(region, &std::toupper);
}

VornLocale VornLocaleFactory::getDefaultLocale(bool ofUser) {
    return VornLocale(VornPlatform::localeName(ofUser));
}

VornMessageSet::VornMessageSet(const std::string& name, const VornLocale& locale) {
    std::string stem = name;
    bool any = load(stem + ".msg");
    for (const std::string* part : {&locale.getLanguage(), &locale.getRegion()}) {
        if (part->empty()) break;
        stem += '_' + *part;
        any = load(stem + ".msg") || any;
    }
    if (!any) throw VornException("VornMessageSet: couldn't open message set " + name);
}

bool VornMessageSet::load(const std::string& fileName) {
    std::string content;
    if (!readPropertiesText(fileName, content)) return false;
    visitPropertyLines(content, "=", [this](const VornPropertyLine& line) {
        if (line.key.empty()) return;
        texts_.insert_or_assign(std::string(line.key), wideFromUtf8(line.value));
    });
    return true;
}

std::wstring VornMessageSet::getString(const std::string& key) const {
    const auto found = texts_.find(key);
    if (found == texts_.end()) throw VornPropertyNotFound(key);
    return found->second;
}

}  // namespace VornSupport
