#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quorvane {

/// The path of the command `name`: the name itself when it holds a slash, else the first
/// executable of that name in the directories of PATH ("/usr/local/bin:/usr/bin:/bin" when PATH is
/// absent).  An empty component of PATH is skipped, so the working directory is never searched.
[[nodiscard]] std::optional<std::string> find_executable(std::string_view name);

/// Starts a command (its name, then its arguments) and never waits for it.  The child keeps the
/// environment and is otherwise like a program started from the desktop: it has `user_umask` as its
/// file-creation mask, the default action for the signals that this process ignores, a session
/// without a terminal, so that Ctrl-C does not reach it, and /dev/null on its three streams, so
/// that a text browser cannot use the terminal.  Returns whether a child was started; a missing
/// command is no error and prints nothing.
bool launch_browser(std::vector<std::string> command, unsigned user_umask);

}  // namespace quorvane
