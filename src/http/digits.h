#pragma once

#include <cstdint>
#include <string_view>

/// Unsigned numbers as the protocol writes them: digits only, no sign, no blanks.
namespace quorvane {

/// The digit's value, or -1 when `byte` is no hexadecimal digit.
[[nodiscard]] constexpr std::int64_t hex_digit(char byte) {
    if (byte >= '0' && byte <= '9') return byte - '0';
    if (byte >= 'A' && byte <= 'F') return byte - 'A' + 10;
    if (byte >= 'a' && byte <= 'f') return byte - 'a' + 10;
    return -1;
}

/// The value of `text` in `base` (10 or 16), or -1 when it is empty, holds any other byte than
/// digits of the base, or is above `maximum`.
[[nodiscard]] constexpr std::int64_t parse_digits(std::string_view text, std::int64_t base,
                                                  std::int64_t maximum) {
    if (text.empty()) return -1;
    std::int64_t value = 0;
    for (const char byte : text) {
        const std::int64_t digit = hex_digit(byte);
        if (digit < 0 || digit >= base || digit > maximum) return -1;
        // Tested before the digit is added, so the value never passes `maximum`.
        if (value > (maximum - digit) / base) return -1;
        value = value * base + digit;
    }
    return value;
}

[[nodiscard]] constexpr std::int64_t parse_decimal(std::string_view text, std::int64_t maximum) {
    return parse_digits(text, 10, maximum);
}

[[nodiscard]] constexpr std::int64_t parse_hex(std::string_view text, std::int64_t maximum) {
    return parse_digits(text, 16, maximum);
}

}  // namespace quorvane
