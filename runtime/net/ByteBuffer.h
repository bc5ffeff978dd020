#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>

namespace VornNet {

// Bytes that come in at the end and go out at the start; takes no memory until
// the first byte. Not thread-safe.
class ByteBuffer {
public:
    std::size_t size() const { return end_ - begin_; }
    bool empty() const { return begin_ == end_; }
    std::size_t capacity() const { return capacity_; }
    const char* data() const { return bytes_.get() + begin_; }
    std::string_view view() const {
        return empty() ? std::string_view() : std::string_view{data(), size()};
    }

    // Makes the whole at least `capacity` bytes large; what is held stays.
    void reserve(std::size_t capacity) {
        if (capacity <= capacity_) return;
        auto larger = std::make_unique_for_overwrite<char[]>(capacity);
        if (!empty()) std::memcpy(larger.get(), data(), size());
        end_ = size();
        begin_ = 0;
        bytes_ = std::move(larger);
        capacity_ = capacity;
    }
    // The free space behind the bytes held; grew() says how much was filled. What
    // has gone out at the start counts as free once it is a quarter of what is held,
    // which is moved then: so every byte is moved a few times at most, however
    // little is asked for at a time.
    char* room() {
        if (begin_ != 0 && mayMove()) {
            std::memmove(bytes_.get(), data(), size());
            end_ = size();
            begin_ = 0;
        }
        return bytes_.get() + end_;
    }
    std::size_t roomSize() const { return capacity_ - (mayMove() ? size() : end_); }
    void grew(std::size_t count) { end_ += count; }

    void append(std::string_view bytes) {
        if (bytes.empty()) return;
        if (capacity_ - end_ < bytes.size()) {
            if (roomSize() < bytes.size()) {
                reserve(std::max({size() + bytes.size(), capacity_ * 2, kLeast}));
            }
            room();
        }
        std::memcpy(bytes_.get() + end_, bytes.data(), bytes.size());
        end_ += bytes.size();
    }
    void consume(std::size_t count) {
        begin_ += count;
        if (begin_ == end_) begin_ = end_ = 0;
    }
    // Forgets the bytes and gives the memory back.
    void release() {
        bytes_.reset();
        capacity_ = begin_ = end_ = 0;
    }

private:
    static constexpr std::size_t kLeast = 128;  // what the first appended byte takes

    bool mayMove() const { return begin_ >= size() / 4; }

    std::unique_ptr<char[]> bytes_;
    std::size_t capacity_ = 0;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
};

}  // namespace VornNet
