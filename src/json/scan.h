#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

/// Looks at sixteen bytes at once (private to json/).
///
/// Each `..._run` returns how many of the sixteen bytes at `at` precede the first that does not
/// belong: 0 to 16.  All sixteen are read, so every text that is scanned is followed by
/// kTextPaddingBytes readable bytes.
namespace quorvane {

/// Readable bytes after every text of a tree and after the input of the parser.
inline constexpr std::size_t kTextPaddingBytes = 32;

}  // namespace quorvane

namespace quorvane::scan {

inline constexpr std::size_t kVectorBytes = 16;

/// Sixteen bytes in one register where the processor has such; the compiler knows how.
using Bytes = std::uint8_t __attribute__((vector_size(kVectorBytes)));
/// The same with signs, which is also the result of a comparison: 0 or -1 in each place.
using SignedBytes = std::int8_t __attribute__((vector_size(kVectorBytes)));

inline Bytes load(const char* at) {
    Bytes bytes;
    std::memcpy(&bytes, at, sizeof bytes);
    return bytes;
}

/// How many bytes precede the first match.
inline std::size_t before_first(SignedBytes matches) {
    using Halves = std::uint64_t __attribute__((vector_size(kVectorBytes)));
    const Halves halves = std::bit_cast<Halves>(matches);
    const auto in_half = [](std::uint64_t half) {
        const bool little = std::endian::native == std::endian::little;
        return static_cast<unsigned>(little ? std::countr_zero(half) : std::countl_zero(half)) / 8;
    };
    return halves[0] != 0 ? in_half(halves[0]) : 8 + in_half(halves[1]);
}

/// Bytes that a JSON string holds as they are: no quote, no backslash, nothing below 0x20.
inline std::size_t text_run(const char* at) {
    const Bytes bytes = load(at);
    return before_first((bytes < 0x20) | (bytes == '"') | (bytes == '\\'));
}

/// The first byte from `at` on that a JSON string cannot hold as it is; there must be one. Stepping
/// by a constant lets the processor look at the next bytes before it knows whether it has to.
inline const char* skip_text(const char* at) {
    for (;; at += kVectorBytes) {
        const std::size_t run = text_run(at);
        if (run < kVectorBytes) return at + run;
    }
}

/// Whether a JSON string holds `text` as it is.  The byte after the text must be one that it cannot
/// hold, which ends the search.
inline bool holds_plain_text(std::string_view text) {
    return skip_text(text.data()) == text.data() + text.size();
}

/// Whitespace: space, tab, line feed, carriage return.
inline std::size_t whitespace_run(const char* at) {
    const Bytes bytes = load(at);
    return before_first(~((bytes == ' ') | (bytes == '\t') | (bytes == '\n') | (bytes == '\r')));
}

inline std::size_t digit_run(const char* at) { return before_first(load(at) - '0' > 9); }

}  // namespace quorvane::scan
