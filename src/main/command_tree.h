#pragma once

#include <string_view>

#include "cli/command_call.h"
#include "cli/command_model.h"

/// The program's command line: its commands, its options and their texts.
///
/// A command without subcommands has its body in `kCommandBodies` (run_cli.cpp).
namespace quorvane {

inline constexpr OptionSpec kProgramOptions[] = {
    value_option(option_key::kBase, "--base-url", "", "URL", "Alternate Quorvane deployment",
                 {.inherited = true, .default_value = QUORVANE_DEFAULT_ORIGIN}),
};

inline constexpr OptionSpec kLoginOptions[] = {
    flag_option(option_key::kNoBrowser, "--no-browser", "",
                "Print the URL without opening a browser"),
};

inline constexpr OptionSpec kConfigOptions[] = {
    value_option(option_key::kProject, "--project", "-p", "ID", "Project ID", {.required = true}),
    value_option(option_key::kFile, "--file", "-f", "FILE", "Configuration file",
                 {.default_value = "quorvane.config.json"}),
};

inline constexpr std::string_view kPullAliases[] = {"export"};
inline constexpr std::string_view kPushAliases[] = {"import"};

inline constexpr CommandSpec kConfigCommands[] = {
    {.name = "pull",
     .description = "Export configuration and its revision",
     .aliases = kPullAliases,
     .options = kConfigOptions},
    {.name = "push",
     .description = "Import configuration with a revision check",
     .aliases = kPushAliases,
     .options = kConfigOptions},
};

inline constexpr CommandSpec kCommands[] = {
    {.name = "login",
     .description = "Authorize this CLI in your browser",
     .options = kLoginOptions},
    {.name = "logout", .description = "Revoke this CLI session"},
    {.name = "whoami", .description = "Show the authenticated account"},
    {.name = "projects", .description = "List your projects"},
    {.name = "config", .description = "Sync project configuration", .subcommands = kConfigCommands},
};

inline constexpr ProgramSpec kProgram = {
    .name = "quorvane",
    .version = QUORVANE_VERSION,
    .description = "Manage Quorvane projects and configuration",
    .options = kProgramOptions,
    .commands = kCommands,
};

}  // namespace quorvane
