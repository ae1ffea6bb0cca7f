#pragma once

namespace quorvane {

/// Ends the process at once and without a message: an invariant of this program does not hold.
/// Never the answer to anything that came from outside.
[[noreturn]] inline void internal_fault() { __builtin_trap(); }

}  // namespace quorvane
