#include "runtime/support/VornProperties.h"

#include "runtime/support/VornException.h"
#include "runtime/support/VornNotification.h"
#include "runtime/support/VornPropertiesText.h"

#include <utility>

namespace VornSupport {

using Table = VornProperties<std::string>;

Table::VornProperties(bool tellDependents) : tellDependents_(tellDependents) {}

Table::VornProperties(const VornProperties& other)
    : VornObjectBase(other),
      VornCollaborator(other),
      tellDependents_(other.tellDependents_),
      entries_(other.snapshot()) {}

Table& Table::operator=(const VornProperties& other) {
    assign(other);
    return *this;
}

Table::~VornProperties() = default;

void Table::loadProperties(const std::string& fileName, const std::string& separator) {
    std::string text;
    if (!readPropertiesText(fileName, text)) {
        throw VornException("VornProperties<StringType>::loadProperties: couldn't open file " +
                            fileName);
    }
    Entries loaded;
    visitPropertyLines(text, separator, [&loaded](const VornPropertyLine& line) {
        if (!line.key.empty()) loaded.insert_or_assign(std::string(line.key), line.value);
    });
    {
        VornWriteLock lock(mutex_);
        loaded.merge(entries_);  // keeps what was loaded where both have a key
        entries_.swap(loaded);
    }
    changed();
}

bool Table::getPropertyValue(const std::string& key, std::string& value) const {
    VornReadLock lock(mutex_);
    const auto found = entries_.find(key);
    if (found == entries_.end()) return false;
    value = found->second;
    return true;
}

std::string Table::getPropertyOr(const std::string& key, const std::string& fallback) const {
    VornReadLock lock(mutex_);
    const auto found = entries_.find(key);
    return found == entries_.end() ? fallback : found->second;
}

std::string Table::getProperty(const std::string& key) const {
    std::string value;
    if (!getPropertyValue(key, value)) throw VornPropertyNotFound(key);
    return value;
}

bool Table::contains(const std::string& key) const {
    VornReadLock lock(mutex_);
    return entries_.contains(key);
}

void Table::setProperty(const std::string& key, const std::string& value) {
    {
        VornWriteLock lock(mutex_);
        entries_.insert_or_assign(key, value);
    }
    changed();
}

bool Table::removeProperty(const std::string& key) {
    {
        VornWriteLock lock(mutex_);
        if (entries_.erase(key) == 0) return false;
    }
    changed();
    return true;
}

void Table::assign(const VornProperties& other) {
    if (this == &other) return;
    Entries taken = other.snapshot();
    {
        VornWriteLock lock(mutex_);
        entries_.swap(taken);
    }
    changed();
}

// Both locks at once, in the order of their addresses: two swaps of one pair
// on two threads must not wait for each other. That order is beyond the static
// analysis.
void Table::swap(VornProperties& other) {
    if (this == &other) return;
    {
        const bool oursFirst = std::less<>()(this, &other);
        VornWriteLock first(oursFirst ? mutex_ : other.mutex_);
        VornWriteLock second(oursFirst ? other.mutex_ : mutex_);
        entries_.swap(other.entries_);
    }
    changed();
    other.changed();
}

std::size_t Table::size() const {
    VornReadLock lock(mutex_);
    return entries_.size();
}

std::vector<std::string> Table::keys() const {
    VornReadLock lock(mutex_);
    std::vector<std::string> keys;
    keys.reserve(entries_.size());
    for (const auto& entry : entries_) keys.push_back(entry.first);
    return keys;
}

void Table::forEach(
    const std::function<void(const std::string& key, const std::string& value)>& visit) const {
    for (const auto& [key, value] : snapshot()) visit(key, value);
}

Table::Entries Table::snapshot() const {
    VornReadLock lock(mutex_);
    return entries_;
}

void Table::changed() {
    if (tellDependents_) notify(VornNotification(kChanged));
}

}  // namespace VornSupport
