#pragma once

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

/// Small text tools for ASCII protocols; they do not depend on a locale.
namespace quorvane {

/// Folds A to Z, and no other byte, to lower case.
[[nodiscard]] constexpr char ascii_lower(char byte) {
    return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}

[[nodiscard]] constexpr bool is_digit(char byte) { return byte >= '0' && byte <= '9'; }

/// True when both texts are equal after `ascii_lower` on every byte.
[[nodiscard]] constexpr bool equal_ignoring_case(std::string_view left, std::string_view right) {
    return std::ranges::equal(left, right, {}, ascii_lower, ascii_lower);
}

/// The text before the first `separator` and the text after it; without one, all and nothing.
struct TextSplit {
    std::string_view before;
    std::string_view after;
    bool found = false;
};
[[nodiscard]] constexpr TextSplit split_once(std::string_view text, char separator) {
    const std::size_t at = text.find(separator);
    if (at == std::string_view::npos) return {text, {}, false};
    return {text.substr(0, at), text.substr(at + 1), true};
}

/// A range over the pieces of a text, and its own iterator.
struct TextPieces {
    TextSplit rest;  ///< The current piece and the text after its separator.
    char separator = ' ';
    bool ended = false;

    [[nodiscard]] constexpr TextPieces begin() const { return *this; }
    [[nodiscard]] constexpr std::default_sentinel_t end() const { return {}; }
    constexpr bool operator==(std::default_sentinel_t) const { return ended; }
    constexpr std::string_view operator*() const { return rest.before; }
    constexpr void operator++() {
        ended = !rest.found;
        rest = split_once(rest.after, separator);
    }
};

/// The pieces of `text` between separators, for `for (std::string_view piece : split(text, ','))`.
/// The empty text is one empty piece.
[[nodiscard]] constexpr TextPieces split(std::string_view text, char separator) {
    return {split_once(text, separator), separator};
}

/// The value of a hexadecimal digit of either case.
[[nodiscard]] constexpr std::optional<std::int32_t> hex_digit(char byte) {
    if (is_digit(byte)) return byte - '0';
    const char lower = ascii_lower(byte);
    if (lower < 'a' || lower > 'f') return std::nullopt;
    return lower - 'a' + 10;
}

/// The value of `text` in `base` (10 or 16), or -1 as the failure: it is empty, holds any byte but
/// digits of the base (a sign or a space, say) or is above `maximum`.
[[nodiscard]] constexpr std::int64_t parse_digits(std::string_view text, std::int32_t base,
                                                  std::int64_t maximum) {
    if (text.empty()) return -1;
    std::int64_t value = 0;
    for (const char byte : text) {
        const std::optional<std::int32_t> digit = hex_digit(byte);
        if (!digit || *digit >= base || *digit > maximum) return -1;
        // Tested before the digit is added, so that nothing overflows.
        if (value > (maximum - *digit) / base) return -1;
        value = value * base + *digit;
    }
    return value;
}
[[nodiscard]] constexpr std::int64_t parse_decimal(std::string_view text, std::int64_t maximum) {
    return parse_digits(text, 10, maximum);
}
[[nodiscard]] constexpr std::int64_t parse_hex(std::string_view text, std::int64_t maximum) {
    return parse_digits(text, 16, maximum);
}

/// The texts one after the other.
[[nodiscard]] inline std::string concat(std::initializer_list<std::string_view> texts) {
    std::string joined;
    for (const std::string_view text : texts) joined += text;
    return joined;
}

}  // namespace quorvane
