#include "cli/command_line.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <utility>

#include "cli/help.h"
#include "support/text.h"

namespace quorvane {
namespace {

// The state of one reading.
struct Walk {
    const ProgramSpec& program;
    std::span<const char* const> words;      // Those that have not been read.
    CommandSpec command;                     // The current one.
    std::vector<OptionSpec> inherited = {};  // Of the commands before it.
    ParseResult result = {};
};

std::string_view take_word(Walk& walk) {
    const std::string_view word = walk.words.front();
    walk.words = walk.words.subspan(1);
    return word;
}

ParseResult parse_failed(std::string message) {
    ParseResult result;
    result.text = std::move(message);
    return result;
}

ParseResult parse_ended(Walk& walk, ParseKind kind, std::string text) {
    walk.result.ok = true;
    walk.result.kind = kind;
    walk.result.text = std::move(text);
    return std::move(walk.result);
}

ParseResult ended_by_help(Walk& walk) {
    return parse_ended(walk, ParseKind::kHelp, render_help(walk.program, walk.result.command_path));
}

// The options in scope, in order.
std::array<std::span<const OptionSpec>, 2> scope(const Walk& walk) {
    return {walk.inherited, walk.command.options};
}

std::optional<OptionSpec> find_option(const Walk& walk, std::string_view name) {
    for (const std::span<const OptionSpec> options : scope(walk)) {
        for (const OptionSpec& option : options) {
            if (option.is_named(name)) return option;
        }
    }
    return std::nullopt;
}

std::optional<OptionValue> find_value(const ParseResult& result, std::string_view key) {
    const auto found = std::ranges::find(result.option_values, key, &OptionValue::key);
    if (found == result.option_values.end()) return std::nullopt;
    return *found;
}

void store_value(ParseResult& result, const OptionValue& value) {
    const auto found = std::ranges::find(result.option_values, value.key, &OptionValue::key);
    if (found == result.option_values.end()) {
        result.option_values.push_back(value);
    } else {
        *found = value;
    }
}

bool is_allowed(const OptionSpec& option, std::string_view value) {
    const auto& allowed = option.allowed_values;
    return allowed.empty() || std::ranges::find(allowed, value) != allowed.end();
}

// Stores the option `word` with its value, which may be the next word.  Returns the error, if any.
std::optional<std::string> read_option(Walk& walk, std::string_view word) {
    const TextSplit parts = split_once(word, '=');
    const std::string_view name = parts.before;
    const std::optional<OptionSpec> option = find_option(walk, name);
    if (!option) return concat({"unknown option ", name});
    std::string_view value = "true";
    if (option->takes_value()) {
        if (!parts.found && walk.words.empty()) {
            return concat({name, " requires ", option->value_name});
        }
        value = parts.found ? parts.after : take_word(walk);
        if (!is_allowed(*option, value)) {
            return concat({"invalid value for ", name, ": ", value});
        }
    }
    store_value(walk.result, {option->key, value, true});
    return std::nullopt;
}

void read_word(Walk& walk, std::string_view word) {
    for (const CommandSpec& subcommand : walk.command.subcommands) {
        const auto& aliases = subcommand.aliases;
        if (subcommand.name == word || std::ranges::find(aliases, word) != aliases.end()) {
            std::ranges::copy_if(walk.command.options, std::back_inserter(walk.inherited),
                                 &OptionSpec::inherited);
            walk.result.command_path.push_back(subcommand.name);
            walk.command = subcommand;
            return;
        }
    }
    walk.result.positionals.push_back(word);
}

bool positional_count_fits(std::span<const ArgumentSpec> arguments, std::size_t count) {
    const auto required = std::ranges::count_if(arguments, &ArgumentSpec::required);
    if (std::cmp_less(count, required)) return false;
    return count <= arguments.size() || std::ranges::any_of(arguments, &ArgumentSpec::repeatable);
}

ParseResult finish(Walk& walk) {
    // A line of options only, or of nothing, asks for help; a stray word is an error below.
    ParseResult& result = walk.result;
    if (result.command_path.empty() && result.positionals.empty()) return ended_by_help(walk);
    for (const std::span<const OptionSpec> options : scope(walk)) {
        for (const OptionSpec& option : options) {
            if (find_value(result, option.key)) continue;
            if (option.required) {
                return parse_failed(concat({"missing required option ", option.long_form}));
            }
            store_value(result, {option.key, option.default_value, false});
        }
    }
    if (!positional_count_fits(walk.command.arguments, result.positionals.size())) {
        return parse_failed("invalid arguments\n" + render_help(walk.program, result.command_path));
    }
    return parse_ended(walk, ParseKind::kCommand, {});
}

}  // namespace

ParseResult parse_command_line(std::span<const char* const> words, const ProgramSpec& program) {
    Walk walk = {program, words, root_command(program)};
    bool options_ended = false;
    while (!walk.words.empty()) {
        const std::string_view word = take_word(walk);
        if (options_ended || !word.starts_with('-')) {
            read_word(walk, word);
        } else if (word == "--") {
            options_ended = true;
        } else if (word == "--help" || word == "-h") {
            return ended_by_help(walk);
        } else if ((word == "--version" || word == "-V") && !find_option(walk, word)) {
            return parse_ended(walk, ParseKind::kVersion,
                               concat({program.name, " ", program.version}));
        } else if (std::optional<std::string> error = read_option(walk, word)) {
            return parse_failed(std::move(*error));
        }
    }
    return finish(walk);
}

std::string_view option_value(const ParseResult& result, std::string_view key,
                              std::string_view fallback) {
    const std::optional<OptionValue> entry = find_value(result, key);
    return entry ? entry->value : fallback;
}

bool flag_set(const ParseResult& result, std::string_view key) {
    const std::optional<OptionValue> entry = find_value(result, key);
    return entry && entry->given;
}

bool command_is(const ParseResult& result, std::string_view text) {
    std::string joined;
    for (const std::string_view name : result.command_path) {
        if (!joined.empty()) joined.append(" ");
        joined.append(name);
    }
    return joined == text;
}

}  // namespace quorvane
