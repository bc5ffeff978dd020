#pragma once

#include "runtime/platform/Export.h"
#include "runtime/support/VornObjectBase.h"
#include "runtime/support/VornSmartPointer.h"

#include <array>
#include <cstddef>
#include <deque>
#include <string>
#include <string_view>

namespace VornNet {

// The deliveries that one client has not taken yet, one behind the other. Many
// small ones lie together, ready to be sent as one piece; the large part of a
// large one may belong to somebody else and is only pointed to, so that an
// event costs its size once and not once a client. One thread at a time.
class VORN_EXPORT VornDeliveryBacklog {
public:
    using Owner = VornSupport::VornSmartPointer<VornSupport::VornObjectBase>;
    using Pieces = std::array<std::string_view, 2>;

    // Appends a delivery: `head`, which is copied, then `rest`, which `owner`
    // keeps as it is (none: `rest` is empty).
    void add(std::string_view head, const Owner& owner, std::string_view rest);

    std::size_t unsent() const { return end_ - sent_; }              // bytes
    std::size_t deliveries() const { return ends_.size(); }          // not sent to their end
    // What comes next in a stream, at least one byte unless nothing is unsent.
    Pieces nextPieces() const;
    // What is left of the delivery that comes next. Empty when there is none;
    // a delivery that lies in two parts is none that this can give.
    std::string_view nextDelivery() const;
    void markSent(std::size_t bytes);
    // A delivery that was sent in part is to be sent again, from its beginning.
    void rewind() { sent_ = begin_; }
    void clear();

private:
    struct Block {
        std::string own;
        Owner owner;
        std::string_view shared;

        std::string_view bytes() const { return owner ? shared : std::string_view(own); }
    };

    std::string& ownRoom(std::size_t bytes);
    void dropBlocks();

    std::deque<Block> blocks_;
    std::deque<std::size_t> ends_;  // of the deliveries that are not sent to their end
    // Positions, counted in bytes since the backlog was empty:
    std::size_t base_ = 0;   // where the first block begins
    std::size_t begin_ = 0;  // of the first delivery that is not sent to its end
    std::size_t sent_ = 0;
    std::size_t end_ = 0;
};

}  // namespace VornNet
