#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "support/text.h"

/// Number literals of RFC 8259, section 6, judged as text: never a floating-point value.
namespace quorvane {

/// Digits, + - . e E.
[[nodiscard]] inline bool is_number_byte(char byte) {
    return is_digit(byte) || byte == '+' || byte == '-' || byte == '.' || byte == 'e' ||
           byte == 'E';
}

struct NumberScan {
    const char* end = nullptr;  ///< Where the longest run of number bytes ends.
    bool valid = false;         ///< The complete run is one number literal.
    bool is_integer = false;    ///< Valid, with neither a fraction part nor an exponent.
};

/// Judges the run of number bytes that starts at `at`; `end` is where the text ends.
[[nodiscard]] NumberScan scan_number(const char* at, const char* end);

/// The value of a literal without fraction and exponent ("-7", never "+7"), or nothing when it
/// lies outside the signed 64-bit range.
[[nodiscard]] std::optional<std::int64_t> integer_value(std::string_view literal);

}  // namespace quorvane
