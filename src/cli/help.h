#pragma once

#include <span>
#include <string>
#include <string_view>

#include "cli/command_model.h"

namespace quorvane {

/// The help text of the command at `path` (canonical names, outermost first), or of the program for
/// an empty path, with the options of the program and of the command.  One tab separates the
/// columns, nothing is wrapped, and the text ends without a line feed.
[[nodiscard]] std::string render_help(const ProgramSpec& program,
                                      std::span<const std::string_view> path);

}  // namespace quorvane
