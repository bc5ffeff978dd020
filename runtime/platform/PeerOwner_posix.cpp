#include "runtime/platform/PeerOwner.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <vector>

namespace VornPlatform {
namespace {

constexpr std::size_t kLargestEntry = std::size_t{1024} * 1024;

// Runs a *_r look-up with a buffer that grows until the entry fits.
template <class Entry, class Lookup>
bool lookUp(std::vector<char>& buffer, Entry& entry, Lookup lookup) {
    for (buffer.resize(1024); buffer.size() <= kLargestEntry; buffer.resize(buffer.size() * 4)) {
        Entry* found = nullptr;
        const int failed = lookup(&entry, buffer.data(), buffer.size(), &found);
        if (failed != ERANGE && failed != EINTR) return failed == 0 && found != nullptr;
    }
    return false;
}

std::optional<gid_t> groupNumber(const std::string& name) {
    std::vector<char> buffer;
    group entry{};
    const bool found = lookUp(buffer, entry, [&](group* e, char* b, std::size_t n, group** f) {
        return ::getgrnam_r(name.c_str(), e, b, n, f);
    });
    return found ? std::optional(entry.gr_gid) : std::nullopt;
}

// The groups of a user of the data base, the primary one included.
std::vector<gid_t> groupsOf(uid_t uid) {
    std::vector<char> buffer;
    passwd entry{};
    const bool found = lookUp(buffer, entry, [&](passwd* e, char* b, std::size_t n, passwd** f) {
        return ::getpwuid_r(uid, e, b, n, f);
    });
    if (!found) return {};
    std::vector<gid_t> groups(32);
    for (int attempt = 0; attempt < 8; ++attempt) {
        int count = static_cast<int>(groups.size());
        const int fits = ::getgrouplist(entry.pw_name, entry.pw_gid, groups.data(), &count);
        const auto wanted = static_cast<std::size_t>(count);
        if (fits >= 0) {
            groups.resize(wanted);
            return groups;
        }
        groups.resize(std::max(wanted, groups.size() * 2));
    }
    return {};
}

class User : public PeerOwner {
public:
    explicit User(uid_t uid) : uid_(uid) {}

    bool isCurrentUser() const override { return uid_ == ::geteuid(); }
    bool isAdministrator() const override { return uid_ == 0; }
    bool isMemberOf(const std::string& group) const override {
        if (group.empty()) return false;
        const auto wanted = groupNumber(group);
        if (!wanted) return false;
        const auto groups = groupsOf(uid_);
        return std::find(groups.begin(), groups.end(), *wanted) != groups.end();
    }
    std::string describe() const override { return "uid " + std::to_string(uid_); }

private:
    const uid_t uid_;
};

}  // namespace

PeerOwner::~PeerOwner() = default;

std::unique_ptr<PeerOwner> makeOwnerOfUser(std::uint32_t uid) {
    return std::make_unique<User>(static_cast<uid_t>(uid));
}

}  // namespace VornPlatform
