#pragma once

#include <charconv>
#include <concepts>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

/// Small text tools for ASCII protocols; they do not depend on a locale.
namespace quorvane {

/// Folds A to Z, and no other byte, to lower case.
[[nodiscard]] constexpr char ascii_lower(char byte) {
    return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}

[[nodiscard]] constexpr bool is_digit(char byte) { return byte >= '0' && byte <= '9'; }

/// True when both texts are equal after `ascii_lower` on every byte.
[[nodiscard]] constexpr bool equal_ignoring_case(std::string_view left, std::string_view right) {
    if (left.size() != right.size()) return false;
    for (std::size_t i = 0; i < left.size(); ++i) {
        if (ascii_lower(left[i]) != ascii_lower(right[i])) return false;
    }
    return true;
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

/// The value of `text` in `base`, or -1 when it is empty, holds any byte but digits of the base (a
/// sign or a blank, say) or is above `maximum`.  Hexadecimal digits may be of either case.
[[nodiscard]] inline std::int64_t parse_digits(std::string_view text, int base,
                                               std::int64_t maximum) {
    std::uint64_t value = 0;
    const char* const end = text.data() + text.size();
    // An unsigned target takes no sign.
    const auto [stop, error] = std::from_chars(text.data(), end, value, base);
    if (error != std::errc() || stop != end || std::cmp_greater(value, maximum)) return -1;
    return static_cast<std::int64_t>(value);
}
[[nodiscard]] inline std::int64_t parse_decimal(std::string_view text, std::int64_t maximum) {
    return parse_digits(text, 10, maximum);
}
[[nodiscard]] inline std::int64_t parse_hex(std::string_view text, std::int64_t maximum) {
    return parse_digits(text, 16, maximum);
}

/// Plain decimal: a leading "-" for negatives, no "+", no leading zeros.
template <std::integral Integer>
[[nodiscard]] std::string to_decimal(Integer value) {
    char digits[24];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, value);
    return {digits, end.ptr};
}

}  // namespace quorvane
