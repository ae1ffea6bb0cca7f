#pragma once

#include <cstddef>

/// Memory under one process-wide ceiling.
///
/// Every C++ allocation (all forms of the global `operator new`) and every block of `allocate` is
/// counted.  An allocation that would pass the ceiling, or that the system refuses, writes the
/// line "memory limit exceeded" to standard error and aborts the process; so no function here
/// returns null and no caller checks.  OpenSSL's own allocations are outside the count.
///
/// With the build option QUORVANE_MEMORY_CEILING off, `operator new` is the compiler's (the
/// sanitizers bring one of their own), and only the blocks of `allocate` are counted.
namespace quorvane {

/// 1 GiB: no input within the limits of the parsers comes near it.
inline constexpr std::size_t kMemoryCeilingBytes = std::size_t{1} << 30;

/// A block of at least `size` bytes, aligned for any scalar type, its contents indeterminate.
/// Memory that is never touched costs nothing.
[[nodiscard]] void* allocate(std::size_t size) noexcept;

/// Gives back a block of `allocate`; null is allowed.
void release(void* block) noexcept;

/// Ends the process as an allocation beyond the ceiling does.
[[noreturn]] void fatal_memory_limit() noexcept;

/// Bytes counted at the moment.
[[nodiscard]] std::size_t memory_in_use() noexcept;

}  // namespace quorvane
