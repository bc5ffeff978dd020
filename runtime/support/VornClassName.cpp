#include "runtime/support/VornClassName.h"

#include "runtime/support/VornMutex.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>
#include <string_view>
#include <unordered_map>

namespace VornSupport {
namespace {

std::string demangle(const char* mangled) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> text(
        abi::__cxa_demangle(mangled, nullptr, nullptr, &status), &std::free);
    return status == 0 && text ? std::string(text.get()) : std::string(mangled);
}

// The end of an operator's name that begins at `at`, else `at`: its brackets
// are none, as in "A::operator<(A const&)::Local".
std::size_t pastOperator(const std::string& full, std::size_t at) {
    constexpr std::string_view kWord = "operator";
    if (full.compare(at, kWord.size(), kWord) != 0) return at;
    const std::size_t symbol = at + kWord.size();
    if (full.compare(symbol, 2, "()") == 0) return symbol + 2;
    const std::size_t end = full.find_first_not_of("<>=!-*&|", symbol);
    return end == std::string::npos ? full.size() : end;
}

// Cuts "a::b<c::d>::E<f>" down to "E": the last component outside all brackets,
// less its template arguments. "(anonymous namespace)" and "f(int)" are
// components like any other.
std::string ownName(const std::string& full) {
    std::size_t begin = 0;
    int depth = 0;
    for (std::size_t i = 0; i < full.size(); ++i) {
        if (i == begin) i = pastOperator(full, i);
        if (i == full.size()) break;
        const char c = full[i];
        if (c == '<' || c == '(' || c == '{') ++depth;
        if (c == '>' || c == ')' || c == '}') --depth;
        if (depth == 0 && c == ':' && i + 1 < full.size() && full[i + 1] == ':') begin = i + 2;
    }
    return full.substr(begin, full.find_first_of("<[", begin) - begin);
}

// Remembered by the mangled text, not by the address of the type: a plug-in's
// types go when it is unloaded and their addresses may be used again.
class NameCache {
public:
    std::string find(const char* mangled) {
        {
            VornReadLock lock(mutex_);
            const auto known = names_.find(mangled);
            if (known != names_.end()) return known->second;
        }
        std::string name = ownName(demangle(mangled));
        VornWriteLock lock(mutex_);
        return names_.emplace(mangled, std::move(name)).first->second;
    }

private:
    VornSharedMutex mutex_;
    std::unordered_map<std::string, std::string> names_ VORN_GUARDED_BY(mutex_);
};

NameCache& cache() {
    static NameCache* const instance = new NameCache;  // outlives every static object
    return *instance;
}

}  // namespace

std::string classNameOf(const std::type_info& type) { return cache().find(type.name()); }

// Walks the type descriptions that the C++ ABI of all our compilers lays down
// (Itanium C++ ABI, 2.9.5).
bool classIsA(const std::type_info& type, const std::string& className) {
    if (classNameOf(type) == className) return true;
    if (const auto* one = dynamic_cast<const abi::__si_class_type_info*>(&type)) {
        return classIsA(*one->__base_type, className);
    }
    if (const auto* many = dynamic_cast<const abi::__vmi_class_type_info*>(&type)) {
        for (unsigned int i = 0; i < many->__base_count; ++i) {
            if (classIsA(*many->__base_info[i].__base_type, className)) return true;
        }
    }
    return false;
}

}  // namespace VornSupport
