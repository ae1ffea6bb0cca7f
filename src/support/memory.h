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

/// Whole zeroed pages, counted in full but taken from the system only where they are touched;
/// from kHugePageThreshold on the system is asked for huge pages, which halve the cost of a first
/// touch.  `release_pages` wants the same size again.
[[nodiscard]] void* allocate_pages(std::size_t size) noexcept;
void release_pages(void* pages, std::size_t size) noexcept;

inline constexpr std::size_t kHugePageThreshold = std::size_t{256} << 10;

/// Bytes counted at the moment.
[[nodiscard]] std::size_t memory_in_use() noexcept;

}  // namespace quorvane
