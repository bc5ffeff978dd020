#include "runtime/net/VornProxyDependentContainer.h"

#include "runtime/net/VornDeliveryChannel.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace VornNet {

using VornSupport::VornCriticalSection;

std::size_t VornProxyDependentContainer::KeyHash::operator()(const KeyView& key) const {
    return std::hash<std::string_view>()(key.remoteName) * 31 + std::hash<std::int32_t>()(key.handle);
}

VornProxyDependentContainer::VornProxyDependentContainer() = default;

VornProxyDependentContainer& VornProxyDependentContainer::getInstance() {
    static VornProxyDependentContainer* const instance = new VornProxyDependentContainer;
    return *instance;
}

VornProxyDependentContainer::KeyView VornProxyDependentContainer::keyOf(
    const VornProxyDependent& proxy) {
    return {proxy.getRemoteName(), proxy.getHandle()};
}

void VornProxyDependentContainer::add(Entry proxy) {
    VornCriticalSection lock(lock_);
    const auto key = byKey_.try_emplace({proxy->getRemoteName(), proxy->getHandle()}).first;
    try {
        if (places_.size() == places_.capacity()) places_.reserve(2 * places_.size() + 1);
        key->second.push_back(nextNumber_);
    } catch (...) {
        if (key->second.empty()) byKey_.erase(key);
        throw;
    }
    places_.push_back({nextNumber_, std::move(proxy)});
    ++nextNumber_;
    size_.store(static_cast<int>(places_.size() - gone_), std::memory_order_release);
}

bool VornProxyDependentContainer::contains(const VornProxyDependent& proxy) const {
    VornCriticalSection lock(lock_);
    const auto found = byKey_.find(keyOf(proxy));
    if (found == byKey_.end()) return false;
    for (const std::uint64_t number : found->second) {
        if (places_[indexLocked(number)].proxy.get() == &proxy) return true;
    }
    return false;
}

std::size_t VornProxyDependentContainer::indexLocked(std::uint64_t number) const {
    const auto found =
        std::lower_bound(places_.begin(), places_.end(), number,
                         [](const Place& place, std::uint64_t n) { return place.number < n; });
    return static_cast<std::size_t>(found - places_.begin());
}

VornProxyDependentContainer::Entry VornProxyDependentContainer::lookup(
    const std::string& remoteName, std::int32_t handle) const {
    VornCriticalSection lock(lock_);
    const auto found = byKey_.find(KeyView(remoteName, handle));
    return found == byKey_.end() ? nullptr : places_[indexLocked(found->second.front())].proxy;
}

void VornProxyDependentContainer::remove(const std::string& remoteName, std::int32_t handle) {
    VornCriticalSection lock(lock_);
    const auto found = byKey_.find(KeyView(remoteName, handle));
    if (found == byKey_.end()) return;
    const Entry removed = takeLocked(found, 0);
    lock.unlock();
    removed->retire();
}

bool VornProxyDependentContainer::remove(const VornProxyDependent& proxy) {
    const Entry removed = take(proxy);
    if (removed) removed->retire();
    return static_cast<bool>(removed);
}

bool VornProxyDependentContainer::removeWithoutWaiting(const VornProxyDependent& proxy) {
    const Entry removed = take(proxy);
    if (removed) removed->retireLater();
    return static_cast<bool>(removed);
}

VornProxyDependentContainer::Entry VornProxyDependentContainer::take(
    const VornProxyDependent& proxy) {
    VornCriticalSection lock(lock_);
    const auto found = byKey_.find(keyOf(proxy));
    if (found == byKey_.end()) return nullptr;
    const auto& numbers = found->second;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (places_[indexLocked(numbers[i])].proxy.get() == &proxy) return takeLocked(found, i);
    }
    return nullptr;
}

VornProxyDependentContainer::Entry VornProxyDependentContainer::takeLocked(
    ByKey::iterator key, std::size_t which) {
    auto& numbers = key->second;
    const std::size_t index = indexLocked(numbers[which]);
    Entry taken = std::exchange(places_[index].proxy, nullptr);
    ++gone_;
    size_.store(static_cast<int>(places_.size() - gone_), std::memory_order_release);
    if (2 * gone_ >= places_.size()) tidyLocked();
    numbers.erase(numbers.begin() + static_cast<std::ptrdiff_t>(which));
    if (numbers.empty()) byKey_.erase(key);
    return taken;
}

void VornProxyDependentContainer::tidyLocked() const {
    steps_.fetch_add(places_.size(), std::memory_order_relaxed);
    std::erase_if(places_, [](const Place& place) { return !place.proxy; });
    gone_ = 0;
}

const VornProxyDependentContainer::Entry& VornProxyDependentContainer::operator[](
    int index) const {
    static const Entry none;
    if (gone_ != 0) tidyLocked();
    const auto at = static_cast<std::size_t>(index);
    return index >= 0 && at < places_.size() ? places_[at].proxy : none;
}

}  // namespace VornNet
