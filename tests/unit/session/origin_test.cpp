#include "session/origin.h"

#include <gtest/gtest.h>

#include "support/text.h"

namespace quorvane {
namespace {

// HOST PORT of an origin, with "tls" before them when it is encrypted; empty when it is refused.
std::string parts_of(std::string_view text) {
    const ServiceOrigin origin = parse_service_origin(text);
    EXPECT_EQ(origin.text, text);
    if (!origin.valid) return "";
    return (origin.tls ? "tls " : "") + std::string(origin.host) + " " +
           std::to_string(origin.port);
}

TEST(ParseServiceOrigin, TakesBareOriginsOnly) {
    const char* const cases[][2] = {{"https://api-host", "tls api-host 443"},
                                    {"https://API.Host:65535", "tls API.Host 65535"},
                                    {"https://a:b:00443", "tls a:b 443"},
                                    {"http://127.0.0.1:8080", "127.0.0.1 8080"},
                                    {"http://localhost", "localhost 80"}};
    for (const auto& [text, expected] : cases) EXPECT_EQ(parts_of(text), expected);
    for (const std::string_view text : split(
             ",h,https://,HTTPS://h,https:h,https://h/,https://h_o,https://:1,https://h:,"
             "https://h:0,https://h:65536,https://[::1],http://h,http://LOCALHOST,http://127.0.0.2",
             ',')) {
        EXPECT_EQ(parts_of(text), "") << text;
    }
}

}  // namespace
}  // namespace quorvane
