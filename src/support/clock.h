#pragma once

#include <cstdint>

namespace quorvane {

/// Milliseconds of CLOCK_MONOTONIC, counted from an arbitrary start; 0 when the clock cannot be
/// read or its nanoseconds would not fit 64 bits.
[[nodiscard]] std::int64_t monotonic_ms();

/// Sleeps for about `duration_ms` (0 or more); a signal may end the sleep early.
void pause_ms(std::int64_t duration_ms);

}  // namespace quorvane
