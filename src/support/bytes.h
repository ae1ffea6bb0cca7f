#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>
#include <utility>

#include "support/memory.h"

namespace quorvane {

/// A growable byte string for bodies, files and messages of up to many megabytes.
///
/// Unlike std::string it never writes a byte that nobody asked for: spare capacity is handed out
/// uninitialised for the kernel to fill, and bytes taken off the front stay where they are.  It
/// moves and is never copied by accident.  A view of it holds until the next call that is not
/// const.
class ByteBuffer {
  public:
    ByteBuffer() = default;
    ByteBuffer(ByteBuffer&& other) noexcept : block_(std::exchange(other.block_, {})) {}
    ByteBuffer& operator=(ByteBuffer&& other) noexcept {
        ByteBuffer moved(std::move(other));
        std::swap(block_, moved.block_);
        return *this;
    }
    ByteBuffer(const ByteBuffer&) = delete;
    ByteBuffer& operator=(const ByteBuffer&) = delete;
    ~ByteBuffer() { release(block_.bytes); }

    /// A buffer of its own that holds the same bytes.
    [[nodiscard]] static ByteBuffer copy_of(std::string_view bytes) {
        ByteBuffer buffer;
        buffer.append(bytes);
        return buffer;
    }

    [[nodiscard]] std::string_view view() const { return {block_.bytes + block_.begin, size()}; }
    [[nodiscard]] std::size_t size() const { return block_.end - block_.begin; }
    [[nodiscard]] bool empty() const { return size() == 0; }

    /// The bytes themselves, for code that rewrites them in place; null when nothing was ever held.
    [[nodiscard]] char* data() { return block_.bytes + block_.begin; }

    /// At least `added_bytes` uninitialised bytes after the last one.  Those that were filled
    /// become part of the buffer through `commit`.
    [[nodiscard]] char* spare(std::size_t added_bytes) {
        if (added_bytes > spare_size()) grow(added_bytes);
        return block_.bytes + block_.end;
    }

    /// The number of bytes that `spare` can hand out without growing.
    [[nodiscard]] std::size_t spare_size() const { return block_.capacity - block_.end; }

    /// Takes in the first `added_bytes` bytes that the last `spare` handed out.
    void commit(std::size_t added_bytes) { block_.end += added_bytes; }

    void append(std::string_view bytes) {
        if (bytes.empty()) return;
        std::memcpy(spare(bytes.size()), bytes.data(), bytes.size());
        block_.end += bytes.size();
    }

    /// Drops the first `count` bytes, at most all of them, without moving the others.
    void drop_front(std::size_t count) { block_.begin += count < size() ? count : size(); }

    /// Keeps the first `count` bytes, if there are more.
    void truncate(std::size_t count) {
        if (count < size()) block_.end = block_.begin + count;
    }

  private:
    struct Block {
        char* bytes = nullptr;  // From `allocate`; null exactly when `capacity` is 0.
        std::size_t begin = 0;  // Invariant: begin <= end <= capacity.
        std::size_t end = 0;
        std::size_t capacity = 0;
    };

    void grow(std::size_t added_bytes);

    Block block_;
};

}  // namespace quorvane
