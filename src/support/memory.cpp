#include "support/memory.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <string_view>

#include "support/syscall.h"

namespace quorvane {
namespace {

// Invariant: never above kMemoryCeilingBytes, so that a subtraction from it cannot wrap.
std::size_t bytes_in_use = 0;

// A block of at least the first size consists of complete huge pages, if the system has them: the
// first touch of their bytes then costs a quarter of that of small pages.
constexpr std::size_t kHugeBlockBytes = std::size_t{4} << 20;
constexpr std::size_t kHugePageBytes = std::size_t{2} << 20;

void* allocate_aligned(std::size_t size, std::size_t alignment) noexcept {
    const bool huge = size >= kHugeBlockBytes && size <= kMemoryCeilingBytes;
    if (huge) {
        alignment = std::max(alignment, kHugePageBytes);
        size = (size + kHugePageBytes - 1) / kHugePageBytes * kHugePageBytes;
    }
    if (size > kMemoryCeilingBytes - bytes_in_use) fatal_memory_limit();
    void* block = nullptr;
    const int error = posix_memalign(&block, alignment, std::max<std::size_t>(size, 1));
    if (error != 0) fatal_memory_limit();
    // Advice only: a kernel without huge pages returns an error that changes nothing.
    if (huge) static_cast<void>(kernel::madvise(block, size, MADV_HUGEPAGE));
    // The allocator may hand out more than was asked for; what it handed out is what counts.
    const std::size_t usable_size = malloc_usable_size(block);
    if (usable_size > kMemoryCeilingBytes - bytes_in_use) fatal_memory_limit();
    bytes_in_use += usable_size;
    return block;
}

}  // namespace

void* allocate(std::size_t size) noexcept {
    return allocate_aligned(size, alignof(std::max_align_t));
}

void release(void* block) noexcept {
    if (block == nullptr) return;
    bytes_in_use -= malloc_usable_size(block);
    std::free(block);
}

void fatal_memory_limit() noexcept {
    constexpr std::string_view kMessage = "memory limit exceeded\n";
    static_cast<void>(kernel::write(2, kMessage.data(), kMessage.size()));
    std::abort();
}

std::size_t memory_in_use() noexcept { return bytes_in_use; }

}  // namespace quorvane

#ifdef QUORVANE_MEMORY_CEILING

// The forms for arrays and the nothrow forms of the library call these.
void* operator new(std::size_t size) { return quorvane::allocate(size); }
void* operator new(std::size_t size, std::align_val_t alignment) {
    return quorvane::allocate_aligned(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* block) noexcept { quorvane::release(block); }
void operator delete(void* block, std::size_t) noexcept { quorvane::release(block); }
void operator delete(void* block, std::align_val_t) noexcept { quorvane::release(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
    quorvane::release(block);
}

#endif
