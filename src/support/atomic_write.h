#pragma once

#include <cstddef>
#include <initializer_list>
#include <string_view>

/// Replacing a file in one step.
///
/// The new bytes go to a temporary file beside the target, "TARGET.tmp.PID", which is synchronised,
/// closed and renamed over the target.  A reader sees the old contents or the new, at any moment:
///
///     last step done                  target   temporary file
///     signals held, directories made  old      none
///     created                         old      empty
///     written                         old      partial, then complete
///     synchronised and closed         old      complete, and on disk
///     renamed                         new      none
///
/// It is created exclusively: what others have put at its name is neither followed nor written to.
///
/// What can end this early, and what it leaves:
///
/// - A step that fails: the temporary file is removed, the target is untouched.
/// - SIGINT, SIGTERM, SIGHUP or SIGQUIT: held from before the file is created until it is renamed
///   or removed, so they leave none.  The file system is asked about the target, once and without
///   following a link, before that: a mount that does not respond keeps the command waiting where a
///   signal still ends it.
/// - SIGKILL, any other signal and a crash of the process: a temporary file of that process can
///   stay.  A later process with the same number removes it and starts again, once.
/// - A power cut: the target is entirely old or entirely new, because its bytes are on disk before
///   its name changes.  The directory is not synchronised, so the last rename may be lost.
///
/// A target that is a symbolic link is replaced, not followed.  The new file has the mode 0666 less
/// the process's file-creation mask, whatever the old one had.
///
/// Two processes with the same number, as containers that share a directory can have, use the same
/// temporary name.  One can then remove or rename the other's file before it is complete.
namespace quorvane {

/// A file and the bytes that replace its contents.
struct FileReplacement {
    std::string_view path;
    std::string_view bytes;
};

/// Replaces files one after the other, with signals held from the first to the last; missing
/// directories are created.  Returns how many were replaced: fewer than `files` has is the failure,
/// and the next one is the file that failed.
[[nodiscard]] std::size_t write_files_atomic(std::initializer_list<FileReplacement> files);

/// The same for one file; false when any step fails.
[[nodiscard]] inline bool write_file_atomic(std::string_view path, std::string_view bytes) {
    return write_files_atomic({{path, bytes}}) == 1;
}

}  // namespace quorvane
