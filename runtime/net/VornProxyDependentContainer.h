#pragma once

#include "runtime/net/VornProxyDependent.h"
#include "runtime/platform/Export.h"
#include "runtime/support/VornCriticalSection.h"
#include "runtime/support/VornSmartPointer.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace VornNet {

// The process-wide registry of proxy dependents, in the order of registration.
// add, lookup and remove lock inside and may be called from any thread at any
// time after the library is loaded. Who walks by index holds getlock() for the
// whole walk. Nothing is pruned: an entry stays until it is removed.
class VORN_EXPORT VornProxyDependentContainer {
public:
    using Entry = VornSupport::VornSmartPointer<VornProxyDependent>;

    static VornProxyDependentContainer& getInstance();

    // An exception leaves the registry as it was.
    void add(Entry proxy);
    // Whether this very proxy is in here, and not one of its name and handle.
    bool contains(const VornProxyDependent& proxy) const;
    // The first entry with that remote name and handle, or null.
    Entry lookup(const std::string& remoteName, std::int32_t handle) const;
    // Removes that first entry; does nothing when there is none. What is held
    // for it is sent first, within "ruvod.limits.delivery-ms"; after the return
    // it is told nothing more. The delivery connection of a remote name is
    // closed with its last registration.
    void remove(const std::string& remoteName, std::int32_t handle);
    // Removes one entry, wherever it stands; false when it is not in here.
    bool remove(const VornProxyDependent& proxy);
    // The same without waiting for the client: what is held for it is still sent,
    // and its connection is closed after that.
    bool removeWithoutWaiting(const VornProxyDependent& proxy);

    int size() const { return size_.load(std::memory_order_acquire); }
    // The entry at `index` (0 to size() - 1); null outside. The caller holds
    // getlock(), for as long as it uses the result; the analysis does not follow
    // requirements of an operator.
    const Entry& operator[](int index) const VORN_NO_THREAD_SAFETY_ANALYSIS;
    VornSupport::VornCriticalSectionObject& getlock() const VORN_RETURN_CAPABILITY(lock_) {
        return lock_;
    }

    // How many places removals have moved.
    std::uint64_t stepsForTest() const { return steps_.load(std::memory_order_relaxed); }

private:
    struct Key {
        std::string remoteName;
        std::int32_t handle;
    };
    // To look for one takes no memory.
    struct KeyView {
        KeyView(std::string_view name, std::int32_t number) : remoteName(name), handle(number) {}
        KeyView(const Key& key) : KeyView(key.remoteName, key.handle) {}  // meant to be implicit
        std::string_view remoteName;
        std::int32_t handle;
    };
    struct KeyHash {
        using is_transparent = void;
        std::size_t operator()(const KeyView& key) const;
    };
    struct KeyEqual {
        using is_transparent = void;
        bool operator()(const KeyView& a, const KeyView& b) const {
            return a.handle == b.handle && a.remoteName == b.remoteName;
        }
    };
    struct Place {
        std::uint64_t number;  // grows with every add
        Entry proxy;
    };

    // Numbers of the places with one key, the earliest first.
    using ByKey = std::unordered_map<Key, std::vector<std::uint64_t>, KeyHash, KeyEqual>;

    VornProxyDependentContainer();
    static KeyView keyOf(const VornProxyDependent& proxy);
    std::size_t indexLocked(std::uint64_t number) const VORN_REQUIRES(lock_);
    Entry take(const VornProxyDependent& proxy) VORN_EXCLUDES(lock_);
    Entry takeLocked(ByKey::iterator key, std::size_t which) VORN_REQUIRES(lock_);

    mutable VornSupport::VornCriticalSectionObject lock_;
    void tidyLocked() const VORN_REQUIRES(lock_);

    // By number, so searched by halving. A place whose proxy was removed stays,
    // without one, until such places are the half, or somebody asks by index.
    mutable std::vector<Place> places_ VORN_GUARDED_BY(lock_);
    mutable std::size_t gone_ VORN_GUARDED_BY(lock_) = 0;  // places without a proxy
    mutable std::atomic<std::uint64_t> steps_{0};
    ByKey byKey_ VORN_GUARDED_BY(lock_);
    std::atomic<int> size_{0};  // of the proxies; changed under lock_
    std::uint64_t nextNumber_ VORN_GUARDED_BY(lock_) = 0;
};

}  // namespace VornNet
