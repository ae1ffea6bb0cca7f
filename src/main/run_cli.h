#pragma once

namespace quorvane {

/// Runs the command that the process's arguments name, prints its results or the reason of its
/// failure, and returns the exit status, 0 or 1.
[[nodiscard]] int run_cli();

}  // namespace quorvane
