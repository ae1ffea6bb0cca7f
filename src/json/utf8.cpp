#include "json/utf8.h"

#include <array>
#include <cstdint>
#include <cstring>

namespace quorvane {
namespace {

// The validator is an automaton of nine states.  A row of the table holds, for one byte, the
// successor of every state in a field of six bits; a state is the position of its own field, so
// that one shift is one step and nothing waits for a load.
enum State : std::uint64_t {
    kAccept = 0,    // Between two characters.
    kReject = 6,    // For good.
    kOneMore = 12,  // One, two or three bytes 80..BF are missing.
    kTwoMore = 18,
    kThreeMore = 24,
    kAfterE0 = 30,  // Second byte A0..BF, else the form is overlong.
    kAfterEd = 36,  // Second byte 80..9F, else it is a surrogate.
    kAfterF0 = 42,  // Second byte 90..BF, else the form is overlong.
    kAfterF4 = 48,  // Second byte 80..8F, else it lies above U+10FFFF.
};

constexpr State after_lead(unsigned byte) {
    if (byte < 0x80) return kAccept;
    if (byte < 0xC2 || byte > 0xF4) return kReject;
    if (byte < 0xE0) return kOneMore;
    if (byte == 0xE0) return kAfterE0;
    if (byte == 0xED) return kAfterEd;
    if (byte < 0xF0) return kTwoMore;
    if (byte == 0xF0) return kAfterF0;
    return byte == 0xF4 ? kAfterF4 : kThreeMore;
}

constexpr std::uint64_t table_row(unsigned byte) {
    const auto within = [byte](unsigned low, unsigned high, State next) {
        return byte >= low && byte <= high ? next : kReject;
    };
    return std::uint64_t{after_lead(byte)} << kAccept | std::uint64_t{kReject} << kReject |
           std::uint64_t{within(0x80, 0xBF, kAccept)} << kOneMore |
           std::uint64_t{within(0x80, 0xBF, kOneMore)} << kTwoMore |
           std::uint64_t{within(0x80, 0xBF, kTwoMore)} << kThreeMore |
           std::uint64_t{within(0xA0, 0xBF, kOneMore)} << kAfterE0 |
           std::uint64_t{within(0x80, 0x9F, kOneMore)} << kAfterEd |
           std::uint64_t{within(0x90, 0xBF, kTwoMore)} << kAfterF0 |
           std::uint64_t{within(0x80, 0x8F, kTwoMore)} << kAfterF4;
}

constexpr std::array<std::uint64_t, 256> make_table() {
    std::array<std::uint64_t, 256> table{};
    for (unsigned byte = 0; byte < table.size(); ++byte) table[byte] = table_row(byte);
    return table;
}

constexpr std::array<std::uint64_t, 256> kTable = make_table();

std::uint64_t step(std::uint64_t state, char byte) {
    return kTable[static_cast<unsigned char>(byte)] >> (state & 63);
}

constexpr std::size_t kBlock = 64;

bool is_ascii_block(const char* bytes) {
    std::uint64_t words[kBlock / 8];
    std::memcpy(words, bytes, kBlock);
    std::uint64_t all = 0;
    for (const std::uint64_t word : words) all |= word;
    return (all & 0x8080808080808080U) == 0;
}

// The start of the first bad sequence; there is one, and `at` stands at or before it, between two
// characters.
std::size_t find_bad_sequence(std::string_view bytes, std::size_t at) {
    std::uint64_t state = kAccept;
    std::size_t start = at;
    for (; at < bytes.size(); ++at) {
        if ((state & 63) == kAccept) start = at;
        state = step(state, bytes[at]);
        if ((state & 63) == kReject) break;
    }
    return start;
}

}  // namespace

std::size_t valid_utf8_prefix(std::string_view bytes) {
    const char* at = bytes.data();
    const char* const end = at + bytes.size();
    // Every boundary between blocks where the automaton stands between two characters.
    std::size_t known_good = 0;
    std::uint64_t state = kAccept;
    while (static_cast<std::size_t>(end - at) >= kBlock) {
        if ((state & 63) == kAccept) {
            known_good = static_cast<std::size_t>(at - bytes.data());
            if (is_ascii_block(at)) {
                at += kBlock;
                continue;
            }
        }
        for (std::size_t i = 0; i < kBlock; ++i) state = step(state, at[i]);
        if ((state & 63) == kReject) return find_bad_sequence(bytes, known_good);
        at += kBlock;
    }
    for (; at < end; ++at) state = step(state, *at);
    return (state & 63) == kAccept ? bytes.size() : find_bad_sequence(bytes, known_good);
}

char* put_utf8(char32_t code_point, char* out) {
    const auto put = [&out](char32_t byte) { *out++ = static_cast<char>(byte); };
    if (code_point < 0x80) {
        put(code_point);
        return out;
    }
    if (code_point < 0x800) {
        put(0xC0 | code_point >> 6);
    } else {
        if (code_point < 0x10000) {
            put(0xE0 | code_point >> 12);
        } else {
            put(0xF0 | code_point >> 18);
            put(0x80 | (code_point >> 12 & 0x3F));
        }
        put(0x80 | (code_point >> 6 & 0x3F));
    }
    put(0x80 | (code_point & 0x3F));
    return out;
}

}  // namespace quorvane
