#include "session/callback.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

TEST(JudgeCallback, RecognisesOnlyTheExpectedRequest) {
    const auto judge = [](const std::string& line, const char* end = "\r\n\r\n") {
        return judge_callback(line + end, "S", "R");
    };
    const std::string good = "GET /callback?state=S&request=R";
    const std::pair<std::string, const char*> codes[] = {
        {good + "&code=C HTTP/1.1\r\nHost: x", "C"},
        {"GET /callback?a=1&code=C&request=R&state=S X", "C"},
        {good + " X", ""},
        {good + "&error=no X", ""},
        {good + "&code=a%20b+c= X", "a%20b+c="},
        {good + "&code=1&code=2 X", "1"},
        {good + "&xcode=1 X", ""}};
    for (const auto& [line, code] : codes) EXPECT_EQ(judge(line), code) << line;
    for (const std::string& line :
         {"POST" + good.substr(3) + " X", "get" + good.substr(3) + " X",
          std::string("GET /callback/?state=S&request=R X"), std::string("GET /favicon.ico X"),
          std::string("GET /callback?state=s&request=R X"),
          std::string("GET /callback?state=%53&request=R X"),
          std::string("GET /callback?request=R&code=C X"),
          std::string("GET /callback?state=&state=S&request=R X"), good + "R X",
          std::string("GET /callback X"), std::string()}) {
        EXPECT_FALSE(judge(line)) << line;
    }
    EXPECT_FALSE(judge(good + " X", "\r\n")) << "The head is not whole.";
    EXPECT_FALSE(judge_callback("GET /callback?state=&request=R X\r\n\r\n", "", "R"));
}

}  // namespace
}  // namespace quorvane
