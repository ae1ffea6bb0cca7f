#include "json/scan.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "json/number.h"
#include "json/utf8.h"

namespace quorvane {
namespace {

// The rules as RFC 3629 lists them, one character at a time.
std::size_t sequence_length(std::string_view bytes) {
    const auto byte = [&](std::size_t i) {
        return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U;
    };
    const auto tail = [&](std::size_t i) { return byte(i) >= 0x80 && byte(i) <= 0xBF; };
    const unsigned lead = byte(0);
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead <= 0xDF) return tail(1) ? 2 : 0;
    if (lead >= 0xE0 && lead <= 0xEF) {
        const bool second = lead == 0xE0   ? byte(1) >= 0xA0 && byte(1) <= 0xBF
                            : lead == 0xED ? byte(1) >= 0x80 && byte(1) <= 0x9F
                                           : tail(1);
        return second && tail(2) ? 3 : 0;
    }
    const bool second = lead == 0xF0   ? byte(1) >= 0x90 && byte(1) <= 0xBF
                        : lead == 0xF4 ? byte(1) >= 0x80 && byte(1) <= 0x8F
                                       : lead > 0xF0 && lead < 0xF4 && tail(1);
    return second && tail(2) && tail(3) ? 4 : 0;
}

std::size_t expected_prefix(std::string_view bytes) {
    std::size_t at = 0;
    while (at < bytes.size()) {
        const std::size_t length = sequence_length(bytes.substr(at));
        if (length == 0) break;
        at += length;
    }
    return at;
}

TEST(ValidUtf8Prefix, JudgesEveryLeadAndEveryBoundOfWhatFollows) {
    constexpr unsigned kBounds[] = {0x00, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0};
    std::string around(70, 'a');  // So that the bytes lie across the end of a 64-byte block.
    for (unsigned lead = 0; lead < 256; ++lead) {
        for (const unsigned second : kBounds) {
            for (const unsigned third : kBounds) {
                for (const unsigned fourth : kBounds) {
                    const unsigned bytes[] = {lead, second, third, fourth};
                    for (std::size_t i = 0; i < 4; ++i) {
                        around[62 + i] = static_cast<char>(bytes[i]);
                    }
                    const std::string_view all = around;
                    ASSERT_EQ(valid_utf8_prefix(all), expected_prefix(all))
                        << std::hex << lead << ' ' << second << ' ' << third << ' ' << fourth;
                    const std::string_view alone = all.substr(62, 4);
                    ASSERT_EQ(valid_utf8_prefix(alone), expected_prefix(alone));
                }
            }
        }
    }
}

TEST(Scan, VectorAndPlainFormsAgree) {
    std::mt19937 random(1);
    constexpr std::string_view kAlphabet = "0159  \t\n\r\v\"\\/az:{\x1F\x7F\x80\xA2\xDC\xFF";
    for (int round = 0; round < 100'000; ++round) {
        // Long runs of one kind, and every byte now and then.
        const char filler = kAlphabet[random() % kAlphabet.size()];
        std::string bytes(kScanWidth, filler);
        bytes[random() % kScanWidth] = kAlphabet[random() % kAlphabet.size()];
        bytes[random() % kScanWidth] = static_cast<char>(random());
        ASSERT_EQ(scan::text_run(bytes.data()), plain::text_run(bytes.data()));
        ASSERT_EQ(scan::blank_run(bytes.data()), plain::blank_run(bytes.data()));
        ASSERT_EQ(scan::digit_run(bytes.data()), plain::digit_run(bytes.data()));
    }
}

}  // namespace
}  // namespace quorvane
