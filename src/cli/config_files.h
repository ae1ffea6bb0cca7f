#pragma once

#include <string>
#include <string_view>

#include "json/value.h"

/// The two files of a pulled project: the configuration, indented for people and their diffs, and
/// the revision metadata, which records its project, origin and revision.
namespace quorvane {

/// The configuration file's path with ".sync.json" appended.
[[nodiscard]] std::string metadata_path(std::string_view config_path);

/// Writes the indented text of `config` and one line feed; false leaves the old file untouched.
[[nodiscard]] bool write_config_file(std::string_view path, JsonView config);

/// Where a configuration file was pulled from.
struct SyncMetadata {
    std::string project_id;
    std::string base_url;   ///< The origin's text, exactly as typed.
    JsonValue revision;     ///< As the service sent it, whatever its type.
    bool recorded = false;  ///< The file has a revision, which may be null.
};

/// Reads the metadata file at `path`.  Fields keep their defaults when their member is missing or
/// of another type, and all do when the file is missing, unreadable or no JSON object.
[[nodiscard]] SyncMetadata read_sync_metadata(std::string_view path);

/// Writes compact JSON without a line feed; false leaves the old file untouched.  An absent
/// `revision` is written as null.
[[nodiscard]] bool write_sync_metadata(std::string_view path, std::string_view project_id,
                                       std::string_view base_url, JsonView revision);

}  // namespace quorvane
