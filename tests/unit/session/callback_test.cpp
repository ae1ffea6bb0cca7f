#include "session/callback.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

TEST(JudgeCallback, RecognisesOnlyTheExpectedRequest) {
    const std::string good = "GET /callback?state=S&request=R";
    const struct {
        std::string line;
        std::optional<std::string> code;  // Nothing: not the callback.
    } cases[] = {{good + "&code=C HTTP/1.1\r\nHost: x", "C"},
                 {good + "&error=no&xcode=1 X", ""},
                 {good + "&code=a%20b+c= X", "a%20b+c="},
                 {good + "&code=1&code=2 X", "1"},
                 {"POST" + good.substr(3) + " X", {}},
                 {"GET /callback?state=&state=S&request=R X", {}},
                 {good + "R X", {}}};
    for (const auto& c : cases) {
        EXPECT_EQ(judge_callback(c.line + "\r\n\r\n", "S", "R"), c.code) << c.line;
    }
    EXPECT_FALSE(judge_callback(good + " X\r\n", "S", "R")) << "The head is incomplete.";
    EXPECT_FALSE(judge_callback("GET /callback?state=&request=R X\r\n\r\n", "", "R"));
}

}  // namespace
}  // namespace quorvane
