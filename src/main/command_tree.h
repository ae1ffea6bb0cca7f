#pragma once

#include "cli/command_model.h"

namespace quorvane {

/// The whole command line of the program: its commands, options and their texts.
[[nodiscard]] ProgramSpec command_tree();

}  // namespace quorvane
