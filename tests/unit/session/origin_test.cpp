#include "session/origin.h"

#include <gtest/gtest.h>

#include <sstream>

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
    const struct {
        const char* text;
        const char* expected;
    } cases[] = {{"https://api-host", "tls api-host 443"},
                 {"https://API.Host:65535", "tls API.Host 65535"},
                 {"https://a:b:00443", "tls a:b 443"},
                 {"http://127.0.0.1:8080", "127.0.0.1 8080"},
                 {"http://localhost", "localhost 80"}};
    for (const auto& c : cases) EXPECT_EQ(parts_of(c.text), c.expected);
    std::istringstream refused(
        ",h,https://,HTTPS://h,ftp://h,https:h,https://h/,https://u@h,https://h?q,https://h_o,"
        "https://h o,https://h:,https://h:0,https://:1,https://h:65536,https://h:+1,https://h:8a,"
        "https://[::1],http://h,http://LOCALHOST,http://127.0.0.2,http://localhost.:80");
    for (std::string text; std::getline(refused, text, ',');) EXPECT_EQ(parts_of(text), "") << text;
}

}  // namespace
}  // namespace quorvane
