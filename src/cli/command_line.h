#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/command_model.h"

/// A declarative command-line parser: a tree of commands and a list of words in, one verdict out.
/// It never prints and never exits.
namespace quorvane {

enum class ParseKind { kError, kHelp, kVersion, kCommand };

struct OptionValue {
    std::string_view key;
    std::string_view value;  ///< Refers to the word it came from, or to the program's records.
    bool given = false;      ///< From the command line, not from a default.
};

struct ParseResult {
    bool ok = false;  ///< Unset only for kError.
    ParseKind kind = ParseKind::kError;
    std::string text;  ///< The message, the help text or the version line; empty for kCommand.
    std::vector<std::string_view> command_path;  ///< Canonical names, outermost first.
    std::vector<OptionValue> option_values;      ///< One entry for each key.
    std::vector<std::string_view> positionals;
};

/// Reads `words`, the arguments after the program's name, from left to right; the first error ends
/// the reading.  Option names are known by the scope at the place where they stand: the inherited
/// options of the commands above, then the current command's own.  The last occurrence of an
/// option wins, "--" ends the options, "-h"/"--help" answer at once with the help of the command
/// reached so far, and so do "-V"/"--version" unless an option in scope has taken that name.  An
/// inline value given to a flag ("--flag=x") is ignored on purpose.  A line that holds nothing but
/// options asks for help.
///
/// Errors: "unknown option NAME"; "NAME requires VALUE"; "invalid value for NAME: VALUE"; "missing
/// required option --LONG"; "invalid arguments", a line feed and the command's help.
[[nodiscard]] ParseResult parse_command_line(std::span<const std::string_view> words,
                                             const ProgramSpec& program);

/// The value given or defaulted, or `fallback` when `key` has no entry.
[[nodiscard]] std::string_view option_value(const ParseResult& result, std::string_view key,
                                            std::string_view fallback = {});

/// Whether the option stood on the command line.
[[nodiscard]] bool flag_set(const ParseResult& result, std::string_view key);

/// Whether the command path, joined by single blanks, is `text`: "config pull".
[[nodiscard]] bool command_is(const ParseResult& result, std::string_view text);

}  // namespace quorvane
