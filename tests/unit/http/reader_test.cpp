#include "http/reader.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

std::string show(const std::vector<HttpHeader>& headers) {
    std::string text;
    for (const HttpHeader& header : headers) text += header.name + "=" + header.value + ";";
    return text;
}

// A buffer that ends where its block ends, for the address sanitizer.
ByteBuffer exactly(std::string_view bytes) {
    ByteBuffer buffer;
    const std::size_t pad = bytes.size() < 64 ? 64 - bytes.size() : 0;  // The smallest block.
    static_cast<void>(buffer.spare(pad + bytes.size()));
    buffer.commit(pad);
    buffer.append(bytes);
    buffer.drop_front(pad);
    return buffer;
}

TEST(ParseResponse, JudgesStatusHeadersAndFraming) {
    const struct {
        const char* name;
        std::string_view data;
        std::int64_t limit;
        std::int64_t status;  // 0: not ok.
        const char* headers;
        const char* body;
        bool complete;
    } cases[] = {
        {"length", "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok", 9, 200, "Content-Length=2;",
         "ok", true},
        {"length cut", "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\no", 9, 200, "Content-Length=2;",
         "o", false},
        {"bytes beyond the length", "x 100 \r\ncontent-length:0\r\n\r\nrest", 9, 100,
         "content-length=0;", "", true},
        {"length at the limit", "H 999 x\r\nContent-Length: 3\r\n\r\nabc", 3, 999,
         "Content-Length=3;", "abc", true},
        {"length over the limit", "H 200 x\r\nContent-Length: 4\r\n\r\nabcd", 3, 200,
         "Content-Length=4;", "abcd", false},
        {"length with sign", "H 200 x\r\nContent-Length: +1\r\n\r\na", 9, 200, "Content-Length=+1;",
         "a", false},
        {"length with blank behind", "H 200 x\r\nContent-Length: 1 \r\n\r\na", 9, 200,
         "Content-Length=1 ;", "a", false},
        {"tab before the length", "H 200 x\r\nContent-Length:\t1\r\n\r\na", 9, 200,
         "Content-Length=\t1;", "a", false},
        {"first length counts", "H 200 x\r\nContent-Length: 1\r\nContent-Length: 9\r\n\r\nab", 9,
         200, "Content-Length=1;Content-Length=9;", "a", true},
        {"empty first length is none", "H 200 x\r\nContent-Length:\r\nContent-Length: 1\r\n\r\nab",
         9, 200, "Content-Length=;Content-Length=1;", "ab", false},
        {"until the close", "H 200 x\r\n\r\nabc", 2, 200, "", "abc", false},
        {"chunks win over length",
         "H 200 x\r\nContent-Length: 5\r\nTRANSFER-ENCODING: gzip, "
         "Chunked\r\n\r\n1\r\nx\r\n0\r\n\r\n",
         9, 200, "Content-Length=5;TRANSFER-ENCODING=gzip, Chunked;", "x", true},
        {"chunks cut", "H 200 x\r\nTransfer-Encoding: chunked\r\n\r\n1\r\nx\r\n2\r\ny", 9, 200,
         "Transfer-Encoding=chunked;", "x", false},
        {"chunks over the limit",
         "H 200 x\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nxy\r\n0\r\n\r\n", 1, 200,
         "Transfer-Encoding=chunked;", "", false},
        {"first coding counts",
         "H 200 x\r\nTransfer-Encoding: a\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", 9, 200,
         "Transfer-Encoding=a;Transfer-Encoding=chunked;", "0\r\n\r\n", false},
        {"lines without colon, blanks, empty name",
         "H 200 x\r\nnot a header\r\n: v\r\nA b:  c d \r\n\tX: 1:2\r\n\r\n", 9, 200,
         "=v;A b=c d ;\tX=1:2;", "", false},
        {"head not ended", "H 200 x\r\nContent-Length: 0\r\nB: c", 9, 200, "Content-Length=0;", "",
         false},
        {"line feeds end nothing", "H 200 x\nContent-Length: 0\n\n", 9, 200, "", "", false},
        {"status line alone", "HTTP/1.1 200 ", 9, 200, "", "", false},
        {"no second blank", "HTTP/1.1 200\r\nContent-Length: 0\r\n\r\n", 9, 0, "", "", false},
        {"blank in the next line", "HTTP/1.1 200\r\nContent-Length: 0 0\r\n\r\n", 9, 0, "", "",
         false},
        {"blank first", " 200 OK\r\nContent-Length: 0\r\n\r\n", 9, 0, "", "", false},
        {"two blanks", "HTTP/1.1  200 OK\r\nContent-Length: 0\r\n\r\n", 9, 0, "", "", false},
        {"status 99", "HTTP/1.1 099 OK\r\nContent-Length: 0\r\n\r\n", 9, 0, "", "", false},
        {"status 1000", "HTTP/1.1 1000 OK\r\nContent-Length: 0\r\n\r\n", 9, 0, "", "", false},
        {"status of letters", "HTTP/1.1 2x0 OK\r\nContent-Length: 0\r\n\r\n", 9, 0, "", "", false},
        {"empty line first", "\r\nHTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", 9, 0, "", "",
         false},
        {"nothing", "", 9, 0, "", "", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const ResponseParse got = parse_response(ByteBuffer::copy_of(c.data), c.limit);
        EXPECT_EQ(got.ok, c.status != 0);
        EXPECT_EQ(got.response.status, c.status);
        EXPECT_EQ(show(got.response.headers), c.headers);
        EXPECT_EQ(got.response.body.view(), c.body);
        EXPECT_EQ(got.complete, c.complete);
        // However the bytes come, the scanner knows the same, and at the same moment.
        for (const std::size_t step : {1U, 2U, 3U, 7U}) {
            ResponseFraming framing(c.limit);
            for (std::size_t size = 0; size <= c.data.size(); size += step) {
                const ResponseParse part = parse_response(exactly(c.data.substr(0, size)), c.limit);
                framing.advance(exactly(c.data.substr(0, size)).view());
                EXPECT_EQ(framing.whole(), part.complete) << step << " " << size;
                if (!part.complete) continue;
                EXPECT_EQ(framing.body_bytes(), std::ssize(part.response.body.view()));
            }
        }
    }
}

TEST(ParseRequest, SplitsTheRequestLine) {
    const struct {
        std::string_view data;
        const char* shown;
    } cases[] = {
        {"GET /a?b=c?d HTTP/1.1\r\nHost:  h\r\nno\r\n\r\nbody", "GET|/a|b=c?d|Host=h;|body"},
        {"GET /a%20b HTTP/1.1\r\nHost: h", "GET|/a%20b|||"},
        {"POST  /x HTTP/1.1\r\n\r\n", "POST||||"},
        {"GET", "GET||||"},
        {"", "||||"},
    };
    for (const auto& c : cases) {
        const HttpRequest got = parse_request(c.data);
        EXPECT_EQ(got.method + "|" + got.path + "|" + got.query + "|" + show(got.headers) + "|" +
                      std::string(got.body.view()),
                  c.shown);
    }
}

TEST(HeaderHasToken, ComparesElementsWithoutParameters) {
    EXPECT_TRUE(header_has_token("chunked", "chunked"));
    EXPECT_TRUE(header_has_token("gzip,\t CHUNKED ; q=1 ,x", "chunked"));
    EXPECT_TRUE(header_has_token("a;chunked=1,chunked", "chunked"));
    EXPECT_FALSE(header_has_token("a;chunked, chunkedx, x chunked, chunk", "chunked"));
    EXPECT_FALSE(header_has_token("", "chunked"));
}

TEST(ParseDigits, StopsBeforeTheMaximumIsPassed) {
    EXPECT_EQ(parse_decimal("00255", 255), 255);
    EXPECT_EQ(parse_decimal("256", 255), -1);
    EXPECT_EQ(parse_decimal("9223372036854775807", INT64_MAX), INT64_MAX);
    EXPECT_EQ(parse_decimal("9223372036854775808", INT64_MAX), -1);
    EXPECT_EQ(parse_decimal("5", 3), -1);
    EXPECT_EQ(parse_decimal("0", -1), -1);
    EXPECT_EQ(parse_hex("7FFFffffFFFFffff", INT64_MAX), INT64_MAX);
    EXPECT_EQ(parse_hex("10", 15), -1);
    EXPECT_EQ(parse_hex("f", 14), -1);
    for (const char* bad : {"", "-1", "+1", " 1", "1 ", "1a"})
        EXPECT_EQ(parse_decimal(bad, 99), -1);
    for (const char* bad : {"", "g", "@", "`", "/", ":", "0x1"}) EXPECT_EQ(parse_hex(bad, 99), -1);
}

}  // namespace
}  // namespace quorvane
