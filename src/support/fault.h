#pragma once

namespace quorvane {

/// Ends the process at once and without a message, because an invariant of this program does not
/// hold.  Input from outside never leads here: it fails as a value.
[[noreturn]] inline void internal_fault() { __builtin_trap(); }

}  // namespace quorvane
