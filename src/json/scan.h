#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// QUORVANE_PLAIN_SCAN is for benchmarks: it shows what the vector forms gain.
#if defined(QUORVANE_PLAIN_SCAN)
#elif defined(__SSE2__)
#define QUORVANE_SCAN_SSE2
#include <emmintrin.h>
#elif defined(__aarch64__) && defined(__ARM_NEON)
#define QUORVANE_SCAN_NEON
#include <arm_neon.h>
#endif

/// Looks at sixteen bytes at once (private to json/).
///
/// Each `..._run` returns how many of the sixteen bytes at `at` stand before the first that does
/// not belong: 0 to 16.  All sixteen are read, so every text that is scanned is followed by
/// kTextPadding readable bytes.
namespace quorvane {

/// Readable bytes behind every text of a tree and behind the input of the parser.
inline constexpr std::size_t kTextPadding = 32;

inline constexpr std::size_t kScanWidth = 16;

/// One byte at a time: for processors without a form below, and what those are tested against.
namespace plain {

template <typename Belongs>
std::size_t run(const char* at, Belongs belongs) {
    std::size_t length = 0;
    while (length < kScanWidth && belongs(static_cast<unsigned char>(at[length]))) ++length;
    return length;
}

/// Bytes that stand in a JSON string as they are: no quote, no backslash, nothing below 0x20.
inline std::size_t text_run(const char* at) {
    return run(at, [](unsigned char c) { return c >= 0x20 && c != '"' && c != '\\'; });
}

/// Space, tab, line feed, carriage return.
inline std::size_t blank_run(const char* at) {
    return run(at, [](unsigned char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; });
}

inline std::size_t digit_run(const char* at) {
    return run(at, [](unsigned char c) { return c >= '0' && c <= '9'; });
}

}  // namespace plain

#if defined(QUORVANE_SCAN_SSE2)

namespace vector {

inline __m128i load(const char* at) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
}
inline __m128i equal(__m128i bytes, char byte) {
    return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(byte));
}

/// Counts the bytes before the first set one of a comparison's result.
inline std::size_t before_first(__m128i matches) {
    const unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(matches));
    return static_cast<std::size_t>(__builtin_ctz(mask | 1U << kScanWidth));
}
inline std::size_t before_first_unset(__m128i matches) {
    const unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(matches));
    return static_cast<std::size_t>(__builtin_ctz(~mask));
}

inline std::size_t text_run(const char* at) {
    const __m128i bytes = load(at);
    const __m128i control = _mm_cmpeq_epi8(_mm_min_epu8(bytes, _mm_set1_epi8(0x1F)), bytes);
    return before_first(_mm_or_si128(control, _mm_or_si128(equal(bytes, '"'), equal(bytes, '\\'))));
}

inline std::size_t blank_run(const char* at) {
    const __m128i bytes = load(at);
    const __m128i blanks = _mm_or_si128(equal(bytes, ' '), equal(bytes, '\n'));
    return before_first_unset(
        _mm_or_si128(blanks, _mm_or_si128(equal(bytes, '\t'), equal(bytes, '\r'))));
}

inline std::size_t digit_run(const char* at) {
    const __m128i values = _mm_sub_epi8(load(at), _mm_set1_epi8('0'));
    return before_first_unset(_mm_cmpeq_epi8(_mm_min_epu8(values, _mm_set1_epi8(9)), values));
}

}  // namespace vector
namespace scan = vector;

#elif defined(QUORVANE_SCAN_NEON)

namespace vector {

inline uint8x16_t load(const char* at) {
    return vld1q_u8(reinterpret_cast<const std::uint8_t*>(at));
}
inline uint8x16_t equal(uint8x16_t bytes, char byte) {
    return vceqq_u8(bytes, vdupq_n_u8(static_cast<std::uint8_t>(byte)));
}

/// Narrowing by four bits leaves one nibble for each byte, in order.
inline std::size_t before_first(uint8x16_t matches) {
    const uint8x8_t nibbles = vshrn_n_u16(vreinterpretq_u16_u8(matches), 4);
    const std::uint64_t mask = vget_lane_u64(vreinterpret_u64_u8(nibbles), 0);
    return mask == 0 ? kScanWidth : static_cast<std::size_t>(__builtin_ctzll(mask)) / 4;
}

inline std::size_t text_run(const char* at) {
    const uint8x16_t bytes = load(at);
    const uint8x16_t control = vcltq_u8(bytes, vdupq_n_u8(0x20));
    return before_first(vorrq_u8(control, vorrq_u8(equal(bytes, '"'), equal(bytes, '\\'))));
}

inline std::size_t blank_run(const char* at) {
    const uint8x16_t bytes = load(at);
    const uint8x16_t blanks = vorrq_u8(equal(bytes, ' '), equal(bytes, '\n'));
    return before_first(
        vmvnq_u8(vorrq_u8(blanks, vorrq_u8(equal(bytes, '\t'), equal(bytes, '\r')))));
}

inline std::size_t digit_run(const char* at) {
    const uint8x16_t values = vsubq_u8(load(at), vdupq_n_u8('0'));
    return before_first(vcgtq_u8(values, vdupq_n_u8(9)));
}

}  // namespace vector
namespace scan = vector;

#else

namespace scan = plain;

#endif

}  // namespace quorvane
