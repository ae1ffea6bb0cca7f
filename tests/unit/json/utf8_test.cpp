#include "json/utf8.h"

#include <gtest/gtest.h>

#include <string>

namespace quorvane {
namespace {

// The length of the character that `bytes` begin with, found by decoding and encoding it again;
// 0 when something else comes back.
std::size_t character_length(std::string_view bytes) {
    const auto lead = static_cast<unsigned char>(bytes[0]);
    const std::size_t length = lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    char32_t point = length == 1 ? lead : lead & (0x7FU >> length);
    for (const char c : bytes.substr(1, length - 1)) point = point << 6 | (c & 0x3F);
    if (point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF)) return 0;
    char encoded[4];
    return bytes.starts_with(std::string_view(encoded, put_utf8(point, encoded))) ? length : 0;
}

TEST(ValidUtf8Prefix, JudgesEveryLeadAndEveryBoundOfWhatFollows) {
    constexpr std::string_view kBounds("\x00\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0", 9);
    for (std::size_t i = 0; i < std::size_t{256} * 9 * 9 * 9; ++i) {
        const std::string text = {static_cast<char>(i % 256), kBounds[i / 256 % 9],
                                  kBounds[i / 256 / 9 % 9], kBounds[i / 256 / 81]};
        std::size_t valid = 0;
        while (valid < 4) {
            const std::size_t length = character_length(text.substr(valid));
            if (length == 0 || length > 4 - valid) break;
            valid += length;
        }
        ASSERT_EQ(valid_utf8_prefix(text), valid) << i;
        // Across the end of a block that is judged at once, at 131.
        for (std::size_t at = 128; at < 131; ++at) {
            const std::string around = std::string(at, 'a') + text + std::string(90, 'a');
            ASSERT_EQ(valid_utf8_prefix(around), valid < 4 ? at + valid : around.size()) << i;
        }
    }
}

}  // namespace
}  // namespace quorvane
