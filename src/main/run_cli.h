#pragma once

namespace quorvane {

/// Runs the one command that the process's arguments name and returns the exit status, 0 or 1.
/// Whatever there is to say has been printed.
[[nodiscard]] int run_cli();

}  // namespace quorvane
