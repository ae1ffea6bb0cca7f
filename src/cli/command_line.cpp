#include "cli/command_line.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "cli/help.h"
#include "support/text.h"

namespace quorvane {
namespace {

struct Walk {
    const ProgramSpec& program;
    CommandSpec command;  ///< The current one.
    std::vector<const OptionSpec*> inherited;
    ParseResult result;
};

ParseResult answer(Walk&& walk, ParseKind kind, std::string text) {
    walk.result.ok = kind != ParseKind::kError;
    walk.result.kind = kind;
    walk.result.text = std::move(text);
    return std::move(walk.result);
}

ParseResult fail(Walk&& walk, std::string message) {
    return answer(std::move(walk), ParseKind::kError, std::move(message));
}

ParseResult answer_help(Walk&& walk) {
    std::string text = render_help(walk.program, walk.result.command_path);
    return answer(std::move(walk), ParseKind::kHelp, std::move(text));
}

const OptionSpec* find_option(const Walk& walk, std::string_view name) {
    for (const OptionSpec* option : walk.inherited) {
        if (option->is_named(name)) return option;
    }
    for (const OptionSpec& option : walk.command.options) {
        if (option.is_named(name)) return &option;
    }
    return nullptr;
}

const CommandSpec* find_subcommand(const CommandSpec& command, std::string_view word) {
    for (const CommandSpec& subcommand : command.subcommands) {
        if (subcommand.name == word) return &subcommand;
        if (std::ranges::find(subcommand.aliases, word) != subcommand.aliases.end()) {
            return &subcommand;
        }
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

/// Whether an option took the next word as its value, or the error that ends the reading.
struct OptionStep {
    bool used_next = false;
    std::string error;
};

// `next` is the word after `word`, or null.
OptionStep take_option(Walk& walk, std::string_view word, const std::string_view* next) {
    const TextSplit split = split_once(word, '=');
    const std::string name(split.before);
    const OptionSpec* option = find_option(walk, name);
    if (option == nullptr) return {false, "unknown option " + name};
    if (!option->takes_value()) {
        store_value(walk.result, {option->key, "true", true});
        return {};
    }
    if (!split.found && next == nullptr) {
        return {false, name + " requires " + std::string(option->value_name)};
    }
    const std::string_view value = split.found ? split.after : *next;
    if (!is_allowed(*option, value)) {
        return {false, "invalid value for " + name + ": " + std::string(value)};
    }
    store_value(walk.result, {option->key, value, true});
    return {!split.found, {}};
}

void take_word(Walk& walk, std::string_view word) {
    const CommandSpec* subcommand = find_subcommand(walk.command, word);
    if (subcommand == nullptr) {
        walk.result.positionals.push_back(word);
        return;
    }
    for (const OptionSpec& option : walk.command.options) {
        if (option.inherited) walk.inherited.push_back(&option);
    }
    walk.command = *subcommand;
    walk.result.command_path.push_back(subcommand->name);
}

/// Gives an absent option its default; false when it is required.
bool settle_option(ParseResult& result, const OptionSpec& option) {
    if (find_value(result, option.key) != nullptr) return true;
    if (option.required) return false;
    store_value(result, {option.key, option.default_value, false});
    return true;
}

bool positional_count_fits(std::span<const ArgumentSpec> arguments, std::size_t count) {
    const auto required = std::ranges::count_if(arguments, &ArgumentSpec::required);
    if (std::cmp_less(count, required)) return false;
    return count <= arguments.size() || std::ranges::any_of(arguments, &ArgumentSpec::repeatable);
}

ParseResult finish(Walk&& walk) {
    // Options alone ask for help; a stray word is an error below.
    if (walk.result.command_path.empty() && walk.result.positionals.empty()) {
        return answer_help(std::move(walk));
    }
    std::vector<const OptionSpec*> in_scope = walk.inherited;
    for (const OptionSpec& option : walk.command.options) in_scope.push_back(&option);
    for (const OptionSpec* option : in_scope) {
        if (!settle_option(walk.result, *option)) {
            return fail(std::move(walk),
                        "missing required option " + std::string(option->long_form));
        }
    }
    if (!positional_count_fits(walk.command.arguments, walk.result.positionals.size())) {
        std::string help = render_help(walk.program, walk.result.command_path);
        return fail(std::move(walk), "invalid arguments\n" + help);
    }
    return answer(std::move(walk), ParseKind::kCommand, {});
}

}  // namespace

ParseResult parse_command_line(std::span<const std::string_view> words,
                               const ProgramSpec& program) {
    Walk walk = {program, root_command(program), {}, {}};
    bool options_ended = false;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string_view word = words[i];
        if (options_ended || !word.starts_with('-')) {
            take_word(walk, word);
            continue;
        }
        if (word == "--") {
            options_ended = true;
            continue;
        }
        if (word == "--help" || word == "-h") return answer_help(std::move(walk));
        const bool asks_version = word == "--version" || word == "-V";
        if (asks_version && find_option(walk, word) == nullptr) {
            std::string line = std::string(program.name) + " " + std::string(program.version);
            return answer(std::move(walk), ParseKind::kVersion, std::move(line));
        }
        const std::string_view* next = i + 1 < words.size() ? &words[i + 1] : nullptr;
        OptionStep step = take_option(walk, word, next);
        if (!step.error.empty()) return fail(std::move(walk), std::move(step.error));
        if (step.used_next) ++i;
    }
    return finish(std::move(walk));
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
