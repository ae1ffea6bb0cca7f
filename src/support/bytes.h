#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>
#include <utility>

#include "support/memory.h"

namespace quorvane {

/// A growable byte string for bodies, files and messages of up to many megabytes.
///
/// Unlike std::string it never writes a byte that nobody asked for: spare room is handed out
/// uninitialised for the kernel to fill, growth of a large buffer remaps pages instead of copying
/// them, and bytes taken off the front stay where they are.  It moves and is never copied by
/// accident.  A view of it holds until the next call that is not const.
class ByteBuffer {
  public:
    ByteBuffer() = default;
    ByteBuffer(ByteBuffer&& other) noexcept
        : block_(std::exchange(other.block_, nullptr)),
          begin_(std::exchange(other.begin_, 0)),
          end_(std::exchange(other.end_, 0)),
          capacity_(std::exchange(other.capacity_, 0)) {}
    ByteBuffer& operator=(ByteBuffer&& other) noexcept {
        if (this != &other) {
            give_back();
            block_ = std::exchange(other.block_, nullptr);
            begin_ = std::exchange(other.begin_, 0);
            end_ = std::exchange(other.end_, 0);
            capacity_ = std::exchange(other.capacity_, 0);
        }
        return *this;
    }
    ByteBuffer(const ByteBuffer&) = delete;
    ByteBuffer& operator=(const ByteBuffer&) = delete;
    ~ByteBuffer() { give_back(); }

    /// A buffer of its own that holds the same bytes.
    [[nodiscard]] static ByteBuffer copy_of(std::string_view bytes) {
        ByteBuffer buffer;
        buffer.append(bytes);
        return buffer;
    }

    [[nodiscard]] std::string_view view() const {
        return block_ == nullptr ? std::string_view() : std::string_view(block_ + begin_, size());
    }
    [[nodiscard]] std::size_t size() const { return end_ - begin_; }
    [[nodiscard]] bool empty() const { return end_ == begin_; }

    /// The bytes themselves, for code that rewrites them in place; null when nothing was ever held.
    [[nodiscard]] char* data() { return block_ == nullptr ? nullptr : block_ + begin_; }

    /// Room for at least `size` more bytes behind the last one, uninitialised.  What was filled
    /// becomes part of the buffer through `commit`.
    [[nodiscard]] char* spare(std::size_t size) {
        if (size > capacity_ - end_) grow(size);
        return block_ + end_;
    }

    /// How much room there is behind the last byte, without growing.
    [[nodiscard]] std::size_t spare_size() const { return capacity_ - end_; }

    /// Takes in the first `size` bytes of the room that the last `spare` gave.
    void commit(std::size_t size) { end_ += size; }

    void append(std::string_view bytes) {
        if (bytes.empty()) return;
        std::memcpy(spare(bytes.size()), bytes.data(), bytes.size());
        end_ += bytes.size();
    }

    /// Drops the first `count` bytes, at most all of them, without moving the others.
    void drop_front(std::size_t count) { begin_ += count < size() ? count : size(); }

    /// Keeps the first `count` bytes, if there are more.
    void truncate(std::size_t count) {
        if (count < size()) end_ = begin_ + count;
    }

  private:
    void grow(std::size_t size);
    void give_back() {
        if (capacity_ < kHugePageThreshold) {
            quorvane::release(block_);
        } else {
            release_pages(block_, capacity_);
        }
    }

    char* block_ = nullptr;
    std::size_t begin_ = 0;  // Invariant: begin_ <= end_ <= capacity_.
    std::size_t end_ = 0;
    // Of `block_`, in bytes; 0 exactly when it is null.  From kHugePageThreshold on the block
    // consists of pages.
    std::size_t capacity_ = 0;
};

}  // namespace quorvane
