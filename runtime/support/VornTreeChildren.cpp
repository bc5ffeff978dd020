#include "runtime/support/VornTreeChildren.h"

#include "runtime/support/VornKeyedHash.h"
#include "runtime/support/VornTreeNode.h"

#include <algorithm>
#include <utility>

namespace VornSupport {
namespace {

constexpr std::size_t kFewest = 2;  // slots; most nodes that have children have one

std::uint64_t hashOf(std::string_view name) {
    static const VornHashKey key = VornHashKey::ofProcess();
    return keyedHash(name, key);
}

}  // namespace

VornTreeChildren::VornTreeChildren(const VornTreeChildren& other)
    : slots_(other.slots_),
      used_(other.used_),
      renamed_(other.renamed_ ? std::make_unique<Renamed>(*other.renamed_) : nullptr) {}

VornTreeNode* VornTreeChildren::findInTable(std::string_view name) const {
    if (slots_.empty()) return nullptr;
    const std::uint64_t hash = hashOf(name);
    const std::size_t last = slots_.size() - 1;
    // One slot at least is free, so this ends.
    for (std::size_t at = hash & last; slots_[at].child; at = (at + 1) & last) {
        if (slots_[at].hash == hash && slots_[at].child->getName() == name) {
            return slots_[at].child.get();
        }
    }
    return nullptr;
}

VornTreeNode* VornTreeChildren::find(std::string_view name) const {
    VornTreeNode* const found = findInTable(name);
    if (found != nullptr || !renamed_) return found;
    const auto entry = renamed_->find(name);
    return entry == renamed_->end() ? nullptr : entry->second.get();
}

VornTreeNode& VornTreeChildren::insert(std::string_view name, const Child& child) {
    if (VornTreeNode* const earlier = find(name)) return *earlier;
    if (child->getName() != name) {
        if (!renamed_) renamed_ = std::make_unique<Renamed>();
        renamed_->emplace(name, child);
        return *child;
    }
    if (used_ + 1 > slots_.size() / 4 * 3) grow();
    const std::uint64_t hash = hashOf(name);
    freeSlot(hash) = {hash, child};
    ++used_;
    return *child;
}

VornTreeChildren::Slot& VornTreeChildren::freeSlot(std::uint64_t hash) {
    const std::size_t last = slots_.size() - 1;
    std::size_t at = hash & last;
    while (slots_[at].child) at = (at + 1) & last;
    return slots_[at];
}

void VornTreeChildren::grow() {
    std::vector<Slot> old(std::max(slots_.size() * 2, kFewest));
    old.swap(slots_);
    for (Slot& slot : old) {
        if (slot.child) freeSlot(slot.hash) = std::move(slot);
    }
}

std::vector<VornTreeChildren::Child> VornTreeChildren::lastToFirst() const {
    std::vector<std::pair<std::string_view, Child>> named;
    for (const Slot& slot : slots_) {
        if (slot.child) named.emplace_back(slot.child->getName(), slot.child);
    }
    if (renamed_) {
        for (const auto& [name, child] : *renamed_) named.emplace_back(name, child);
    }
    std::sort(named.begin(), named.end(),
              [](const auto& one, const auto& other) { return one.first > other.first; });
    std::vector<Child> children;
    children.reserve(named.size());
    for (auto& [name, child] : named) children.push_back(std::move(child));
    return children;
}

VornTreeChildren::Child VornTreeChildren::takeOne() {
    while (!slots_.empty()) {
        Child child = std::move(slots_.back().child);
        slots_.pop_back();
        if (child) return child;
    }
    if (!renamed_ || renamed_->empty()) return nullptr;
    return std::move(renamed_->extract(renamed_->begin()).mapped());
}

}  // namespace VornSupport
