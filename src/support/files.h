#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "support/bytes.h"

/// The file primitives that every command uses.
///
/// Relative paths start at the working directory.
namespace quorvane {

enum class FileKind : std::uint8_t { kNone = 0, kRegular = 1, kDirectory = 2, kOther = 3 };

struct FileStatus {
    std::string path;                 ///< The path that was queried.
    FileKind kind = FileKind::kNone;  ///< kNone when the path cannot be queried.
    std::int64_t size = -1;           ///< Bytes; -1 when the query failed.
    std::int64_t modified_ns = 0;     ///< Last change of the contents, since 1970; 0 if unknown.
};

/// Follows symbolic links.
[[nodiscard]] FileStatus stat_path(std::string_view path);

/// All bytes of a file; the empty buffer when the path is no regular file (a directory, a device, a
/// FIFO), cannot be queried, is larger than `max_bytes` or cannot be opened.  When the file shrinks
/// meanwhile or a read fails, the result is what was read until then; a file that grows is cut at
/// the size that it had at first.
[[nodiscard]] ByteBuffer read_whole_file(
    std::string_view path, std::int64_t max_bytes = std::numeric_limits<std::int64_t>::max());

/// The directory part: "." for a bare name or an empty path, "/" for "/name" and "///".  Slashes
/// at the end are ignored; a doubled slash inside is kept.
[[nodiscard]] std::string parent_directory(std::string_view path);

/// Creates every missing directory along `path`, with mode 0777 less the process's file-creation
/// mask.  False at the first one that cannot be made.
[[nodiscard]] bool ensure_directories(std::string_view path);

/// Removes a file or, failing that, an empty directory.
bool remove_path(std::string_view path);

}  // namespace quorvane
