#include "main/run_cli.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "cli/account_commands.h"
#include "cli/config_commands.h"
#include "cli/help.h"
#include "main/command_tree.h"
#include "session/state_files.h"
#include "support/output.h"
#include "support/process.h"
#include "support/syscall.h"
#include "support/text.h"

namespace quorvane {
namespace {

struct CommandBody {
    std::string_view path;  // Canonical names, joined by single spaces.
    bool needs_token;
    int (*run)(const CommandCall& call);
};

constexpr CommandBody kCommandBodies[] = {
    {"login", false, run_login_command},    {"logout", true, run_logout},
    {"whoami", true, run_whoami},           {"projects", true, run_projects},
    {"config pull", true, run_config_pull}, {"config push", true, run_config_push},
};

constexpr bool is_command(std::string_view path) {
    CommandSpec command = root_command(kProgram);
    for (const std::string_view name : split(path, ' ')) {
        const std::optional<CommandSpec> subcommand = find_subcommand(command, name);
        if (!subcommand) return false;
        command = *subcommand;
    }
    return command.subcommands.empty();
}

// Commands that are no mere groups.
constexpr std::ptrdiff_t count_commands(std::span<const CommandSpec> commands) {
    std::ptrdiff_t count = 0;
    for (const CommandSpec& command : commands) {
        count += command.subcommands.empty() ? 1 : count_commands(command.subcommands);
    }
    return count;
}

constexpr bool is_only_body(const CommandBody& body) {
    return is_command(body.path) &&
           std::ranges::count(kCommandBodies, body.path, &CommandBody::path) == 1;
}

static_assert(std::ranges::all_of(kCommandBodies, is_only_body), "A body belongs to no command.");
static_assert(std::ssize(kCommandBodies) == count_commands(kProgram.commands),
              "A command has no body.");

}  // namespace

int run_cli() {
    const long user_umask = kernel::umask(077);
    if (user_umask < 0) {
        return fail("Cannot restrict credential file permissions on this platform");
    }

    const ParseResult parsed = parse_command_line(process_arguments(), kProgram);
    if (!parsed.ok) return fail(parsed.text);
    if (parsed.kind != ParseKind::kCommand) {
        print_line(Stream::kOutput, parsed.text);
        return 0;
    }

    const ServiceOrigin origin = parse_service_origin(option_value(parsed, option_key::kBase));
    if (!origin.valid) {
        return fail("Use an HTTPS origin, or http://127.0.0.1:PORT for local development");
    }
    CommandCall call = {parsed, origin, static_cast<unsigned>(user_umask)};
    const auto is_meant = [&parsed](const CommandBody& body) {
        return command_is(parsed, body.path);
    };
    const auto* const body = std::ranges::find_if(kCommandBodies, is_meant);
    const bool found = body != std::end(kCommandBodies);
    if (found && !body->needs_token) return body->run(call);

    const std::optional<CredentialStore> credentials = load_credentials(origin);
    if (credentials) call.token = json_get_string(*credentials, "token");
    if (call.token.empty()) return fail("Run quorvane login first");
    // A group without a subcommand, such as "config", has no body.
    return found ? body->run(call) : fail(render_help(kProgram, {}));
}

}  // namespace quorvane
