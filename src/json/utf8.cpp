#include "json/utf8.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <optional>

#include "json/scan.h"

namespace quorvane {
namespace {

// The length of the sequence at `at`, if it is valid.
std::optional<std::size_t> sequence_length(const char* at, const char* end) {
    const auto byte = [&](std::ptrdiff_t i) {
        return end - at > i ? static_cast<unsigned char>(at[i]) : 0U;
    };
    const auto follows = [&](std::ptrdiff_t i) { return (byte(i) & 0xC0) == 0x80; };
    const unsigned lead = byte(0);
    const unsigned second = byte(1);
    if (lead < 0x80) return 1;
    if (lead < 0xC2 || lead > 0xF4 || !follows(1)) return std::nullopt;
    if (lead < 0xE0) return 2;
    if (lead == 0xE0 && second < 0xA0) return std::nullopt;  // Overlong.
    if (lead == 0xED && second > 0x9F) return std::nullopt;  // A surrogate.
    if (lead == 0xF0 && second < 0x90) return std::nullopt;  // Overlong.
    if (lead == 0xF4 && second > 0x8F) return std::nullopt;  // Above U+10FFFF.
    if (!follows(2)) return std::nullopt;
    if (lead < 0xF0) return 3;
    if (!follows(3)) return std::nullopt;
    return 4;
}

// Goes from character to character until `stop` is reached or passed, or to the first bad sequence.
const char* skip_valid(const char* at, const char* stop, const char* end) {
    while (at < stop) {
        const std::optional<std::size_t> length = sequence_length(at, end);
        if (!length) break;
        at += *length;
    }
    return at;
}

// Processors compare signed bytes best, so 128 is taken off each: the order stays, 0x80 becomes 0.
constexpr std::int8_t lowered(unsigned byte) {
    return static_cast<std::int8_t>(static_cast<int>(byte) - 128);
}

constexpr std::int8_t kTopTwoBits = -64;
constexpr std::int8_t kAllButLastBit = -2;

scan::SignedBytes load_lowered(const char* at) {
    return std::bit_cast<scan::SignedBytes>(scan::load(at) ^ 0x80);
}

// The same rules for the sixteen bytes at `at`, each judged by itself and the three before it:
// matches are the bytes that must not be there.
scan::SignedBytes misplaced(const char* at) {
    const scan::SignedBytes byte = load_lowered(at);
    const scan::SignedBytes last = load_lowered(at - 1);
    const scan::SignedBytes expected = (last > lowered(0xBF)) |
                                       (load_lowered(at - 2) > lowered(0xDF)) |
                                       (load_lowered(at - 3) > lowered(0xEF));
    const scan::SignedBytes follows = (byte & kTopTwoBits) == lowered(0x80);
    return (expected ^ follows) | ((byte & kAllButLastBit) == lowered(0xC0)) |
           (byte > lowered(0xF4)) | ((last == lowered(0xE0)) & (byte < lowered(0xA0))) |
           ((last == lowered(0xED)) & (byte > lowered(0x9F))) |
           ((last == lowered(0xF0)) & (byte < lowered(0x90))) |
           ((last == lowered(0xF4)) & (byte > lowered(0x8F)));
}

bool any(scan::SignedBytes matches) {
    const auto halves = std::bit_cast<std::array<std::uint64_t, 2>>(matches);
    return (halves[0] | halves[1]) != 0;
}

constexpr std::ptrdiff_t kBlockBytes = 64;
constexpr std::ptrdiff_t kLookBackBytes = 3;

bool is_ascii_block(const char* at) {
    const scan::SignedBytes all =
        load_lowered(at) & load_lowered(at + 16) & load_lowered(at + 32) & load_lowered(at + 48);
    return !any(all >= 0);
}

bool is_valid_block(const char* at) {
    return !any(misplaced(at) | misplaced(at + 16) | misplaced(at + 32) | misplaced(at + 48));
}

// The start of the character that the byte before `at` belongs to, if it lacks bytes from `at` on,
// else `at`.  At least kLookBackBytes bytes precede it.
const char* character_start(const char* at) {
    const auto byte = [at](std::ptrdiff_t back) { return static_cast<unsigned char>(at[-back]); };
    if (byte(1) >= 0xC0) return at - 1;
    if (byte(2) >= 0xE0) return at - 2;
    return byte(3) >= 0xF0 ? at - 3 : at;
}

}  // namespace

std::size_t valid_utf8_prefix(std::string_view bytes) {
    const char* const begin = bytes.data();
    const char* const end = begin + bytes.size();
    // One by one, until there are bytes to look back at.
    const char* at = skip_valid(begin, begin + std::min(kLookBackBytes, end - begin), end);
    if (at - begin >= kLookBackBytes) {
        // Before each step no byte before `at` is misplaced, but the last character may lack some.
        while (end - at >= kBlockBytes) {
            // In a block of ASCII only what came before it can be wrong.
            const bool valid = is_ascii_block(at) ? character_start(at) == at : is_valid_block(at);
            if (!valid) break;
            at += kBlockBytes;
        }
        at = character_start(at);
    }
    return static_cast<std::size_t>(skip_valid(at, end, end) - begin);
}

char* put_utf8(char32_t code_point, char* out) {
    constexpr char32_t kLeads[] = {0x00, 0xC0, 0xE0, 0xF0};
    int following = code_point < 0x80 ? 0 : code_point < 0x800 ? 1 : code_point < 0x10000 ? 2 : 3;
    *out++ = static_cast<char>(kLeads[following] | code_point >> 6 * following);
    while (following-- > 0) {
        *out++ = static_cast<char>(0x80 | (code_point >> 6 * following & 0x3F));
    }
    return out;
}

}  // namespace quorvane
