#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "support/bytes.h"

/// The file primitives that every command uses.
///
/// Relative paths start at the working directory.  Directories are asked for with mode 0777 and
/// files with 0666; privacy comes from the process's file-creation mask, and no mode is ever
/// changed afterwards.
namespace quorvane {

enum class FileKind : std::uint8_t { kNone = 0, kRegular = 1, kDirectory = 2, kOther = 3 };

struct FileStatus {
    std::string path;                 ///< The path that was asked about.
    FileKind kind = FileKind::kNone;  ///< kNone when the path cannot be queried.
    std::int64_t size = -1;           ///< Bytes; -1 when the query failed.
    std::int64_t modified_ns = 0;     ///< Time of the last change of the contents.
};

/// Follows symbolic links.
[[nodiscard]] FileStatus stat_path(std::string_view path);

/// All bytes of a file, or nothing when the path is no regular file (a directory, a device, a
/// FIFO), cannot be queried, is larger than `max_bytes` or cannot be opened.  A file that shrinks
/// meanwhile, and one on which a read fails, yields the bytes read until then; one that grows is
/// cut at the size that it had at first.
[[nodiscard]] ByteBuffer read_whole_file(
    std::string_view path, std::int64_t max_bytes = std::numeric_limits<std::int64_t>::max());

/// The directory part: "." for a bare name or an empty path, "/" for "/name" and "///".  Slashes
/// at the end do not count; a doubled slash inside is kept.
[[nodiscard]] std::string parent_directory(std::string_view path);

/// Creates every missing directory along `path`.  False at the first one that cannot be made.
[[nodiscard]] bool ensure_directories(std::string_view path);

/// Removes a file or, failing that, an empty directory.
bool remove_path(std::string_view path);

/// Replaces the file at `path` by `bytes`, so that a reader, at any moment and after any crash,
/// sees either the old contents or the new: the directories on the way are made, the bytes go to
/// "PATH.tmp.PID", which is created exclusively, synchronised and renamed over `path`.  False
/// when any step fails; the temporary file is then gone and the target untouched.  A temporary
/// file that an earlier process of the same id left behind is removed.  Signals that would end the
/// process are held back while the temporary file exists, so only SIGKILL can leave one.
[[nodiscard]] bool write_file_atomic(std::string_view path, std::string_view bytes);

}  // namespace quorvane
