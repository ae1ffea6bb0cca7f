#include "support/bytes.h"

#include <algorithm>

namespace quorvane {

void ByteBuffer::grow(std::size_t size) {
    // Parsers that adopt a buffer want a few readable bytes behind the last one.
    constexpr std::size_t kTail = 64;
    // Said here, before the sum could wrap, and also where nothing is counted.
    if (size > kMemoryCeilingBytes - end_) fail_memory_limit();
    const std::size_t wanted = end_ + size + kTail;
    const std::size_t capacity = std::max(wanted, capacity_ + capacity_ / 2);
    if (capacity < kHugePageThreshold) {
        capacity_ = capacity;
        block_ = static_cast<char*>(reallocate(block_, capacity));
    } else if (capacity_ >= kHugePageThreshold) {
        block_ = static_cast<char*>(resize_pages(block_, capacity_, capacity));
        capacity_ = page_block_size(capacity);
    } else {
        char* const pages = static_cast<char*>(allocate_pages(capacity));
        if (block_ != nullptr) std::memcpy(pages + begin_, block_ + begin_, end_ - begin_);
        quorvane::release(block_);
        block_ = pages;
        capacity_ = page_block_size(capacity);
    }
}

}  // namespace quorvane
