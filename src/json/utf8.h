#pragma once

#include <cstddef>
#include <string_view>

/// Strict UTF-8 (RFC 3629, section 4): no overlong forms, no encoded surrogates, nothing above
/// U+10FFFF, no sequence cut short by the end.
namespace quorvane {

/// The number of bytes before the first sequence that is not valid; `bytes.size()` when all are.
[[nodiscard]] std::size_t valid_utf8_prefix(std::string_view bytes);

[[nodiscard]] inline bool is_valid_utf8(std::string_view bytes) {
    return valid_utf8_prefix(bytes) == bytes.size();
}

/// Writes the one to four bytes of `code_point`, which is no surrogate and at most 0x10FFFF, and
/// returns where they end.
char* put_utf8(char32_t code_point, char* out);

}  // namespace quorvane
