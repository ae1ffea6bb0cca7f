#include "main/run_cli.h"

#include <string>
#include <string_view>

#include "cli/account_commands.h"
#include "cli/command_line.h"
#include "cli/config_commands.h"
#include "cli/help.h"
#include "main/command_tree.h"
#include "session/login.h"
#include "session/origin.h"
#include "session/state_files.h"
#include "support/output.h"
#include "support/process.h"
#include "support/syscall.h"

namespace quorvane {
namespace {

int run_command(const ProgramSpec& program, const ParseResult& parsed, const ServiceOrigin& origin,
                std::string_view token) {
    if (command_is(parsed, "logout")) return run_logout(origin, token);
    if (command_is(parsed, "whoami")) return run_whoami(origin, token);
    if (command_is(parsed, "projects")) return run_projects(origin, token);
    const ConfigTarget target = {.project = option_value(parsed, "project"),
                                 .file = option_value(parsed, "file")};
    if (command_is(parsed, "config pull")) return run_config_pull(origin, token, target);
    if (command_is(parsed, "config push")) return run_config_push(origin, token, target);
    // The only command left is "config" without a subcommand.
    return fail(render_help(program, {}));
}

}  // namespace

int run_cli() {
    const long user_umask = kernel::umask(077);
    if (user_umask < 0) {
        return fail("Cannot restrict credential file permissions on this platform");
    }

    const ProgramSpec program = command_tree();
    const ParseResult parsed = parse_command_line(process_arguments(), program);
    if (!parsed.ok) return fail(parsed.text);
    if (parsed.kind != ParseKind::kCommand) {
        print_line(Stream::kOutput, parsed.text);
        return 0;
    }

    const ServiceOrigin origin = parse_service_origin(option_value(parsed, "base"));
    if (!origin.valid) {
        return fail("Use an HTTPS origin, or http://127.0.0.1:PORT for local development");
    }
    if (command_is(parsed, "login")) {
        return run_login(origin, {.open_browser = !flag_set(parsed, "no-browser"),
                                  .user_umask = static_cast<unsigned>(user_umask)});
    }

    const CredentialStore credentials = load_credentials(origin);
    const std::string_view token = json_get_string(credentials, "token");
    if (token.empty()) return fail("Run quorvane login first");
    return run_command(program, parsed, origin, token);
}

}  // namespace quorvane
