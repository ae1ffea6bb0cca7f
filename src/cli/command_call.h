#pragma once

#include <string_view>

#include "cli/command_line.h"
#include "session/origin.h"

namespace quorvane {

/// The keys under which the values of options are looked up.
namespace option_key {
inline constexpr std::string_view kBase = "base";
inline constexpr std::string_view kNoBrowser = "no-browser";
inline constexpr std::string_view kProject = "project";
inline constexpr std::string_view kFile = "file";
}  // namespace option_key

/// What the body of a command gets.  It returns the exit status, 0 or 1, and has printed its result
/// or the reason of its failure.
struct CommandCall {
    const ParseResult& parsed;
    const ServiceOrigin& origin;
    unsigned user_umask = 0;      ///< The file-creation mask that the user had.
    std::string_view token = {};  ///< Empty for a command that needs none.

    [[nodiscard]] std::string_view option(std::string_view key) const {
        return option_value(parsed, key);
    }
};

}  // namespace quorvane
