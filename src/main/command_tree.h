#pragma once

#include "cli/command_model.h"

namespace quorvane {

/// The program's command line: its commands, its options and their texts.
[[nodiscard]] ProgramSpec command_tree();

}  // namespace quorvane
