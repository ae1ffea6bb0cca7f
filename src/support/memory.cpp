#include "support/memory.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>

#include "support/syscall.h"

namespace quorvane {
namespace {

// Invariant: never above kMemoryCeilingBytes, so that a subtraction from it cannot wrap.
std::size_t bytes_in_use = 0;

#ifdef QUORVANE_MEMORY_CEILING

void check_room(std::size_t size) noexcept {
    if (size > kMemoryCeilingBytes - bytes_in_use) fail_memory_limit();
}

// The allocator may hand out more than was asked for; what it handed out is what counts.
void count_block(void* block) noexcept {
    const std::size_t size = malloc_usable_size(block);
    check_room(size);
    bytes_in_use += size;
}

void discount_block(void* block) noexcept { bytes_in_use -= malloc_usable_size(block); }

// The first few allocations come from a room of their own and stay there: a command that ends
// early never sets up the heap, which would take 2 % of its start.  The room is small enough to
// lie in the one page of variables that the loader touches in any case.
constexpr std::size_t kFirstRoom = 3072;
constexpr std::size_t kAlignment = alignof(std::max_align_t);
alignas(kAlignment) char first_room[kFirstRoom];
std::size_t first_room_used = 0;  // Invariant: a multiple of kAlignment.

// Null when the room is used up.  `size` is at most the ceiling.
void* take_first_room(std::size_t size) noexcept {
    const std::size_t taken =
        (std::max<std::size_t>(size, 1) + kAlignment - 1) / kAlignment * kAlignment;
    if (taken > kFirstRoom - first_room_used) return nullptr;
    void* const block = first_room + first_room_used;
    first_room_used += taken;
    bytes_in_use += taken;
    return block;
}

// How many bytes of the room stand from `block` on; 0 when it is not in the room.
std::size_t first_room_behind(const void* block) noexcept {
    const std::uintptr_t offset =
        reinterpret_cast<std::uintptr_t>(block) - reinterpret_cast<std::uintptr_t>(first_room);
    return offset < kFirstRoom ? kFirstRoom - offset : 0;
}

#else

void check_room(std::size_t) noexcept {}
void count_block(void*) noexcept {}
void discount_block(void*) noexcept {}
void* take_first_room(std::size_t) noexcept { return nullptr; }
std::size_t first_room_behind(const void*) noexcept { return 0; }

#endif

void* map_pages(std::size_t size) noexcept {
    void* pages = nullptr;
    const int flags = MAP_PRIVATE | MAP_NORESERVE;
    if (kernel::mmap(&pages, size, PROT_READ | PROT_WRITE, flags) < 0) fail_memory_limit();
    return pages;
}

// Kernels from 6.7 on choose the boundary by themselves; for others what lies beside it is cut off.
void* map_huge_pages(std::size_t size) noexcept {
    char* pages = static_cast<char*>(map_pages(size));
    const auto past_boundary = [&] {
        return reinterpret_cast<std::uintptr_t>(pages) % kHugePageSize;
    };
    if (past_boundary() != 0) {
        kernel::munmap(pages, size);
        pages = static_cast<char*>(map_pages(size + kHugePageSize));
        const std::size_t head = kHugePageSize - past_boundary();
        kernel::munmap(pages, head);
        kernel::munmap(pages + head + size, kHugePageSize - head);
        pages += head;
    }
    // Advice only: a kernel without huge pages answers with an error that changes nothing.
    kernel::madvise(pages, size, MADV_HUGEPAGE);
    return pages;
}

}  // namespace

void fail_memory_limit() noexcept {
    constexpr std::string_view kMessage = "memory limit exceeded\n";
    static_cast<void>(kernel::write(2, kMessage.data(), kMessage.size()));
    std::abort();
}

void* allocate(std::size_t size) noexcept {
    check_room(size);
    if (void* const early = take_first_room(size)) return early;
    void* block = std::malloc(size == 0 ? 1 : size);
    if (block == nullptr) fail_memory_limit();
    count_block(block);
    return block;
}

void* reallocate(void* block, std::size_t size) noexcept {
    if (block == nullptr) return allocate(size);
    if (const std::size_t held = first_room_behind(block)) {
        // The new block may be the one behind it, and the bytes between belong to neither.
        return std::memmove(allocate(size), block, std::min(held, size));
    }
    discount_block(block);
    check_room(size);
    void* moved = std::realloc(block, size == 0 ? 1 : size);
    if (moved == nullptr) fail_memory_limit();
    count_block(moved);
    return moved;
}

void release(void* block) noexcept {
    if (block == nullptr || first_room_behind(block) != 0) return;
    discount_block(block);
    std::free(block);
}

void* allocate_pages(std::size_t size) noexcept {
    const std::size_t block_size = page_block_size(size);
    check_room(block_size);
    bytes_in_use += block_size;
    return size < kHugePageThreshold ? map_pages(block_size) : map_huge_pages(block_size);
}

void* resize_pages(void* pages, std::size_t old_size, std::size_t size) noexcept {
    const std::size_t old_block_size = page_block_size(old_size);
    const std::size_t block_size = page_block_size(size);
    bytes_in_use -= old_block_size;
    check_room(block_size);
    bytes_in_use += block_size;
    if (kernel::mremap(pages, old_block_size, block_size, 0) >= 0) return pages;
    // Between two such boundaries huge pages move as what they are.
    void* const target = map_huge_pages(block_size);
    const int flags = MREMAP_MAYMOVE | MREMAP_FIXED;
    if (kernel::mremap(pages, old_block_size, block_size, flags, target) < 0) fail_memory_limit();
    return target;
}

void release_pages(void* pages, std::size_t size) noexcept {
    if (pages == nullptr) return;
    kernel::munmap(pages, page_block_size(size));
    bytes_in_use -= page_block_size(size);
}

std::size_t memory_in_use() noexcept { return bytes_in_use; }

}  // namespace quorvane

#ifdef QUORVANE_MEMORY_CEILING

namespace {

void* allocate_aligned(std::size_t size, std::align_val_t alignment) noexcept {
    quorvane::check_room(size);
    void* block = nullptr;
    const std::size_t boundary = static_cast<std::size_t>(alignment);
    if (posix_memalign(&block, boundary, size) != 0) quorvane::fail_memory_limit();
    quorvane::count_block(block);
    return block;
}

}  // namespace

void* operator new(std::size_t size) { return quorvane::allocate(size); }
void* operator new[](std::size_t size) { return quorvane::allocate(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return quorvane::allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return quorvane::allocate(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return allocate_aligned(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return allocate_aligned(size, alignment);
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocate_aligned(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocate_aligned(size, alignment);
}

void operator delete(void* block) noexcept { quorvane::release(block); }
void operator delete[](void* block) noexcept { quorvane::release(block); }
void operator delete(void* block, std::size_t) noexcept { quorvane::release(block); }
void operator delete[](void* block, std::size_t) noexcept { quorvane::release(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { quorvane::release(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { quorvane::release(block); }
void operator delete(void* block, std::align_val_t) noexcept { quorvane::release(block); }
void operator delete[](void* block, std::align_val_t) noexcept { quorvane::release(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
    quorvane::release(block);
}
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept {
    quorvane::release(block);
}
void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept {
    quorvane::release(block);
}
void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) noexcept {
    quorvane::release(block);
}

#endif
