#include "support/bytes.h"

#include <algorithm>

namespace quorvane {

void ByteBuffer::grow(std::size_t size) {
    constexpr std::size_t kSmallestBlock = 64;
    // A request beyond the ceiling ends in `reallocate`; cut here so that the sum cannot wrap.
    const std::size_t wanted = end_ + std::min(size, kMemoryCeilingBytes);
    capacity_ = std::max({wanted, capacity_ + capacity_ / 2, kSmallestBlock});
    block_ = static_cast<char*>(reallocate(block_, capacity_));
}

}  // namespace quorvane
