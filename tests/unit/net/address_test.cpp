#include "net/address.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

TEST(ParseIpv4, TakesFourDecimalParts) {
    EXPECT_EQ(format_ipv4(parse_ipv4("255.0.10.1").value()), "255.0.10.1");
    EXPECT_EQ(format_ipv4(parse_ipv4("010.001.000.09").value()), "10.1.0.9");
    for (const char* bad : {"256.1.1.1", "1.1.1.999", "1.2.3", "1.2.3.", "1.2.3.4.5", "1.2.3.4.",
                            "1..2.3", "0001.2.3.4", "1.2.3.+4", " 1.2.3.4", "1.2.3.4 ", ""}) {
        EXPECT_FALSE(parse_ipv4(bad)) << bad;
    }
    EXPECT_FALSE(parse_ipv4(std::string_view("1.2.3.4\0", 8)));
}

TEST(ParseIpv6, TakesEightGroupsOrOneGap) {
    const std::pair<const char*, const char*> cases[] = {
        {"::1", "0:0:0:0:0:0:0:1"},
        {"::", "0:0:0:0:0:0:0:0"},
        {"2001:DB8::00a1:b", "2001:db8:0:0:0:0:a1:b"},
        {"1:2:3:4:5:6:7:8", "1:2:3:4:5:6:7:8"},
        {"1:2:3:4:5:6:7::", "1:2:3:4:5:6:7:0"},
        {"::2:3:4:5:6:7:8", "0:2:3:4:5:6:7:8"}};
    for (const auto& [text, shown] : cases) {
        EXPECT_EQ(format_ipv6(parse_ipv6(text).value()), shown);
    }
    for (const char* bad : {"1:2:3:4::5:6:7:8", "1:2:3:4:5:6:7", "1:2:3:4:5:6:7:8:9", "1::2::3",
                            ":::", "1:::2", ":1:2:3:4:5:6:7", "1:2:3:4:5:6:7:", "::1:", "::12345",
                            "::g", "::-1", "::0x1", "::1%lo", "[::1]", "::127.0.0.1", ""}) {
        EXPECT_FALSE(parse_ipv6(bad)) << bad;
    }
}

}  // namespace
}  // namespace quorvane
