#pragma once

// For VornTreeNode only.

#include "runtime/support/VornSmartPointer.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace VornSupport {

class VornTreeNode;

// The children of one node by the name under which each of them stands. Most
// stand under their own name, which is then not kept a second time: a table of
// hashes and children, so that a search reads the table once and the child it
// was for, however many there are. The hash is keyed: no choice of names makes
// it slow. Not for several threads at once.
class VornTreeChildren {
public:
    using Child = VornSmartPointer<VornTreeNode>;

    VornTreeChildren() = default;
    VornTreeChildren(const VornTreeChildren& other);
    VornTreeChildren& operator=(const VornTreeChildren&) = delete;

    VornTreeNode* find(std::string_view name) const;
    // The child that stands under the name then: an earlier one stays.
    VornTreeNode& insert(std::string_view name, const Child& child);
    // All of them, the last by name first.
    std::vector<Child> lastToFirst() const;
    // Takes one out, null when none is left. After the first call nothing else is
    // to be asked.
    Child takeOne();

private:
    struct Slot {
        std::uint64_t hash = 0;
        Child child;  // null: free
    };

    using Renamed = std::map<std::string, Child, std::less<>>;

    VornTreeNode* findInTable(std::string_view name) const;
    Slot& freeSlot(std::uint64_t hash);
    void grow();

    std::vector<Slot> slots_;  // none or a power of two of them
    std::size_t used_ = 0;     // slots
    // Those that stand under another name than their own.
    std::unique_ptr<Renamed> renamed_;
};

}  // namespace VornSupport
