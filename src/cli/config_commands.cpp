#include "cli/config_commands.h"

#include <optional>
#include <string>
#include <utility>

#include "cli/config_files.h"
#include "json/value.h"
#include "session/api_client.h"
#include "session/state_files.h"
#include "support/output.h"
#include "support/process.h"

namespace quorvane {
namespace {

// These members of the service's object describe the project and are not configuration.
constexpr std::string_view kServiceMembers[] = {"id", "publicKey", "name"};

/// Returns the message of the write that failed, or nothing.
std::string_view write_both_files(const ConfigTarget& target, const ServiceOrigin& origin,
                                  JsonView config, JsonView revision) {
    // Ctrl-C between the two would leave this configuration with the metadata of another project,
    // and the next push would send it there.
    const SignalHold hold;
    if (!write_config_file(target.file, config)) return "Cannot write configuration";
    if (!write_sync_metadata(metadata_path(target.file), target.project, origin.text, revision)) {
        return "Cannot write revision metadata";
    }
    return {};
}

}  // namespace

int run_config_pull(const ServiceOrigin& origin, std::string_view token,
                    const ConfigTarget& target) {
    const JsonValue request = json_object({"projectId"}, json_values(json_string(target.project)));
    std::optional<JsonValue> response = call_service(origin, "/api/v1/project", request, token);
    if (!response) return 1;
    JsonValue project = json_take_member(std::move(*response), "project");
    const JsonValue revision = json_copy(json_member(project, "revision"));
    const JsonValue config =
        json_without_members(json_take_member(std::move(project), "config"), kServiceMembers);

    const std::string_view failure = write_both_files(target, origin, config, revision);
    if (!failure.empty()) return fail(failure);
    print_line(Stream::kOutput, "Saved " + std::string(target.file));
    return 0;
}

int run_config_push(const ServiceOrigin& origin, std::string_view token,
                    const ConfigTarget& target) {
    const std::string metadata_file = metadata_path(target.file);
    SyncMetadata metadata = read_sync_metadata(metadata_file);
    if (metadata.project_id != target.project || metadata.base_url != origin.text ||
        !metadata.recorded) {
        return fail("Pull this project first to establish its revision");
    }
    JsonValue config = read_json_object(target.file);
    if (!config.view().is_object()) return fail("Configuration must be a JSON object");

    const JsonValue request = json_object(
        {"projectId", "revision", "config"},
        json_values(json_string(target.project), std::move(metadata.revision), std::move(config)));
    const std::optional<JsonValue> response =
        call_service(origin, "/api/v1/project-configure", request, token);
    if (!response) return 1;
    const JsonView revision = json_member(json_member(*response, "project"), "revision");
    if (!write_sync_metadata(metadata_file, target.project, origin.text, revision)) {
        return fail("Configuration saved remotely; pull again to refresh local metadata");
    }
    print_line(Stream::kOutput, "Configuration synchronized");
    return 0;
}

}  // namespace quorvane
