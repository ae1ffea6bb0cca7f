#include "http/message.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

TEST(SerializeRequest, AddsOnlyWhatIsMissing) {
    HttpRequest query = make_request("PUT", "/p", ByteBuffer::copy_of("\xC3\xA9"), {{"A", ""}});
    query.query = "a=b";
    EXPECT_EQ(
        serialize_request(query, "h:1").view(),
        "PUT /p?a=b HTTP/1.1\r\nA: \r\nHost: h:1\r\nContent-Length: 2\r\nConnection: close\r\n\r\n"
        "\xC3\xA9");
    const HttpRequest own =
        make_post("/", ByteBuffer::copy_of("x"),
                  {{"content-LENGTH", "9"}, {"host", "me"}, {"Connection", "keep-alive"}});
    EXPECT_EQ(
        serialize_request(own, "h:1").view(),
        "POST / HTTP/1.1\r\ncontent-LENGTH: 9\r\nhost: me\r\nConnection: keep-alive\r\n\r\nx");
}

TEST(SerializeResponse, AddsOnlyWhatIsMissing) {
    EXPECT_EQ(serialize_response(make_text_response("ok")).view(),
              "HTTP/1.1 200 OK\r\nContent-Type: text/plain; charset=utf-8\r\n"
              "Content-Length: 2\r\nConnection: close\r\n\r\nok");
    const HttpResponse switching = {.status = 101, .headers = {}, .body = {}};
    EXPECT_EQ(serialize_response(switching).view(), "HTTP/1.1 101 Switching Protocols\r\n\r\n");
    const HttpResponse own = {
        .status = 418, .headers = {{"CONNECTION", "x"}, {"content-length", "7"}}, .body = {}};
    EXPECT_EQ(serialize_response_head(own),
              "HTTP/1.1 418 Unknown Status\r\nCONNECTION: x\r\ncontent-length: 7\r\n");
}

}  // namespace
}  // namespace quorvane
