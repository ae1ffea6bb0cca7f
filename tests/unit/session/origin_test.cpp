#include "session/origin.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

TEST(ParseServiceOrigin, AcceptsBareOriginsOnly) {
    const std::pair<const char*, const char*> cases[] = {
        {"https://api-host", "api-host 443"}, {"https://API.Host:8443", "API.Host 8443"},
        {"https://h:0080", "h 80"},           {"https://h:65535", "h 65535"},
        {"https://a:b:443", "a:b 443"},       {"http://127.0.0.1:8080", "127.0.0.1 8080"},
        {"http://localhost", "localhost 80"}};
    for (const auto& [text, shown] : cases) {
        const ServiceOrigin origin = parse_service_origin(text);
        EXPECT_TRUE(origin.valid) << text;
        EXPECT_EQ(origin.text, text);
        EXPECT_EQ(origin.host + " " + std::to_string(origin.port), shown);
        EXPECT_EQ(origin.tls, origin.text.starts_with("https://"));
    }
    for (const char* bad : {"https://h:0",
                            "https://h:65536",
                            "https://h:99999999999999999999",
                            "https://h:",
                            "https://h:+1",
                            "https://h:8a",
                            "https://:443",
                            "https://",
                            "",
                            "api-host",
                            "HTTPS://host",
                            "ftp://host",
                            "https://host/",
                            "https://user@host",
                            "https://host?q",
                            "https://ho_st",
                            "https://ho st",
                            "https://[::1]:443",
                            "http://192.168.1.2:8080",
                            "http://LOCALHOST",
                            "http://127.0.0.2",
                            "http://localhost.:80"}) {
        EXPECT_FALSE(parse_service_origin(bad).valid) << bad;
        EXPECT_EQ(parse_service_origin(bad).text, bad);
    }
}

}  // namespace
}  // namespace quorvane
