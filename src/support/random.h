#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace quorvane {

/// Exactly `count` bytes from the kernel's secure source (getrandom(2), which waits until that is
/// seeded), or nothing when the kernel refuses.
[[nodiscard]] std::optional<std::string> secure_random_bytes(std::size_t count);

}  // namespace quorvane
