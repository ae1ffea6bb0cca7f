#pragma once

#include <cstdint>

namespace quorvane {

/// Milliseconds of CLOCK_MONOTONIC, counted from an arbitrary start.  A failed reading, or one
/// whose nanoseconds would not fit 64 bits, is 0.
[[nodiscard]] std::int64_t monotonic_ms();

}  // namespace quorvane
