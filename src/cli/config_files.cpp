#include "cli/config_files.h"

#include <utility>

#include "json/writer.h"
#include "session/state_files.h"

namespace quorvane {

std::string metadata_path(std::string_view config_path) {
    return std::string(config_path) + ".sync.json";
}

ByteBuffer config_text(JsonView config) {
    ByteBuffer text = write_pretty_json(config);
    text.append("\n");
    return text;
}

SyncMetadata read_sync_metadata(std::string_view path) {
    JsonValue stored = read_json_object(path);
    SyncMetadata metadata;
    metadata.project_id = json_get_string(stored, "projectId");
    metadata.base_url = json_get_string(stored, "baseUrl");
    metadata.recorded = json_has_member(stored, "revision");
    metadata.revision = json_take_member(std::move(stored), "revision");
    return metadata;
}

ByteBuffer sync_metadata_text(std::string_view project_id, std::string_view base_url,
                              JsonView revision) {
    return write_json(json_object(
        {"projectId", "baseUrl", "revision"},
        json_values(json_string(project_id), json_string(base_url), json_borrow(revision))));
}

}  // namespace quorvane
