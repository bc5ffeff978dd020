#pragma once

#include "runtime/platform/Export.h"

#include <map>
#include <string>

namespace VornSupport {

// A language and, perhaps, a region: "de" and "DE". Both are empty when no
// language is chosen. A plain value.
class VORN_EXPORT VornLocale {
public:
    VornLocale() = default;
    // From what systems write: "de", "de_DE", "de-DE", "de_DE.UTF-8@euro". What
    // is not of that form, and "C" and "POSIX", chooses no language.
    explicit VornLocale(const std::string& name);

    const std::string& getLanguage() const { return language_; }  // in lower case
    const std::string& getRegion() const { return region_; }      // in upper case

private:
    std::string language_;
    std::string region_;
};

class VORN_EXPORT VornLocaleFactory {
public:
    // The locale of the user that the process runs as, or of the system.
    static VornLocale getDefaultLocale(bool ofUser = true);
};

// Texts for humans by key, in the language of a locale. They come from the
// files NAME.msg, NAME_de.msg and NAME_de_DE.msg, as many of them as there are;
// the text of a later one replaces that of an earlier one with the same key.
// The files are UTF-8 and have the form that VornPropertiesText.h describes,
// with "=" between key and text. Unchanged after construction: any thread.
class VORN_EXPORT VornMessageSet {
public:
    // `name` is a path without the ending. Throws VornException when none of
    // the files can be read.
    VornMessageSet(const std::string& name, const VornLocale& locale);

    // Throws VornPropertyNotFound when the set has no such text.
    std::wstring getString(const std::string& key) const;
    bool contains(const std::string& key) const { return texts_.contains(key); }

private:
    bool load(const std::string& fileName);

    std::map<std::string, std::wstring, std::less<>> texts_;
};

}  // namespace VornSupport
