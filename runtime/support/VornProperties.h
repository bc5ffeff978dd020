#pragma once

#include "runtime/platform/Export.h"
#include "runtime/support/VornCollaborator.h"
#include "runtime/support/VornMutex.h"
#include "runtime/support/VornObjectBase.h"

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace VornSupport {

template <class StringType>
class VornProperties;

// The configuration table: keys and values, both text. Keys are compared byte
// for byte. Every function may be called from any thread; each one sees and
// makes one consistent state of the table.
template <>
class VORN_EXPORT VornProperties<std::string> : public VornCollaborator,
                                                public virtual VornObjectBase {
public:
    // Of the notification that dependents get after a change of the table.
    static constexpr int kChanged = 1;

    // Empty. With `tellDependents` the table notifies its dependents after
    // each change, on the thread that made it and with no lock held.
    explicit VornProperties(bool tellDependents = false);
    // Copies the entries and `tellDependents`, not the dependents.
    VornProperties(const VornProperties& other);
    VornProperties& operator=(const VornProperties& other);
    ~VornProperties() override;

    // Adds the entries of a file, of the form that VornPropertiesText.h
    // describes, in place of those with the same keys; of two lines with one
    // key the later counts; lines without a key are passed over. Done in one
    // step or, when the file cannot be opened or read, not at all: then throws
    // VornException with code 0.
    void loadProperties(const std::string& fileName, const std::string& separator = "=");

    // False, and `value` unchanged, when the key is missing.
    bool getPropertyValue(const std::string& key, std::string& value) const;
    // The value, or `fallback` when the key is missing.
    std::string getPropertyOr(const std::string& key, const std::string& fallback) const;
    // Throws VornPropertyNotFound when the key is missing.
    std::string getProperty(const std::string& key) const;
    bool contains(const std::string& key) const;

    // Inserts or replaces.
    void setProperty(const std::string& key, const std::string& value);
    // False when there was none.
    bool removeProperty(const std::string& key);
    // Takes over the entries of `other` in place of all of its own, in one step.
    void assign(const VornProperties& other);
    // Exchanges the entries, in one step for readers of either table.
    void swap(VornProperties& other) VORN_NO_THREAD_SAFETY_ANALYSIS;

    std::size_t size() const;
    // In ascending order.
    std::vector<std::string> keys() const;
    // Visits the entries of this moment, in ascending order of the keys; the
    // table may be used and changed meanwhile.
    void forEach(
        const std::function<void(const std::string& key, const std::string& value)>& visit) const;

private:
    using Entries = std::map<std::string, std::string, std::less<>>;

    Entries snapshot() const;
    void changed();

    const bool tellDependents_;
    mutable VornSharedMutex mutex_;
    Entries entries_ VORN_GUARDED_BY(mutex_);
};

}  // namespace VornSupport
