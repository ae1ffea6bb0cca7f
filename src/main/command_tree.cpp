#include "main/command_tree.h"

namespace quorvane {
namespace {

constexpr OptionSpec kProgramOptions[] = {
    value_option("base", "--base-url", "", "URL", "Alternate Quorvane deployment",
                 {.inherited = true, .default_value = QUORVANE_DEFAULT_ORIGIN}),
};

constexpr OptionSpec kLoginOptions[] = {
    flag_option("no-browser", "--no-browser", "", "Print the URL without opening a browser"),
};

constexpr OptionSpec kConfigOptions[] = {
    value_option("project", "--project", "-p", "ID", "Project ID", {.required = true}),
    value_option("file", "--file", "-f", "FILE", "Configuration file",
                 {.default_value = "quorvane.config.json"}),
};

constexpr std::string_view kPullAliases[] = {"export"};
constexpr std::string_view kPushAliases[] = {"import"};

constexpr CommandSpec kConfigCommands[] = {
    {.name = "pull",
     .description = "Export configuration and its revision",
     .aliases = kPullAliases,
     .options = kConfigOptions},
    {.name = "push",
     .description = "Import configuration with a revision check",
     .aliases = kPushAliases,
     .options = kConfigOptions},
};

constexpr CommandSpec kCommands[] = {
    {.name = "login",
     .description = "Authorize this CLI in your browser",
     .options = kLoginOptions},
    {.name = "logout", .description = "Revoke this CLI session"},
    {.name = "whoami", .description = "Show the authenticated account"},
    {.name = "projects", .description = "List your projects"},
    {.name = "config", .description = "Sync project configuration", .subcommands = kConfigCommands},
};

}  // namespace

ProgramSpec command_tree() {
    return {.name = "quorvane",
            .version = QUORVANE_VERSION,
            .description = "Manage Quorvane projects and configuration",
            .options = kProgramOptions,
            .commands = kCommands};
}

}  // namespace quorvane
