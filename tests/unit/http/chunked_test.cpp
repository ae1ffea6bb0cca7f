#include "http/chunked.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

void expect_chunks(std::string_view data, std::int64_t limit, std::string_view body,
                   std::int64_t consumed, bool error) {
    SCOPED_TRACE(data);
    const ChunkedDecode got = decode_chunked(ByteBuffer::copy_of(data), limit);
    EXPECT_EQ(got.body.view(), body);
    EXPECT_EQ(got.consumed, consumed);
    EXPECT_EQ(got.complete, consumed > 0);
    EXPECT_EQ(got.error, error);
}

TEST(DecodeChunked, JudgesFraming) {
    const struct {
        std::string_view data;
        std::int64_t limit;
        std::string_view body;
        std::int64_t consumed;
    } whole[] = {
        {"2;x=1\r\nok\r\n0\r\n\r\n", 2, "ok", 16},
        {"1\r\nx\r\n0\r\n\r\nGET", 64, "x", 11},
        {"000A\r\n0123456789\r\na\r\n0123456789\r\n00\r\n\r\n", 64, "01234567890123456789", 39},
        {"0\r\nA: b\r\n\rc\r\n\r\n", 64, "", 15},
        {"0\r\n\r\n", 0, "", 5}};
    for (const auto& c : whole) expect_chunks(c.data, c.limit, c.body, c.consumed, false);
    // Data not closed by CR LF, sizes that are none, a line feed alone.
    for (const char* bad : {"2\r\nokXY", "2\r\nok\n\r", "\r\n\r\n", "2 ;x\r\nok\r\n",
                            "+2\r\nok\r\n", "0x2\r\nok\r\n", "2\nok\r\n0\r\n\r\n", "100001\r\n"}) {
        expect_chunks(bad, 1'048'576, "", 0, true);
    }
    expect_chunks("1\r\no\r\n2\r\nk!\r\n", 2, "o", 0, true);
    expect_chunks("fffffffffffffffff\r\n", INT64_MAX, "", 0, true);
    expect_chunks("7fffffffffffffff\r\nx", INT64_MAX, "", 0, false);
    expect_chunks("0\r\n\r\n", -1, "", 0, true);
    const std::string largest(1'048'576, 'x');
    EXPECT_TRUE(
        decode_chunked(ByteBuffer::copy_of("100000\r\n" + largest + "\r\n0\r\n\r\n")).complete);
}

}  // namespace
}  // namespace quorvane
