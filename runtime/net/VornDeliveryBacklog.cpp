#include "runtime/net/VornDeliveryBacklog.h"

#include <algorithm>

namespace VornNet {
namespace {

constexpr std::size_t kBlock = std::size_t{64} * 1024;  // small deliveries that lie together

}  // namespace

// Where to append bytes that are copied.
std::string& VornDeliveryBacklog::ownRoom(std::size_t bytes) {
    const bool fits = !blocks_.empty() && !blocks_.back().owner &&
                      (blocks_.back().own.empty() || blocks_.back().own.size() + bytes <= kBlock);
    if (!fits) blocks_.emplace_back();
    return blocks_.back().own;
}

void VornDeliveryBacklog::add(std::string_view head, const Owner& owner, std::string_view rest) {
    ends_.push_back(end_ + head.size() + rest.size());
    try {
        ownRoom(head.size()).append(head);
        if (!rest.empty()) blocks_.push_back({{}, owner, rest});
    } catch (...) {
        clear();  // no memory: better nothing than half a delivery
        throw;
    }
    end_ = ends_.back();
}

VornDeliveryBacklog::Pieces VornDeliveryBacklog::nextPieces() const {
    Pieces pieces;
    std::size_t skip = sent_ - base_;
    std::size_t found = 0;
    for (const Block& block : blocks_) {
        const std::string_view bytes = block.bytes();
        if (skip < bytes.size()) pieces[found++] = bytes.substr(skip);
        if (found == pieces.size()) break;
        skip -= std::min(skip, bytes.size());
    }
    return pieces;
}

std::string_view VornDeliveryBacklog::nextDelivery() const {
    if (ends_.empty()) return {};
    return nextPieces()[0].substr(0, ends_.front() - sent_);
}

void VornDeliveryBacklog::markSent(std::size_t bytes) {
    sent_ += bytes;
    if (sent_ == end_) {
        clear();
        return;
    }
    while (ends_.front() <= sent_) {
        begin_ = ends_.front();
        ends_.pop_front();
    }
    dropBlocks();
}

// A block is kept until the delivery that ends in it is sent.
void VornDeliveryBacklog::dropBlocks() {
    while (base_ + blocks_.front().bytes().size() <= begin_) {
        base_ += blocks_.front().bytes().size();
        blocks_.pop_front();
    }
}

void VornDeliveryBacklog::clear() {
    ends_.clear();
    base_ = begin_ = sent_ = end_ = 0;
    // The memory of one block serves again.
    while (blocks_.size() > 1) blocks_.pop_back();
    if (blocks_.empty()) return;
    const bool keep = !blocks_.front().owner && blocks_.front().own.capacity() <= kBlock;
    if (keep) {
        blocks_.front().own.clear();
    } else {
        blocks_.clear();
    }
}

}  // namespace VornNet
