#include "cli/help.h"

#include <algorithm>
#include <vector>

namespace quorvane {
namespace {

CommandSpec find_command(const ProgramSpec& program, std::span<const std::string_view> path) {
    CommandSpec command = root_command(program);
    for (const std::string_view name : path) {
        command = find_subcommand(command, name).value_or(command);
    }
    return command;
}

std::string invocation(const ProgramSpec& program, std::span<const std::string_view> path) {
    std::string text(program.name);
    for (const std::string_view name : path) text.append(" ").append(name);
    return text;
}

bool owns_form(std::span<const OptionSpec> options, std::string_view form) {
    return std::ranges::any_of(options,
                               [form](const OptionSpec& option) { return option.is_named(form); });
}

void append_argument_usage(std::string& text, const ArgumentSpec& argument) {
    text.append(argument.required ? " <" : " [").append(argument.name);
    if (argument.repeatable) text.append("...");
    text.append(argument.required ? ">" : "]");
}

void append_argument_line(std::string& text, const ArgumentSpec& argument) {
    text.append("\n  ").append(argument.name);
    if (argument.repeatable) text.append("...");
    text.append("\t").append(argument.description);
    if (argument.required) text.append(" (required)");
}

void append_option_line(std::string& text, const OptionSpec& option) {
    text.append("\n  ");
    if (option.short_form.empty()) {
        text.append("    ");
    } else {
        text.append(option.short_form).append(", ");
    }
    text.append(option.long_form);
    if (option.takes_value()) text.append(" <").append(option.value_name).append(">");
    text.append("\t").append(option.description);
    if (option.required) text.append(" (required)");
    if (option.takes_value() && !option.default_value.empty()) {
        text.append(" (default: ").append(option.default_value).append(")");
    }
}

// A form that an option has taken (-V or --version) is not advertised here.
std::string_view version_line(std::span<const OptionSpec> options) {
    const bool short_owned = owns_form(options, "-V");
    const bool long_owned = owns_form(options, "--version");
    if (short_owned && long_owned) return "";
    if (short_owned) return "\n      --version\tShow version";
    if (long_owned) return "\n  -V\tShow version";
    return "\n  -V, --version\tShow version";
}

}  // namespace

std::string render_help(const ProgramSpec& program, std::span<const std::string_view> path) {
    const CommandSpec command = find_command(program, path);
    std::vector<OptionSpec> options(program.options.begin(), program.options.end());
    if (!path.empty()) {
        options.insert(options.end(), command.options.begin(), command.options.end());
    }

    std::string text;
    if (path.empty()) {
        text.append(program.name).append(" ").append(program.version);
    } else {
        text = invocation(program, path);
    }
    text.append("\n\n").append(command.description);

    text.append("\n\nUsage:\n  ").append(invocation(program, path));
    if (!options.empty()) text.append(" [options]");
    for (const ArgumentSpec& argument : command.arguments) append_argument_usage(text, argument);
    if (!command.subcommands.empty()) text.append(" [command]");

    if (!command.subcommands.empty()) text.append("\n\nCommands:");
    for (const CommandSpec& subcommand : command.subcommands) {
        text.append("\n  ").append(subcommand.name).append("\t").append(subcommand.description);
    }
    if (!command.arguments.empty()) text.append("\n\nArguments:");
    for (const ArgumentSpec& argument : command.arguments) append_argument_line(text, argument);

    text.append("\n\nOptions:\n  -h, --help\tShow help").append(version_line(options));
    for (const OptionSpec& option : options) append_option_line(text, option);
    return text;
}

}  // namespace quorvane
