#include "support/bytes.h"

#include <algorithm>

namespace quorvane {

void ByteBuffer::grow(std::size_t added_bytes) {
    // Parsers that adopt a buffer want a few readable bytes after the last one.
    constexpr std::size_t kPaddingBytes = 64;
    // A buffer that keeps growing is copied a few times while it is small.  Then it reserves more
    // than any input takes.
    constexpr std::size_t kLargeBytes = std::size_t{512} << 10;
    constexpr std::size_t kReservedBytes = std::size_t{16} << 20;

    // Before the sum can wrap.
    if (added_bytes > kMemoryCeilingBytes - block_.end) fatal_memory_limit();
    const std::size_t wanted = block_.end + added_bytes + kPaddingBytes;
    std::size_t capacity = std::max(wanted, block_.capacity + block_.capacity / 2);
    const bool grows_again = block_.capacity > 0;
    const bool large = wanted >= kLargeBytes || block_.capacity >= kLargeBytes / 4;
    if (grows_again && large) capacity = std::max(capacity, kReservedBytes);
    auto* const bytes = static_cast<char*>(allocate(capacity));
    if (block_.bytes != nullptr) {
        std::memcpy(bytes + block_.begin, block_.bytes + block_.begin, size());
    }
    release(block_.bytes);
    block_.bytes = bytes;
    block_.capacity = capacity;
}

}  // namespace quorvane
