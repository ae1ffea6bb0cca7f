#include "session/origin.h"

#include <gtest/gtest.h>

#include "rows.h"
#include "session/callback.h"
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
    const std::pair<std::string_view, const char*> cases[] = {
        {"https://api-host", "tls api-host 443"},
        {"https://API.Host:65535", "tls API.Host 65535"},
        {"https://a:b:00443", "tls a:b 443"},
        {"http://127.0.0.1:8080", "127.0.0.1 8080"},
        {"http://localhost", "localhost 80"}};
    expect_rows(cases, parts_of);
    for (const std::string_view text : split(
             ",h,https://,HTTPS://h,https:h,https://h/,https://h_o,https://:1,https://h:,"
             "https://h:0,https://h:65536,https://[::1],http://h,http://LOCALHOST,http://127.0.0.2",
             ',')) {
        EXPECT_EQ(parts_of(text), "") << text;
    }
}

TEST(JudgeCallback, RecognisesOnlyTheExpectedRequest) {
    const std::string good = "GET /callback?state=S&request=R";
    const std::pair<std::string, std::optional<std::string>> cases[] = {
        {good + "&code=C HTTP/1.1\r\nHost: x", "C"},
        {good + "&error=no&xcode=1 X", ""},
        {good + "&code=a%20b+c= X", "a%20b+c="},
        {good + "&code=1&code=2 X", "1"},
        {"POST" + good.substr(3) + " X", {}},
        {"GET /callback?state=&state=S&request=R X", {}},
        {good + "R X", {}}};
    expect_rows(
        cases, [](const std::string& line) { return judge_callback(line + "\r\n\r\n", "S", "R"); });
    EXPECT_FALSE(judge_callback(good + " X\r\n", "S", "R")) << "The head is incomplete.";
    EXPECT_FALSE(judge_callback("GET /callback?state=&request=R X\r\n\r\n", "", "R"));
}

}  // namespace
}  // namespace quorvane
