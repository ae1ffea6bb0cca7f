#pragma once

#include <charconv>
#include <concepts>
#include <string>
#include <string_view>

/// Small text tools for ASCII protocols; nothing here knows a locale.
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

/// What stands before the first `separator`, and what stands after it; when there is none, all
/// of the text and nothing.
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

/// Plain decimal: a leading "-" for negatives, no "+", no leading zeros.
template <std::integral Integer>
[[nodiscard]] std::string to_decimal(Integer value) {
    char digits[24];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, value);
    return {digits, end.ptr};
}

}  // namespace quorvane
