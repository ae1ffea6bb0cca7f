#include "http/chunked.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

TEST(DecodeChunked, JudgesFraming) {
    const struct {
        std::string_view data;
        std::int64_t limit;
        std::string expected;  // The body and how many bytes were used, or "error".
    } cases[] = {
        {"2;x=1\r\nok\r\n0\r\n\r\nGET", 2, "ok 16"},
        {"00A\r\n0123456789\r\na\r\n0123456789\r\n00\r\n\r\n", 64, "01234567890123456789 38"},
        {"0\r\nA: b\r\n\rc\r\n\r\n", 64, " 15"},
        {"7fffffffffffffff\r\nx", INT64_MAX, " 0"},
        {"100000\r\n", kDefaultMaxBodyBytes, " 0"},
        {"100001\r\n", kDefaultMaxBodyBytes, "error"},
        {"1\r\no\r\n2\r\nk!\r\n", 2, "error"},
        {"2\r\nok\n\r", 64, "error"},
        {"2 ;x\r\nok\r\n", 64, "error"}};
    for (const auto& c : cases) {
        const ChunkedDecode got = decode_chunked(ByteBuffer::copy_of(c.data), c.limit);
        const std::string body(got.body.view());
        EXPECT_EQ(got.error ? "error" : body + " " + std::to_string(got.consumed), c.expected);
        EXPECT_EQ(got.complete, got.consumed > 0) << c.data;
    }
}

}  // namespace
}  // namespace quorvane
