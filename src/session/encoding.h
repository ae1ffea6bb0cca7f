#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace quorvane {

/// Two characters of "0123456789abcdef" for each byte, the high nibble first.
[[nodiscard]] std::string hex_lower(std::span<const std::uint8_t> bytes);

/// Base64 with the URL-safe alphabet, without padding (RFC 4648 section 5).
[[nodiscard]] std::string base64url(std::span<const std::uint8_t> bytes);

/// 24 secure random bytes as 48 characters of lower-case hex.
using RandomToken = std::string;

/// A fresh token, or the empty text when the kernel gave no random bytes.
[[nodiscard]] RandomToken random_token();

/// The S256 code challenge of a verifier (RFC 7636 4.2): base64url of the SHA-256 digest of its
/// bytes as they are sent, 43 characters.
[[nodiscard]] std::string pkce_challenge(std::string_view verifier);

}  // namespace quorvane
