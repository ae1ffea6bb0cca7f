#pragma once

#include <string>
#include <string_view>

#include "json/value.h"
#include "support/bytes.h"

/// The two files of a pulled project: the configuration, indented for people and their diffs, and
/// the revision metadata, which records its project, origin and revision.
namespace quorvane {

/// The configuration file's path with ".sync.json" appended.
[[nodiscard]] std::string metadata_path(std::string_view config_path);

/// The text of a configuration file: indented, with one line feed at its end.
[[nodiscard]] ByteBuffer config_text(JsonView config);

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

/// The text of a metadata file: compact, without a line feed.  An absent `revision` is null.
[[nodiscard]] ByteBuffer sync_metadata_text(std::string_view project_id, std::string_view base_url,
                                            JsonView revision);

}  // namespace quorvane
