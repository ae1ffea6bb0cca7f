#pragma once

#include <optional>
#include <span>
#include <string_view>

/// The process itself: its arguments and environment, kept once at start, and its streams.
namespace quorvane {

/// Keeps the argument count and vector, and the environment vector, which begins just past the
/// argument vector's terminating null entry (System V ABI, "Process Initialization").
void set_process_vectors(int count, char** arguments);

/// Every argument after the program's name, in order.
[[nodiscard]] std::span<char* const> process_arguments();

/// The environment in its initial order, ended by a null entry, as execve wants it.
[[nodiscard]] char* const* process_environment();

/// The value of the first environment entry named `name`, compared byte for byte; nothing when
/// there is none.  A variable that is set to the empty text is present.
[[nodiscard]] std::optional<std::string_view> lookup_env(std::string_view name);

/// Makes the process independent of how it was started.  Descriptors 0, 1 and 2 that were closed
/// are opened on /dev/null, or else the first file or socket would receive what is printed.
/// SIGPIPE and SIGXFSZ are ignored, so that a peer or reader that went away and a file size limit
/// come back as errors of the system call.
void secure_standard_streams();

}  // namespace quorvane
