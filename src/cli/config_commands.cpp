#include "cli/config_commands.h"

#include <optional>
#include <string>
#include <utility>

#include "json/value.h"
#include "json/writer.h"
#include "session/api_client.h"
#include "session/state_files.h"
#include "support/atomic_write.h"
#include "support/bytes.h"
#include "support/output.h"

namespace quorvane {
namespace {

// These members of the service's object describe the project and are not configuration.
constexpr std::string_view kServiceMembers[] = {"id", "publicKey", "name"};

// The revision metadata file is beside the configuration file.
std::string metadata_path(std::string_view config_path) {
    return std::string(config_path) + ".sync.json";
}

// The project, the origin's text, exactly as typed, and the revision that the service sent,
// whatever its type.
using SyncMetadata = JsonValue;

// Compact, without a line feed.  An absent `revision` is null.
ByteBuffer sync_metadata_text(std::string_view project_id, std::string_view origin_text,
                              JsonView revision) {
    return write_json(json_object(
        {"projectId", "baseUrl", "revision"},
        json_values(json_string(project_id), json_string(origin_text), json_borrow(revision))));
}

// Indented, for people and their diffs, with one line feed at its end.
ByteBuffer config_text(JsonView config) {
    ByteBuffer text = write_pretty_json(config);
    text.append("\n");
    return text;
}

}  // namespace

int run_config_pull(const CommandCall& call) {
    const std::string_view project_id = call.option(option_key::kProject);
    const std::string_view file = call.option(option_key::kFile);
    const JsonValue body = json_object({"projectId"}, json_values(json_string(project_id)));
    const std::optional<JsonValue> response =
        call_service(call.origin, "/api/v1/project", body, call.token);
    if (!response) return 1;
    const JsonView project = json_member(*response, "project");
    // Both texts are complete before the first file changes, because memory can run out.
    const ByteBuffer metadata =
        sync_metadata_text(project_id, call.origin.text, json_member(project, "revision"));
    const ByteBuffer config =
        config_text(json_without_members(json_member(project, "config"), kServiceMembers));

    // Together, for Ctrl-C between the two would leave this configuration with the metadata of
    // another project, and the next push would send it there.
    const std::string metadata_file = metadata_path(file);
    const std::size_t written =
        write_files_atomic({{file, config.view()}, {metadata_file, metadata.view()}});
    if (written == 0) return fail("Cannot write configuration");
    if (written == 1) return fail("Cannot write revision metadata");
    print_line(Stream::kOutput, "Saved " + std::string(file));
    return 0;
}

int run_config_push(const CommandCall& call) {
    const std::string_view project_id = call.option(option_key::kProject);
    const std::string_view file = call.option(option_key::kFile);
    const std::string metadata_file = metadata_path(file);
    const std::optional<SyncMetadata> recorded = read_json_object(metadata_file);
    if (!recorded || json_get_string(*recorded, "projectId") != project_id ||
        json_get_string(*recorded, "baseUrl") != call.origin.text ||
        !json_has_member(*recorded, "revision")) {
        return fail("Pull this project first to establish its revision");
    }
    std::optional<JsonValue> config = read_json_object(file);
    if (!config) return fail("Configuration must be a JSON object");

    const JsonValue body = json_object(
        {"projectId", "revision", "config"},
        json_values(json_string(project_id), json_borrow(json_member(*recorded, "revision")),
                    std::move(*config)));
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
