#include "session/origin.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

TEST(ParseServiceOrigin, AcceptsBareOriginsOnly) {
    const struct {
        const char* text;
        bool valid;
        const char* host;
        int port;
    } cases[] = {
        {"https://api-host", true, "api-host", 443},
        {"https://api-host:8443", true, "api-host", 8443},
        {"https://API.Host", true, "API.Host", 443},
        {"https://h:0080", true, "h", 80},
        {"https://h:65535", true, "h", 65535},
        {"https://a:b:443", true, "a:b", 443},
        {"http://127.0.0.1:8080", true, "127.0.0.1", 8080},
        {"http://localhost", true, "localhost", 80},
        {"https://h:0", false, "h", 0},
        {"https://h:65536", false, "h", -1},
        {"https://h:99999999999999999999", false, "h", -1},
        {"https://h:", false, "h", -1},
        {"https://h:+1", false, "h", -1},
        {"https://h:8a", false, "h", -1},
        {"https://:443", false, "", 443},
        {"https://", false, "", 443},
        {"", false, "", 80},
        {"api-host", false, "", 80},
        {"HTTPS://host", false, "", 80},
        {"ftp://host", false, "", 80},
        {"https://host/", false, "host/", 443},
        {"https://user@host", false, "user@host", 443},
        {"https://host?q", false, "host?q", 443},
        {"https://ho_st", false, "ho_st", 443},
        {"https://ho st", false, "ho st", 443},
        {"https://[::1]:443", false, "[::1]", 443},
        {"http://192.168.1.2:8080", false, "192.168.1.2", 8080},
        {"http://LOCALHOST", false, "LOCALHOST", 80},
        {"http://127.0.0.2", false, "127.0.0.2", 80},
        {"http://localhost.:80", false, "localhost.", 80},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const ServiceOrigin origin = parse_service_origin(c.text);
        EXPECT_EQ(origin.valid, c.valid);
        EXPECT_EQ(origin.text, c.text);
        EXPECT_EQ(origin.host, c.host);
        EXPECT_EQ(origin.port, c.port);
        EXPECT_EQ(origin.tls, std::string_view(c.text).starts_with("https://"));
    }
}

}  // namespace
}  // namespace quorvane
