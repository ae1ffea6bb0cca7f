#pragma once

#include <span>
#include <string>
#include <string_view>

#include "cli/command_model.h"

namespace quorvane {

/// The help text of the command that `path` (canonical names, outermost first) leads to, or of the
/// program itself for an empty path.  Shown are the program's options and the command's own.
/// Columns are separated by one tab; nothing is wrapped; the text ends without a line feed.
[[nodiscard]] std::string render_help(const ProgramSpec& program,
                                      std::span<const std::string_view> path);

}  // namespace quorvane
