#pragma once

#include <string_view>

/// Replacing a file in one step.
///
/// The new bytes go to a temporary file beside the target, "TARGET.tmp.PID", which is synchronised,
/// closed and renamed over the target.  A reader sees the old contents or the new, at any moment:
///
///     last step done                  target   temporary file
///     directories made, signals held  old      none
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
///   or removed, so they leave none.  The file system is asked about the target before that: a
///   mount that does not respond keeps the command waiting where a signal still ends it.
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

/// Asks the file system once about `path`, follows symbolic links, and ignores what it says. Called
/// before signals are held, as described above.
void await_file_system(std::string_view path);

/// Replaces the contents of the file at `path` by `bytes`; missing directories are created.  False
/// when any step fails.
[[nodiscard]] bool write_file_atomic(std::string_view path, std::string_view bytes);

}  // namespace quorvane
