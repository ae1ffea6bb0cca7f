#pragma once

#include <algorithm>
#include <optional>
#include <span>
#include <string_view>

/// The records that describe a program's command line.
///
/// They refer to their texts and lists, which must outlive them.  A complete tree can therefore be
/// constant data, which costs nothing at start.
namespace quorvane {

struct OptionSpec {
    std::string_view key;          ///< The name under which the value is looked up.
    std::string_view long_form;    ///< With its dashes: "--project".
    std::string_view short_form;   ///< With its dash: "-p"; empty when there is none.
    std::string_view value_name;   ///< The placeholder shown in help; empty for a flag.
    std::string_view description;  ///< One line of help.
    bool required = false;
    bool inherited = false;  ///< Also valid after a subcommand's name.
    std::string_view default_value;
    std::span<const std::string_view> allowed_values;  ///< Empty when any value is allowed.

    [[nodiscard]] constexpr bool takes_value() const { return !value_name.empty(); }
    /// Whether `name` is one of the option's forms.
    [[nodiscard]] constexpr bool is_named(std::string_view name) const {
        return name == long_form || (!short_form.empty() && name == short_form);
    }
};

/// The optional fields of a value option.
struct ValueOptionTraits {
    bool required = false;
    bool inherited = false;
    std::string_view default_value = {};
    std::span<const std::string_view> allowed_values = {};
};

[[nodiscard]] constexpr OptionSpec value_option(std::string_view key, std::string_view long_form,
                                                std::string_view short_form,
                                                std::string_view value_name,
                                                std::string_view description,
                                                const ValueOptionTraits& traits = {}) {
    return {key,
            long_form,
            short_form,
            value_name,
            description,
            traits.required,
            traits.inherited,
            traits.default_value,
            traits.allowed_values};
}

[[nodiscard]] constexpr OptionSpec flag_option(std::string_view key, std::string_view long_form,
                                               std::string_view short_form,
                                               std::string_view description,
                                               bool inherited = false) {
    return {key, long_form, short_form, {}, description, false, inherited, "false", {}};
}

struct ArgumentSpec {
    std::string_view name;
    std::string_view description;
    bool required = false;
    bool repeatable = false;  ///< Takes all remaining positional words.
};

struct CommandSpec {
    std::string_view name;
    std::string_view description;
    std::span<const std::string_view> aliases = {};
    std::span<const OptionSpec> options = {};
    std::span<const ArgumentSpec> arguments = {};
    std::span<const CommandSpec> subcommands = {};
};

struct ProgramSpec {
    std::string_view name;
    std::string_view version;
    std::string_view description;
    std::span<const OptionSpec> options = {};
    std::span<const CommandSpec> commands = {};
};

/// The program as a command: the one at which every command line begins.
[[nodiscard]] constexpr CommandSpec root_command(const ProgramSpec& program) {
    return {program.name, program.description, {}, program.options, {}, program.commands};
}

/// The subcommand with this canonical name.
[[nodiscard]] constexpr std::optional<CommandSpec> find_subcommand(const CommandSpec& command,
                                                                   std::string_view name) {
    const auto found = std::ranges::find(command.subcommands, name, &CommandSpec::name);
    if (found == command.subcommands.end()) return std::nullopt;
    return *found;
}

}  // namespace quorvane
