#pragma once

#include <string>
#include <string_view>

#include "json/value.h"

/// The two files of a pulled project: the configuration, indented for people and their diffs, and
/// beside it the revision metadata that ties it to a project, an origin and a revision.
namespace quorvane {

/// The configuration file's path with ".sync.json" appended.
[[nodiscard]] std::string metadata_path(std::string_view config_path);

/// Writes the indented text of `config` and one line feed; false leaves the old file untouched.
[[nodiscard]] bool write_config_file(std::string_view path, JsonView config);

/// What a configuration file was pulled from.
struct SyncMetadata {
    std::string project_id;
    std::string base_url;   ///< The origin's text, exactly as typed.
    JsonValue revision;     ///< As the service sent it, whatever its type.
    bool recorded = false;  ///< A revision is there, be it null.
};

/// Reads the metadata file at `path`.  One that is missing, unreadable or no JSON object, and a
/// member that is missing or of the wrong type, leave the fields as they are by default.
[[nodiscard]] SyncMetadata read_sync_metadata(std::string_view path);

/// Writes compact JSON without a line feed; false leaves the old file untouched.  A `revision`
/// that is absent is written as null.
[[nodiscard]] bool write_sync_metadata(std::string_view path, std::string_view project_id,
                                       std::string_view base_url, JsonView revision);

}  // namespace quorvane
