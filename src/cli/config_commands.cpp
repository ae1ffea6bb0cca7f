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

struct PullResult {
    bool ok = false;
    std::string_view message;  // Says which file could not be written.
};

PullResult write_both_files(std::string_view file, const ByteBuffer& config,
                            const ByteBuffer& metadata) {
    await_file_system(file);
    // Ctrl-C between the two would leave this configuration with the metadata of another project,
    // and the next push would send it there.
    const SignalHold hold;
    if (!write_file_atomic(file, config.view())) return {false, "Cannot write configuration"};
    if (!write_file_atomic(metadata_path(file), metadata.view())) {
        return {false, "Cannot write revision metadata"};
    }
    return {.ok = true, .message = {}};
}

}  // namespace

int run_config_pull(const ServiceOrigin& origin, std::string_view token,
                    const ConfigTarget& target) {
    const JsonValue body = json_object({"projectId"}, json_values(json_string(target.project)));
    std::optional<JsonValue> response = call_service(origin, "/api/v1/project", body, token);
    if (!response) return 1;
    JsonValue project = json_take_member(std::move(*response), "project");
    // Both texts are complete before the first file changes, because memory can run out.
    const ByteBuffer metadata =
        sync_metadata_text(target.project, origin.text, json_member(project, "revision"));
    const ByteBuffer config = config_text(
        json_without_members(json_take_member(std::move(project), "config"), kServiceMembers));

    const PullResult written = write_both_files(target.file, config, metadata);
    if (!written.ok) return fail(written.message);
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

    const JsonValue body = json_object(
        {"projectId", "revision", "config"},
        json_values(json_string(target.project), std::move(metadata.revision), std::move(config)));
    const std::optional<JsonValue> response =
        call_service(origin, "/api/v1/project-configure", body, token);
    if (!response) return 1;
    const JsonView revision = json_member(json_member(*response, "project"), "revision");
    const ByteBuffer text = sync_metadata_text(target.project, origin.text, revision);
    if (!write_file_atomic(metadata_file, text.view())) {
        return fail("Configuration saved remotely; pull again to refresh local metadata");
    }
    print_line(Stream::kOutput, "Configuration synchronized");
    return 0;
}

}  // namespace quorvane
