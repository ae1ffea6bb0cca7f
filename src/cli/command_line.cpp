#include "cli/command_line.h"

#include <algorithm>
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
    std::span<const char* const> words;  // Those that have not been read.
    CommandSpec command;                 // The current one.
    ParseResult result;
};

std::string_view take_word(Walk& walk) {
    const std::string_view word = walk.words.front();
    walk.words = walk.words.subspan(1);
    return word;
}

ParseResult end_walk(Walk& walk, ParseKind kind, std::string text) {
    walk.result.ok = kind != ParseKind::kError;
    walk.result.kind = kind;
    walk.result.text = std::move(text);
    return std::move(walk.result);
}

ParseResult end_with_help(Walk& walk) {
    return end_walk(walk, ParseKind::kHelp, render_help(walk.program, walk.result.command_path));
}

ParseResult end_with_error(Walk& walk, std::string message) {
    return end_walk(walk, ParseKind::kError, std::move(message));
}

// Calls `visit` with each option in scope: the inherited ones of the commands on the path, then
// those of the current command.
template <typename Visit> void visit_scope(const Walk& walk, const Visit& visit) {
    CommandSpec command = root_command(walk.program);
    for (const std::string_view name : walk.result.command_path) {
        for (const OptionSpec& option : command.options) {
            if (option.inherited) visit(option);
        }
        command = find_subcommand(command, name).value_or(command);
    }
    for (const OptionSpec& option : command.options) visit(option);
}

std::optional<OptionSpec> find_option(const Walk& walk, std::string_view name) {
    std::optional<OptionSpec> found;
    visit_scope(walk, [&found, name](const OptionSpec& option) {
        if (!found && option.is_named(name)) found = option;
    });
    return found;
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
    const TextSplit split = split_once(word, '=');
    const std::string name(split.before);
    const std::optional<OptionSpec> option = find_option(walk, name);
    if (!option) return "unknown option " + name;
    std::string_view value = "true";
    if (option->takes_value()) {
        if (!split.found && walk.words.empty()) {
            return name + " requires " + std::string(option->value_name);
        }
        value = split.found ? split.after : take_word(walk);
        if (!is_allowed(*option, value)) {
            return "invalid value for " + name + ": " + std::string(value);
        }
    }
    store_value(walk.result, {option->key, value, true});
    return std::nullopt;
}

void read_word(Walk& walk, std::string_view word) {
    for (const CommandSpec& subcommand : walk.command.subcommands) {
        const auto& aliases = subcommand.aliases;
        if (subcommand.name == word || std::ranges::find(aliases, word) != aliases.end()) {
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
    if (result.command_path.empty() && result.positionals.empty()) return end_with_help(walk);
    std::optional<std::string_view> missing;  // The long form of the first.
    visit_scope(walk, [&result, &missing](const OptionSpec& option) {
        if (missing || find_value(result, option.key)) return;
        if (option.required) {
            missing = option.long_form;
        } else {
            store_value(result, {option.key, option.default_value, false});
        }
    });
    if (missing) return end_with_error(walk, "missing required option " + std::string(*missing));
    if (!positional_count_fits(walk.command.arguments, result.positionals.size())) {
        return end_with_error(
            walk, "invalid arguments\n" + render_help(walk.program, result.command_path));
    }
    return end_walk(walk, ParseKind::kCommand, {});
}

}  // namespace

ParseResult parse_command_line(std::span<const char* const> words, const ProgramSpec& program) {
    Walk walk = {program, words, root_command(program), {}};
    bool options_ended = false;
    while (!walk.words.empty()) {
        const std::string_view word = take_word(walk);
        if (options_ended || !word.starts_with('-')) {
            read_word(walk, word);
        } else if (word == "--") {
            options_ended = true;
        } else if (word == "--help" || word == "-h") {
            return end_with_help(walk);
        } else if ((word == "--version" || word == "-V") && !find_option(walk, word)) {
            std::string line = std::string(program.name) + " " + std::string(program.version);
            return end_walk(walk, ParseKind::kVersion, std::move(line));
        } else if (std::optional<std::string> error = read_option(walk, word)) {
            return end_with_error(walk, std::move(*error));
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
