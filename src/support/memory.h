#pragma once

#include <cstddef>
#include <cstdint>

/// Memory under one process-wide ceiling.
///
/// Every C++ allocation (all forms of the global `operator new`) and every block handed out here
/// is counted.  An allocation that would pass the ceiling, or that the system refuses, writes the
/// line "memory limit exceeded" to standard error and aborts the process; so no function here
/// returns null and no caller checks.  OpenSSL's own allocations are outside the count.
///
/// With the build option QUORVANE_MEMORY_CEILING off (the sanitizers bring operators of their
/// own) nothing is counted, and a refused allocation still ends the process in the same way.
namespace quorvane {

/// 1 GiB: no input within the limits of the parsers comes near it.
inline constexpr std::size_t kMemoryCeilingBytes = std::size_t{1} << 30;

/// A block of at least `size` bytes, aligned for any scalar type, its contents indeterminate.
[[nodiscard]] void* allocate(std::size_t size) noexcept;

/// Grows or shrinks `block` (null counts as empty) to `size` bytes, keeping what both hold.
/// Large blocks are remapped rather than copied.
[[nodiscard]] void* reallocate(void* block, std::size_t size) noexcept;

/// Gives back a block of `allocate` or `reallocate`; null is allowed.
void release(void* block) noexcept;

/// Whole zeroed pages, counted in full but taken from the system only where they are touched.
///
/// They pay from kHugePageThreshold on: such a block lies on a huge page's boundary, its size is
/// rounded up to whole ones, and the system is asked for them, which makes a first touch four
/// times cheaper than with small pages.
[[nodiscard]] void* allocate_pages(std::size_t size) noexcept;
/// Grows or shrinks a block of `old_size` bytes, by moving pages rather than bytes.
[[nodiscard]] void* resize_pages(void* pages, std::size_t old_size, std::size_t size) noexcept;
/// Gives back a block of `size` bytes; null is allowed.
void release_pages(void* pages, std::size_t size) noexcept;

/// Touching one huge page costs as much as touching half a megabyte of small ones.
inline constexpr std::size_t kHugePageThreshold = std::size_t{512} << 10;
inline constexpr std::size_t kHugePageSize = std::size_t{2} << 20;

/// The usable size of a block of pages that was asked for with `size`.
[[nodiscard]] constexpr std::size_t page_block_size(std::size_t size) {
    if (size < kHugePageThreshold) return size;
    return (size + kHugePageSize - 1) / kHugePageSize * kHugePageSize;
}

/// Ends the process as an allocation beyond the ceiling does.
[[noreturn]] void fail_memory_limit() noexcept;

/// Bytes counted at the moment.
[[nodiscard]] std::size_t memory_in_use() noexcept;

}  // namespace quorvane
