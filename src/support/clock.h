#pragma once

#include <cstdint>

namespace quorvane {

/// Milliseconds of CLOCK_MONOTONIC, counted from an arbitrary start.  A failed reading, or one
/// whose nanoseconds would not fit 64 bits, is 0.
[[nodiscard]] std::int64_t monotonic_ms();

/// Does nothing for about `duration_ms`, 0 or more; a signal may end it early.
void pause_ms(std::int64_t duration_ms);

}  // namespace quorvane
