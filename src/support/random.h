#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace quorvane {

/// Exactly `count` bytes from the kernel's secure source (getrandom(2), waiting for it to be
/// seeded), or nothing when the kernel refuses.  Partial results are never returned.
[[nodiscard]] std::optional<std::string> secure_random_bytes(std::size_t count);

}  // namespace quorvane
