#include "cli/account_commands.h"

#include <optional>
#include <string>

#include "json/value.h"
#include "session/api_client.h"
#include "session/login.h"
#include "session/state_files.h"
#include "support/output.h"
#include "support/text.h"

namespace quorvane {
namespace {

std::optional<JsonValue> call_account(const CommandCall& call, std::string_view path) {
    return call_service(call.origin, path, json_object({}, {}), call.token);
}

}  // namespace

int run_login_command(const CommandCall& call) {
    const bool open_browser = !flag_set(call.parsed, option_key::kNoBrowser);
    return run_login(call.origin, open_browser, call.user_umask);
}

int run_whoami(const CommandCall& call) {
    const std::optional<JsonValue> response = call_account(call, "/api/v1/account");
    if (!response) return 1;
    const JsonView account = json_member(*response, "account");
    print_line(Stream::kOutput, json_get_string(account, "canonical_email"));
    return 0;
}

int run_projects(const CommandCall& call) {
    const std::optional<JsonValue> response = call_account(call, "/api/v1/projects");
    if (!response) return 1;
    // They may be an array or the members of an object.
    for (const JsonItem item : json_member(*response, "projects").items()) {
        print_line(Stream::kOutput, concat({json_get_string(item.value, "id"), "  ",
                                            json_get_string(item.value, "name")}));
    }
    return 0;
}

int run_logout(const CommandCall& call) {
    if (!call_account(call, "/api/v1/logout")) return 1;
    if (!delete_credentials(call.origin)) {
        return fail("Logged out; remove the local credential file manually");
    }
    print_line(Stream::kOutput, "Signed out");
    return 0;
}

}  // namespace quorvane
