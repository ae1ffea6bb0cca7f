#include "cli/command_line.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "cli/help.h"
#include "support/text.h"

namespace quorvane {
namespace {

/// The state of one reading.
struct Walk {
    const ProgramSpec& program;
    std::span<const std::string_view> words;  ///< The words that have not been read.
    CommandSpec command;                      ///< The current one.
    std::vector<const OptionSpec*> scope;     ///< The inherited options, then the command's own.
    ParseResult result;
};

void enter(Walk& walk, const CommandSpec& command) {
    std::erase_if(walk.scope, [](const OptionSpec* option) { return !option->inherited; });
    for (const OptionSpec& option : command.options) walk.scope.push_back(&option);
    walk.command = command;
}

std::string_view take_word(Walk& walk) {
    const std::string_view word = walk.words.front();
    walk.words = walk.words.subspan(1);
    return word;
}

ParseResult answer(Walk& walk, ParseKind kind, std::string text) {
    walk.result.ok = kind != ParseKind::kError;
    walk.result.kind = kind;
    walk.result.text = std::move(text);
    return std::move(walk.result);
}

ParseResult answer_help(Walk& walk) {
    return answer(walk, ParseKind::kHelp, render_help(walk.program, walk.result.command_path));
}

const OptionSpec* find_option(const Walk& walk, std::string_view name) {
    for (const OptionSpec* option : walk.scope) {
        if (option->is_named(name)) return option;
    }
    return nullptr;
}

const OptionValue* find_value(const ParseResult& result, std::string_view key) {
    const auto found = std::ranges::find(result.option_values, key, &OptionValue::key);
    return found == result.option_values.end() ? nullptr : &*found;
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

/// Stores the option `word` with its value, which may be the next word.  Returns the error, if any.
std::string read_option(Walk& walk, std::string_view word) {
    const TextSplit split = split_once(word, '=');
    const std::string name(split.before);
    const OptionSpec* option = find_option(walk, name);
    if (option == nullptr) return "unknown option " + name;
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
    return {};
}

void read_word(Walk& walk, std::string_view word) {
    for (const CommandSpec& subcommand : walk.command.subcommands) {
        const auto& aliases = subcommand.aliases;
        if (subcommand.name == word || std::ranges::find(aliases, word) != aliases.end()) {
            walk.result.command_path.push_back(subcommand.name);
            return enter(walk, subcommand);
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
    if (result.command_path.empty() && result.positionals.empty()) return answer_help(walk);
    for (const OptionSpec* option : walk.scope) {
        if (find_value(result, option->key) != nullptr) continue;
        if (option->required) {
            std::string error = "missing required option " + std::string(option->long_form);
            return answer(walk, ParseKind::kError, std::move(error));
        }
        store_value(result, {option->key, option->default_value, false});
    }
    if (!positional_count_fits(walk.command.arguments, result.positionals.size())) {
        std::string error = "invalid arguments\n" + render_help(walk.program, result.command_path);
        return answer(walk, ParseKind::kError, std::move(error));
    }
    return answer(walk, ParseKind::kCommand, {});
}

}  // namespace

ParseResult parse_command_line(std::span<const std::string_view> words,
                               const ProgramSpec& program) {
    Walk walk = {program, words, {}, {}, {}};
    enter(walk, root_command(program));
    bool options_ended = false;
    while (!walk.words.empty()) {
        const std::string_view word = take_word(walk);
        if (options_ended || !word.starts_with('-')) {
            read_word(walk, word);
        } else if (word == "--") {
            options_ended = true;
        } else if (word == "--help" || word == "-h") {
            return answer_help(walk);
        } else if ((word == "--version" || word == "-V") && find_option(walk, word) == nullptr) {
            std::string line = std::string(program.name) + " " + std::string(program.version);
            return answer(walk, ParseKind::kVersion, std::move(line));
        } else if (std::string error = read_option(walk, word); !error.empty()) {
            return answer(walk, ParseKind::kError, std::move(error));
        }
    }
    return finish(walk);
}

std::string_view option_value(const ParseResult& result, std::string_view key,
                              std::string_view fallback) {
    const OptionValue* entry = find_value(result, key);
    return entry == nullptr ? fallback : entry->value;
}

bool flag_set(const ParseResult& result, std::string_view key) {
    const OptionValue* entry = find_value(result, key);
    return entry != nullptr && entry->given;
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
