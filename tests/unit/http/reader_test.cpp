#include "http/reader.h"

#include <gtest/gtest.h>

#include "support/text.h"

namespace quorvane {
namespace {

std::string show(const std::vector<HttpHeader>& headers) {
    std::string text;
    for (const HttpHeader& header : headers) text += header.name + "=" + header.value + ";";
    return text;
}

// Verdict of a response, as "STATUS|HEADERS|BODY|", and "whole" when it is.
std::string parsed(std::string_view data, std::int64_t limit) {
    const ResponseParse got = parse_response(ByteBuffer::copy_of(data), limit);
    if (got.ok != (got.response.status > 0)) return "ok?";
    const HttpResponse& response = got.response;
    return std::to_string(response.status) + "|" + show(response.headers) + "|" +
           std::string(response.body.view()) + (got.complete ? "|whole" : "|");
}

// That the scanner knows the same of every part is the fuzz target's.
TEST(ParseResponse, JudgesStatusHeadersAndFraming) {
    constexpr std::int64_t kLimit = 9;
    const std::pair<std::string, const char*> cases[] = {
        {"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok", "200|Content-Length=2;|ok|whole"},
        {"x 100 \r\ncontent-length:0\r\n\r\nrest", "100|content-length=0;||whole"},
        {"H 999 x\r\nAccept-Charset: 3\r\n\r\nabc", "999|Accept-Charset=3;|abc|"},
        {"H 200 x\r\nContent-Length: 9\r\n\r\n123456789", "200|Content-Length=9;|123456789|whole"},
        {"H 200 x\r\nContent-Length: 10\r\n\r\n1234567890", "200|Content-Length=10;|1234567890|"},
        {"H 200 x\r\nContent-Length: 1 \r\n\r\na", "200|Content-Length=1 ;|a|"},
        {"H 200 x\r\nContent-Length: 1\r\nContent-Length: 9\r\n\r\nab",
         "200|Content-Length=1;Content-Length=9;|a|whole"},
        {"H 200 x\r\nContent-Length:\r\nContent-Length: 1\r\n\r\nab",
         "200|Content-Length=;Content-Length=1;|ab|"},
        {"H 200 x\r\n\r\n1234567890", "200||1234567890|"},
        {"H 200 x\r\nContent-Length: 5\r\nTRANSFER-ENCODING: gzip,\t Chunked ; "
         "q=1\r\n\r\n1\r\nx\r\n0\r\n\r\n",
         "200|Content-Length=5;TRANSFER-ENCODING=gzip,\t Chunked ; q=1;|x|whole"},
        {"H 200 x\r\nTransfer-Encoding: a;chunked\r\n\r\n0\r\n\r\n",
         "200|Transfer-Encoding=a;chunked;|0\r\n\r\n|"},
        {"H 200 x\r\nTransfer-Encoding: chunked\r\n\r\na\r\n1234567890\r\n0\r\n\r\n",
         "200|Transfer-Encoding=chunked;||"},
        {"H 200 x\r\nTransfer-Encoding: a\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n",
         "200|Transfer-Encoding=a;Transfer-Encoding=chunked;|0\r\n\r\n|"},
        {"H 200 x\r\nnot a header\r\n: v\r\nA b:  c d \r\n\tX: 1:2\r\n\r\n",
         "200|=v;A b=c d ;\tX=1:2;||"},
        {"H 200 x\r\nContent-Length: 0\r\nB: c", "200|Content-Length=0;||"},
        {"HTTP/1.1 200 ", "200|||"}};
    for (const auto& [data, shown] : cases) {
        EXPECT_EQ(parsed(data, kLimit), shown) << data;
    }
    // No second blank, none before the line ends, and so on.
    for (const std::string line :
         {"HTTP/1.1 200\r\nA: b c\r\n", " 200 OK\r\n", "HTTP/1.1  200 OK\r\n",
          "HTTP/1.1 099 OK\r\n", "HTTP/1.1 1000 OK\r\n", "HTTP/1.1 2x0 OK\r\n", ""}) {
        EXPECT_EQ(parsed(line + "Content-Length: 0\r\n\r\n", kLimit), "0|||") << line;
    }
}

TEST(ParseRequest, SplitsTheRequestLine) {
    const std::pair<std::string_view, const char*> cases[] = {
        {"GET /a?b=c?d HTTP/1.1\r\nHost:  h\r\nno\r\n\r\nbody", "GET|/a|b=c?d|Host=h;|body"},
        {"GET /a%20b HTTP/1.1\r\nHost: h", "GET|/a%20b|||"},
        {"POST  /x HTTP/1.1\r\n\r\n", "POST||||"},
        {"", "||||"}};
    for (const auto& [data, shown] : cases) {
        const HttpRequest got = parse_request(data);
        EXPECT_EQ(got.method + "|" + got.path + "|" + got.query + "|" + show(got.headers) + "|" +
                      std::string(got.body.view()),
                  shown);
    }
}

TEST(ParseDigits, StopsBeforeTheMaximumIsPassed) {
    EXPECT_EQ(parse_decimal("00255", 255), 255);
    EXPECT_EQ(parse_decimal("256", 255), -1);
    EXPECT_EQ(parse_decimal("9223372036854775807", INT64_MAX), INT64_MAX);
    EXPECT_EQ(parse_decimal("9223372036854775808", INT64_MAX), -1);
    EXPECT_EQ(parse_hex("7FFFffffFFFFffff", INT64_MAX), INT64_MAX);
    EXPECT_EQ(parse_hex("10", 15), -1);
    EXPECT_EQ(parse_hex("f", 14), -1);
    for (const char* bad : {"", "+1", " 1", "/", ":", "1a"}) EXPECT_EQ(parse_decimal(bad, 99), -1);
    for (const char* bad : {"", "g", "@", "`", "/", ":", "0x1"}) EXPECT_EQ(parse_hex(bad, 99), -1);
}

}  // namespace
}  // namespace quorvane
