#pragma once

#include <string_view>

/// Unbuffered output: when a call returns, nothing is left in this process.
namespace quorvane {

enum class Stream : int { kOutput = 1, kError = 2 };

/// Writes all of `bytes` to `fd`, continuing after partial writes and after EINTR.  False when the
/// kernel refused a part; callers that print ignore that, because they could not report it either.
bool write_all(int fd, std::string_view bytes);

/// Writes `text` and one line feed in a single write, unless the kernel takes it in parts.
void print_line(Stream stream, std::string_view text);

/// Prints `message` as a line on standard error and returns the exit status of a failure, 1.
[[nodiscard]] int fail(std::string_view message);

}  // namespace quorvane
