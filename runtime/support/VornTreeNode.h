#pragma once

#include "runtime/platform/Export.h"
#include "runtime/support/VornMutex.h"
#include "runtime/support/VornObjectBase.h"
#include "runtime/support/VornSmartPointer.h"

#include <memory>
#include <string>
#include <string_view>

namespace VornSupport {

class VornTreeChildren;

// A named node of a tree, reachable from its root by a path of names separated
// by any of ":,". Empty components are passed over. Nodes are only ever added.
// add, find and print may be called from any thread at once; no operation
// depends on the depth of the tree for its stack. Names come from clients: no
// choice of them makes it slow.
class VORN_EXPORT VornTreeNode : public VornObjectBase {
public:
    explicit VornTreeNode(const std::string& name);
    // A copy has the name and shares the children of the moment. Not to be
    // assigned to while another thread uses it or while it stands in a tree.
    VornTreeNode(const VornTreeNode& other);
    VornTreeNode& operator=(const VornTreeNode& other);
    ~VornTreeNode() override;

    const std::string& getName() const { return name_; }

    // Puts `child` at the position that `path` names below this node, unless a
    // node stands there already, and returns the node that is there then. Nodes
    // missing on the way are made by makeNode(). A path without a component
    // names this node itself; then null is returned. A null child adds nothing,
    // which makes it find(). A null path is an empty one. Nothing is allocated
    // for what exists already.
    VornSmartPointer<VornTreeNode> add(VornSmartPointer<VornTreeNode> child, const char* path);
    VornSmartPointer<VornTreeNode> add(VornSmartPointer<VornTreeNode> child, std::string_view path);
    // The node at `path`, or null.
    VornSmartPointer<VornTreeNode> find(std::string_view path) const;

    // Writes the subtree to the log, a line a node, children by name and two
    // columns further in than their parent, up to kMostIndent. Walks only when
    // level 9 is on.
    void print(int indent) const;

    static constexpr int kMostIndent = 100;  // a deep tree would fill the log with spaces

protected:
    // Writes the node's own line at level 9, `indent` spaces before it.
    virtual void printGuts(int indent) const;
    // A node for a place on the way to `child`, the one that add() was given;
    // `path` is its path from the node that add() was called on, as it was
    // requested. The base names it by the last component. Null makes that add()
    // return null.
    virtual VornSmartPointer<VornTreeNode> makeNode(std::string_view path,
                                                    const VornTreeNode& child) const;

private:
    using Children = std::unique_ptr<VornTreeChildren>;  // null: none

    VornSmartPointer<VornTreeNode> childAt(std::string_view name) const VORN_EXCLUDES(mutex_);
    VornSmartPointer<VornTreeNode> insert(std::string_view name,
                                          VornSmartPointer<VornTreeNode> child)
        VORN_EXCLUDES(mutex_);
    Children copyChildren() const VORN_EXCLUDES(mutex_);
    Children takeChildren() VORN_EXCLUDES(mutex_);
    static void letGo(Children children);

    std::string name_;
    mutable VornSharedMutex mutex_;
    Children children_ VORN_GUARDED_BY(mutex_);
};

}  // namespace VornSupport
