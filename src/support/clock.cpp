#include "support/clock.h"

#include "support/syscall.h"

namespace quorvane {

std::int64_t monotonic_ms() {
    // The last second that, counted in nanoseconds and with any fraction, is below 2^63.
    constexpr std::int64_t kLastSecond = 9'223'372'035;
    timespec now = {};
    if (kernel::clock_gettime(CLOCK_MONOTONIC, &now) < 0 || now.tv_sec > kLastSecond) return 0;
    return (now.tv_sec * 1'000'000'000 + now.tv_nsec) / 1'000'000;
}

void pause_ms(std::int64_t duration_ms) {
    static_cast<void>(kernel::poll(nullptr, 0, duration_ms));
}

}  // namespace quorvane
