#include "http/reader.h"

#include <gtest/gtest.h>

#include "rows.h"

namespace quorvane {
namespace {

std::string show(const std::vector<HttpHeader>& headers) {
    std::string text;
    for (const HttpHeader& header : headers) text += header.name + "=" + header.value + ";";
    return text;
}

// That the scanner knows the same of every part is the fuzz target's.
TEST(ParseResponse, JudgesStatusHeadersAndFraming) {
    const std::pair<std::string, const char*> cases[] = {
        {"x 100 \r\ncontent-length:2\r\n\r\nokay", "100|content-length=2;|ok|whole"},
        {"H 999 x\r\n\r\nopen", "999||open|"},
        {"H 200 x\r\nContent-Length: 3\r\n\r\nbig", "200|Content-Length=3;|big|"},
        {"H 200 x\r\nContent-Length: 1 \r\nContent-Length: 1\r\n\r\nab",
         "200|Content-Length=1 ;Content-Length=1;|ab|"},
        {"H 200 x\r\nContent-Length: 5\r\nTRANSFER-ENCODING: gzip,\t Chunked ; "
         "q=1\r\n\r\n1\r\nx\r\n0\r\n\r\n",
         "200|Content-Length=5;TRANSFER-ENCODING=gzip,\t Chunked ; q=1;|x|whole"},
        {"H 200 x\r\nTransfer-Encoding: a;chunked\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n",
         "200|Transfer-Encoding=a;chunked;Transfer-Encoding=chunked;|0\r\n\r\n|"},
        {"H 200 x\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nbig\r\n0\r\n\r\n",
         "200|Transfer-Encoding=chunked;||"},
        {"H 200 x\r\nnot a header\r\n: v\r\nA b:  c d \r\n\tX: 1:2\r\n\r\n",
         "200|=v;A b=c d ;\tX=1:2;||"},
        {"H 200 x\r\nContent-Length: 0\r\nB: c", "200|Content-Length=0;||"},
        {"HTTP/1.1 200 ", "200|||"}};
    expect_rows(cases, [](std::string_view data) {
        const ResponseParse got = parse_response(ByteBuffer::copy_of(data), 2);
        const HttpResponse& response = got.response;
        return std::to_string(response.status) + "|" + show(response.headers) + "|" +
               std::string(response.body.view()) + (got.complete ? "|whole" : "|");
    });
    for (const std::string line :
         {"H 200\r\nA: b c", " 200 OK", "H  200 OK", "H 099 OK", "H 1000 OK"}) {
        EXPECT_FALSE(parse_response(ByteBuffer::copy_of(line + "\r\n\r\n")).ok) << line;
    }
}

TEST(ParseRequest, SplitsTheRequestLine) {
    const std::pair<std::string_view, const char*> cases[] = {
        {"GET /a?b=c?d HTTP/1.1\r\nHost:  h\r\nno\r\n\r\nbody", "GET|/a|b=c?d|Host=h;|body"},
        {"POST  /x HTTP/1.1\r\n\r\n", "POST||||"}};
    expect_rows(cases, [](std::string_view data) {
        const HttpRequest got = parse_request(data);
        return got.method + "|" + got.path + "|" + got.query + "|" + show(got.headers) + "|" +
               std::string(got.body.view());
    });
}

TEST(DecodeChunked, JudgesFraming) {
    // The data and its limit; the body and how many bytes were used, or "error".
    const std::pair<std::pair<std::string_view, std::int64_t>, std::string> cases[] = {
        {{"2;x=1\r\nok\r\n0\r\n\r\nGET", 2}, "ok 16"},
        {{"00A\r\n0123456789\r\na\r\n0123456789\r\n00\r\n\r\n", 64}, "01234567890123456789 38"},
        {{"0\r\nA: b\r\n\rc\r\n\r\n", 64}, " 15"},
        {{"7fffffffffffffff\r\nx", INT64_MAX}, " 0"},
        {{"100000\r\n", kDefaultMaxBodyBytes}, " 0"},
        {{"100001\r\n", kDefaultMaxBodyBytes}, "error"},
        {{"1\r\no\r\n2\r\nk!\r\n", 2}, "error"},
        {{"2\r\nok\n\r", 64}, "error"},
        {{"2 ;x\r\nok\r\n", 64}, "error"}};
    expect_rows(cases, [](const auto& input) {
        const ChunkedDecode got = decode_chunked(ByteBuffer::copy_of(input.first), input.second);
        EXPECT_EQ(got.complete, got.consumed > 0);
        return got.error ? "error"
                         : std::string(got.body.view()) + " " + std::to_string(got.consumed);
    });
}

}  // namespace
}  // namespace quorvane
