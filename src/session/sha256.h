#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace quorvane {

using Sha256Digest = std::array<std::uint8_t, 32>;

/// The SHA-256 digest of `bytes` (FIPS 180-4).
[[nodiscard]] Sha256Digest sha256(std::string_view bytes);

}  // namespace quorvane
