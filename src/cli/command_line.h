#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/command_model.h"

/// A declarative command-line parser: from a tree of commands and a list of words to one result.
/// It never prints and never exits.
namespace quorvane {

enum class ParseKind { kError, kHelp, kVersion, kCommand };

struct OptionValue {
    std::string_view key;
    std::string_view value;  ///< Refers to the word it came from, or to the program's records.
    bool given = false;      ///< It came from the command line, not from a default.
};

struct ParseResult {
    bool ok = false;  ///< Unset only for kError.
    ParseKind kind = ParseKind::kError;
    std::string text;  ///< The message, the help text or the version line; empty for kCommand.
    std::vector<std::string_view> command_path;  ///< Canonical names, outermost first.
    std::vector<OptionValue> option_values;      ///< One entry for each key.
    std::vector<std::string_view> positionals;
};

/// Reads `words`, the arguments after the program's name, from left to right, up to the first
/// error.  An option is looked up among those in scope at its place: the inherited options of the
/// commands before it, then the options of the current command.  The last occurrence of an option
/// wins, and "--" ends the options.  "-h" and "--help" end the reading with the help of the current
/// command; "-V" and "--version" end it with the version, unless an option in scope has that name.
/// The value in "--flag=x" is ignored on purpose.  A line of options only, or of nothing, asks for
/// help.
///
/// Errors: "unknown option NAME"; "NAME requires VALUE"; "invalid value for NAME: VALUE"; "missing
/// required option --LONG"; "invalid arguments", a line feed and the command's help.
[[nodiscard]] ParseResult parse_command_line(std::span<const char* const> words,
                                             const ProgramSpec& program);

/// The value, given or default, or `fallback` when `key` has no entry.
[[nodiscard]] std::string_view option_value(const ParseResult& result, std::string_view key,
                                            std::string_view fallback = {});

/// Whether the option was given on the command line.
[[nodiscard]] bool flag_set(const ParseResult& result, std::string_view key);

/// Whether the command path, joined by single spaces, is `text` ("config pull").
[[nodiscard]] bool command_is(const ParseResult& result, std::string_view text);

}  // namespace quorvane
