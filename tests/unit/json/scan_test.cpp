#include "json/scan.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "json/utf8.h"

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
    const char* const end = put_utf8(point, encoded);
    return bytes.substr(0, length) == std::string_view(encoded, end) ? length : 0;
}

TEST(ValidUtf8Prefix, JudgesEveryLeadAndEveryBoundOfWhatFollows) {
    constexpr unsigned char kBounds[] = {0x00, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0};
    // The bytes lie across the end of a block that is judged at once, and without anything around.
    std::string around(150, 'a');
    for (unsigned lead = 0; lead < 256; ++lead) {
        for (std::size_t others = 0; others < 9 * 9 * 9; ++others) {
            const unsigned char bytes[] = {static_cast<unsigned char>(lead), kBounds[others % 9],
                                           kBounds[others / 9 % 9], kBounds[others / 81]};
            around.replace(125, 4, reinterpret_cast<const char*>(bytes), 4);
            std::size_t at = 125;
            while (at < 129 && character_length(around.substr(at)) > 0) {
                at += character_length(around.substr(at));
            }
            const std::size_t expected = at < 129 ? at : around.size();
            ASSERT_EQ(valid_utf8_prefix(around), expected) << lead << ' ' << others;
            const std::string alone = around.substr(125, 4);
            ASSERT_EQ(valid_utf8_prefix(alone), std::min<std::size_t>(at - 125, 4));
        }
    }
}

TEST(Scan, VectorAndPlainFormsAgree) {
    std::mt19937 random(1);
    constexpr std::string_view kAlphabet = "0159/: \t\n\r\v\"\\a\x1F\x7F\x80\xA2\xDC\xFF";
    for (int round = 0; round < 100'000; ++round) {
        std::string bytes(kScanWidth, kAlphabet[random() % kAlphabet.size()]);
        bytes[random() % kScanWidth] = kAlphabet[random() % kAlphabet.size()];
        bytes[random() % kScanWidth] = static_cast<char>(random());
        ASSERT_EQ(scan::text_run(bytes.data()), plain::text_run(bytes.data()));
        ASSERT_EQ(scan::blank_run(bytes.data()), plain::blank_run(bytes.data()));
        ASSERT_EQ(scan::digit_run(bytes.data()), plain::digit_run(bytes.data()));
    }
}

}  // namespace
}  // namespace quorvane
