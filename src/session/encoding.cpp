#include "session/encoding.h"

#include <optional>

#include "session/sha256.h"
#include "support/random.h"

namespace quorvane {

std::string hex_lower(std::span<const std::uint8_t> bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const std::uint8_t byte : bytes) {
        text.push_back(kDigits[byte >> 4]);
        text.push_back(kDigits[byte & 0x0F]);
    }
    return text;
}

std::string base64url(std::span<const std::uint8_t> bytes) {
    constexpr std::string_view kAlphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    std::string text;
    text.reserve((bytes.size() * 4 + 2) / 3);
    std::uint32_t bits = 0;  // The lowest `pending_bits` bits have not been written yet.
    unsigned pending_bits = 0;
    for (const std::uint8_t byte : bytes) {
        bits = bits << 8 | byte;
        pending_bits += 8;
        while (pending_bits >= 6) {
            pending_bits -= 6;
            text.push_back(kAlphabet[(bits >> pending_bits) & 0x3F]);
        }
    }
    if (pending_bits > 0) text.push_back(kAlphabet[(bits << (6 - pending_bits)) & 0x3F]);
    return text;
}

RandomToken random_token() {
    constexpr std::size_t kTokenBytes = 24;
    const std::optional<std::string> bytes = secure_random_bytes(kTokenBytes);
    if (!bytes) return {};
    const auto* data = reinterpret_cast<const std::uint8_t*>(bytes->data());
    return hex_lower({data, bytes->size()});
}

std::string pkce_challenge(std::string_view verifier) { return base64url(sha256(verifier)); }

}  // namespace quorvane
