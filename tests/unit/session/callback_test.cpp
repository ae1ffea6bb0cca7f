#include "session/callback.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

TEST(JudgeCallback, RecognisesOnlyTheExpectedRequest) {
    const std::string query = "/callback?state=S&request=R&code=C";
    const struct {
        const char* name;
        std::string head;
        const char* code;  // Null when the request is turned away.
    } cases[] = {
        {"the callback", "GET " + query + " HTTP/1.1\r\nHost: x\r\n\r\n", "C"},
        {"any order, other parameters", "GET /callback?a=1&code=C&request=R&state=S X\r\n\r\n",
         "C"},
        {"no code", "GET /callback?request=R&state=S HTTP/1.1\r\n\r\n", ""},
        {"refused by the user", "GET /callback?request=R&state=S&error=no X\r\n\r\n", ""},
        {"raw, not decoded", "GET /callback?request=R&state=S&code=a%20b+c= X\r\n\r\n", "a%20b+c="},
        {"the first code counts", "GET /callback?request=R&state=S&code=1&code=2 X\r\n\r\n", "1"},
        {"name inside another name", "GET /callback?request=R&state=S&xcode=1 X\r\n\r\n", ""},
        {"head not whole", "GET " + query + " HTTP/1.1\r\nHost: x\r\n", nullptr},
        {"nothing", "", nullptr},
        {"other method", "POST " + query + " HTTP/1.1\r\n\r\n", nullptr},
        {"method in lower case", "get " + query + " HTTP/1.1\r\n\r\n", nullptr},
        {"other path", "GET /callback/?state=S&request=R HTTP/1.1\r\n\r\n", nullptr},
        {"icon", "GET /favicon.ico HTTP/1.1\r\n\r\n", nullptr},
        {"other state", "GET /callback?state=s&request=R&code=C X\r\n\r\n", nullptr},
        {"encoded state", "GET /callback?state=%53&request=R&code=C X\r\n\r\n", nullptr},
        {"no state", "GET /callback?request=R&code=C X\r\n\r\n", nullptr},
        {"first state is empty", "GET /callback?state=&state=S&request=R X\r\n\r\n", nullptr},
        {"other request", "GET /callback?state=S&request=RR&code=C X\r\n\r\n", nullptr},
        {"no query", "GET /callback HTTP/1.1\r\n\r\n", nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::optional<std::string> code = judge_callback(c.head, "S", "R");
        const auto expected = c.code == nullptr ? std::nullopt : std::optional<std::string>(c.code);
        EXPECT_EQ(code, expected);
    }
    // An empty state is never matched, not even by an empty one.
    EXPECT_FALSE(judge_callback("GET /callback?state=&request=R X\r\n\r\n", "", "R"));
}

}  // namespace
}  // namespace quorvane
