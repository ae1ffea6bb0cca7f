#include "cli/account_commands.h"

#include <optional>
#include <string>

#include "json/value.h"
#include "session/api_client.h"
#include "session/state_files.h"
#include "support/output.h"

namespace quorvane {
namespace {

std::optional<JsonValue> call_account(const ServiceOrigin& origin, std::string_view path,
                                      std::string_view token) {
    return call_service(origin, path, json_object({}, {}), token);
}

void print_project(JsonView project) {
    std::string line(json_get_string(project, "id"));
    line.append("  ").append(json_get_string(project, "name"));
    print_line(Stream::kOutput, line);
}

}  // namespace

int run_whoami(const ServiceOrigin& origin, std::string_view token) {
    const std::optional<JsonValue> response = call_account(origin, "/api/v1/account", token);
    if (!response) return 1;
    const JsonView account = json_member(*response, "account");
    print_line(Stream::kOutput, json_get_string(account, "canonical_email"));
    return 0;
}

int run_projects(const ServiceOrigin& origin, std::string_view token) {
    const std::optional<JsonValue> response = call_account(origin, "/api/v1/projects", token);
    if (!response) return 1;
    // They may be an array or the members of an object.
    for (const JsonItem item : json_member(*response, "projects").items()) {
        print_project(item.value);
    }
    return 0;
}

int run_logout(const ServiceOrigin& origin, std::string_view token) {
    if (!call_account(origin, "/api/v1/logout", token)) return 1;
    if (!delete_credentials(origin)) {
        return fail("Logged out; remove the local credential file manually");
    }
    print_line(Stream::kOutput, "Signed out");
    return 0;
}

}  // namespace quorvane
