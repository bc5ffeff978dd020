#include "runtime/support/VornTreeNode.h"

#include "runtime/support/VornLogging.h"
#include "runtime/support/VornTreeChildren.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace VornSupport {
namespace {

constexpr std::string_view kSeparators = ":,";
constexpr int kIndentStep = 2;

// The components of a path, one after the other.
class PathWalk {
public:
    explicit PathWalk(std::string_view path) : path_(path) { next(); }

    bool atEnd() const { return begin_ == std::string_view::npos; }
    std::string_view name() const { return path_.substr(begin_, end_ - begin_); }
    // The path up to and with this component.
    std::string_view prefix() const { return path_.substr(0, end_); }

    void next() {
        begin_ = path_.find_first_not_of(kSeparators, end_);
        if (atEnd()) return;
        end_ = std::min(path_.find_first_of(kSeparators, begin_), path_.size());
    }

private:
    std::string_view path_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
};

}  // namespace

VornTreeNode::VornTreeNode(const std::string& name) : name_(name) {}

VornTreeNode::VornTreeNode(const VornTreeNode& other)
    : VornObjectBase(), name_(other.name_), children_(other.copyChildren()) {}

VornTreeNode& VornTreeNode::operator=(const VornTreeNode& other) {
    if (this == &other) return *this;
    name_ = other.name_;
    Children children = other.copyChildren();
    {
        VornWriteLock lock(mutex_);
        children_.swap(children);
    }
    letGo(std::move(children));
    return *this;
}

VornTreeNode::~VornTreeNode() { letGo(takeChildren()); }

// Lets a set of subtrees go without a call a level: a child that nobody else
// holds loses its own children before it goes.
void VornTreeNode::letGo(Children children) {
    if (!children) return;
    std::vector<Children> rest;
    rest.push_back(std::move(children));
    while (!rest.empty()) {
        const VornSmartPointer<VornTreeNode> child = rest.back()->takeOne();
        if (!child) {
            rest.pop_back();
            continue;
        }
        if (child->refCount() > 1) continue;
        if (Children below = child->takeChildren()) rest.push_back(std::move(below));
    }
}

VornTreeNode::Children VornTreeNode::copyChildren() const {
    VornReadLock lock(mutex_);
    return children_ ? std::make_unique<VornTreeChildren>(*children_) : nullptr;
}

VornTreeNode::Children VornTreeNode::takeChildren() {
    VornWriteLock lock(mutex_);
    return std::move(children_);
}

VornSmartPointer<VornTreeNode> VornTreeNode::childAt(std::string_view name) const {
    VornReadLock lock(mutex_);
    return children_ ? children_->find(name) : nullptr;
}

// Returns the child that stands under the name: another thread may have been
// quicker.
VornSmartPointer<VornTreeNode> VornTreeNode::insert(std::string_view name,
                                                    VornSmartPointer<VornTreeNode> child) {
    if (!child) return nullptr;
    VornWriteLock lock(mutex_);
    if (!children_) children_ = std::make_unique<VornTreeChildren>();
    return &children_->insert(name, child);
}

VornSmartPointer<VornTreeNode> VornTreeNode::add(VornSmartPointer<VornTreeNode> child,
                                                 const char* path) {
    return add(std::move(child), std::string_view(path != nullptr ? path : ""));
}

VornSmartPointer<VornTreeNode> VornTreeNode::add(VornSmartPointer<VornTreeNode> child,
                                                 std::string_view path) {
    if (!child) return find(path);
    VornSmartPointer<VornTreeNode> at;
    for (PathWalk walk(path); !walk.atEnd();) {
        VornTreeNode& parent = at ? *at : *this;
        const std::string_view name = walk.name();
        const std::string_view prefix = walk.prefix();
        walk.next();
        VornSmartPointer<VornTreeNode> below = parent.childAt(name);
        if (!below) below = parent.insert(name, walk.atEnd() ? child : makeNode(prefix, *child));
        if (!below) return nullptr;
        at = std::move(below);
    }
    return at;
}

VornSmartPointer<VornTreeNode> VornTreeNode::find(std::string_view path) const {
    VornSmartPointer<VornTreeNode> at;
    for (PathWalk walk(path); !walk.atEnd(); walk.next()) {
        const VornTreeNode& parent = at ? *at : *this;
        at = parent.childAt(walk.name());
        if (!at) break;
    }
    return at;
}

void VornTreeNode::print(int indent) const {
    if (!VornLogging::isOn(9)) return;
    // Children wait on a stack of our own, the next one to print on top.
    std::vector<std::pair<VornSmartPointer<VornTreeNode>, int>> rest;
    const auto printOne = [&rest](const VornTreeNode& node, int column) {
        node.printGuts(column);
        const int below = std::min(column + kIndentStep, kMostIndent);
        VornReadLock lock(node.mutex_);
        if (!node.children_) return;
        for (auto& child : node.children_->lastToFirst()) {
            rest.emplace_back(std::move(child), below);
        }
    };
    printOne(*this, std::clamp(indent, 0, kMostIndent));
    while (!rest.empty()) {
        const auto [node, column] = std::move(rest.back());
        rest.pop_back();
        printOne(*node, column);
    }
}

void VornTreeNode::printGuts(int indent) const {
    VORN_LOG(9, std::string(static_cast<std::size_t>(indent), ' ')
                    << "VornTreeNode::print: Node Name = " << name_);
}

VornSmartPointer<VornTreeNode> VornTreeNode::makeNode(std::string_view path,
                                                      const VornTreeNode&) const {
    const auto separator = path.find_last_of(kSeparators);
    const auto begin = separator == std::string_view::npos ? 0 : separator + 1;
    return makeCounted<VornTreeNode>(std::string(path.substr(begin)));
}

}  // namespace VornSupport
