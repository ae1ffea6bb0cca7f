#include "cli/config_commands.h"

#include <optional>
#include <string>
#include <utility>

#include "cli/config_files.h"
#include "json/value.h"
#include "session/api_client.h"
#include "session/state_files.h"
#include "support/atomic_write.h"
#include "support/bytes.h"
#include "support/output.h"
#include "support/process.h"

namespace quorvane {
namespace {

// These members of the service's object describe the project and are not configuration.
constexpr std::string_view kServiceMembers[] = {"id", "publicKey", "name"};

}  // namespace

int run_config_pull(const CommandCall& call) {
    const std::string_view project_id = call.option(option_key::kProject);
    const std::string_view file = call.option(option_key::kFile);
    const JsonValue body = json_object({"projectId"}, json_values(json_string(project_id)));
    std::optional<JsonValue> response =
        call_service(call.origin, "/api/v1/project", body, call.token);
    if (!response) return 1;
    JsonValue project = json_take_member(std::move(*response), "project");
    // Both texts are complete before the first file changes, because memory can run out.
    const ByteBuffer metadata =
        sync_metadata_text(project_id, call.origin.text, json_member(project, "revision"));
    const ByteBuffer config = config_text(
        json_without_members(json_take_member(std::move(project), "config"), kServiceMembers));

    bool config_written = false;
    bool metadata_written = false;
    await_file_system(file);
    {
        // Ctrl-C between the two would leave this configuration with the metadata of another
        // project, and the next push would send it there.
        const SignalHold hold;
        config_written = write_file_atomic(file, config.view());
        metadata_written =
            config_written && write_file_atomic(metadata_path(file), metadata.view());
    }
    if (!config_written) return fail("Cannot write configuration");
    if (!metadata_written) return fail("Cannot write revision metadata");
    print_line(Stream::kOutput, "Saved " + std::string(file));
    return 0;
}

int run_config_push(const CommandCall& call) {
    const std::string_view project_id = call.option(option_key::kProject);
    const std::string_view file = call.option(option_key::kFile);
    const std::string metadata_file = metadata_path(file);
    SyncMetadata metadata = read_sync_metadata(metadata_file);
    if (metadata.project_id != project_id || metadata.base_url != call.origin.text ||
        !metadata.recorded) {
        return fail("Pull this project first to establish its revision");
    }
    JsonValue config = read_json_object(file);
    if (!config.view().is_object()) return fail("Configuration must be a JSON object");

    const JsonValue body = json_object(
        {"projectId", "revision", "config"},
        json_values(json_string(project_id), std::move(metadata.revision), std::move(config)));
    const std::optional<JsonValue> response =
        call_service(call.origin, "/api/v1/project-configure", body, call.token);
    if (!response) return 1;
    const JsonView revision = json_member(json_member(*response, "project"), "revision");
    const ByteBuffer text = sync_metadata_text(project_id, call.origin.text, revision);
    if (!write_file_atomic(metadata_file, text.view())) {
        return fail("Configuration saved remotely; pull again to refresh local metadata");
    }
    print_line(Stream::kOutput, "Configuration synchronized");
    return 0;
}

}  // namespace quorvane
