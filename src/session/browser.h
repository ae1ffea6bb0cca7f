#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace quorvane {

/// The full path of the command `name`: itself when it holds a slash, else the first executable
/// of that name in the directories of PATH ("/usr/local/bin:/usr/bin:/bin" when PATH is absent).
/// An empty component of PATH is skipped: the working directory is nobody's search path.
[[nodiscard]] std::optional<std::string> find_executable(std::string_view name);

/// Starts a command and returns at once, without ever waiting for it; the command's name comes
/// first.  The child keeps the environment and gets what a program started from the desktop has:
/// `user_umask` as its file-creation mask, the default action for the signals that this process
/// ignores, a session without a terminal, so that Ctrl-C does not reach it, and /dev/null on its
/// three streams, so that a text browser cannot seize the terminal.
/// Returns whether a child was started; a missing command is no error and says nothing.
bool launch_browser(std::span<const std::string> command, unsigned user_umask);

}  // namespace quorvane
