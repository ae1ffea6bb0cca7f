#include "http/chunked.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

TEST(DecodeChunked, JudgesFraming) {
    const struct {
        const char* name;
        std::string_view data;
        std::int64_t limit;
        const char* body;
        std::int64_t consumed;
        bool complete;
        bool error;
    } cases[] = {
        {"extension is dropped", "2;x=1\r\nok\r\n0\r\n\r\n", 64, "ok", 16, true, false},
        {"bytes after the end stay", "1\r\nx\r\n0\r\n\r\nGET", 64, "x", 11, true, false},
        {"sizes in any case, zeros before", "000A\r\n0123456789\r\na\r\n0123456789\r\n00\r\n\r\n",
         64, "01234567890123456789", 39, true, false},
        {"line ends inside the data", "4\r\n\r\n\r\n\r\n0\r\n\r\n", 64, "\r\n\r\n", 14, true,
         false},
        {"trailer lines are skipped", "0\r\nA: b\r\n\rc\r\n\r\n", 64, "", 15, true, false},
        {"nothing", "", 64, "", 0, false, false},
        {"data not closed by CR LF", "2\r\nokXY", 64, "", 0, false, true},
        {"data closed by LF CR", "2\r\nok\n\r", 64, "", 0, false, true},
        {"empty size is not the end", "\r\n\r\n", 64, "", 0, false, true},
        {"blank before the extension", "2 ;x\r\nok\r\n", 64, "", 0, false, true},
        {"sign", "+2\r\nok\r\n", 64, "", 0, false, true},
        {"prefix", "0x2\r\nok\r\n", 64, "", 0, false, true},
        {"line feed alone ends no line", "2\nok\r\n0\r\n\r\n", 64, "", 0, false, true},
        {"body exactly at the limit", "2\r\nok\r\n0\r\n\r\n", 2, "ok", 12, true, false},
        {"second chunk over the limit", "1\r\no\r\n2\r\nk!\r\n", 2, "o", 0, false, true},
        {"seventeen digits", "fffffffffffffffff\r\n", INT64_MAX, "", 0, false, true},
        {"the largest size waits", "7fffffffffffffff\r\nx", INT64_MAX, "", 0, false, false},
        {"limit of nothing", "0\r\n\r\n", 0, "", 5, true, false},
        {"negative limit", "0\r\n\r\n", -1, "", 0, false, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const ChunkedDecode got = decode_chunked(c.data, c.limit);
        EXPECT_EQ(got.body, c.body);
        EXPECT_EQ(got.consumed, c.consumed);
        EXPECT_EQ(got.complete, c.complete);
        EXPECT_EQ(got.error, c.error);
        ByteBuffer in_place = ByteBuffer::copy_of(c.data);
        EXPECT_EQ(decode_chunked_in_place(in_place, c.limit), c.complete);
        EXPECT_EQ(in_place.view(), c.body);
    }
    EXPECT_TRUE(
        decode_chunked("100000\r\n" + std::string(1'048'576, 'x') + "\r\n0\r\n\r\n").complete);
    EXPECT_TRUE(decode_chunked("100001\r\n").error);
}

TEST(DecodeChunked, EveryProperPrefixWantsMore) {
    const std::string_view whole = "3;a=b\r\nabc\r\n1\r\n\n\r\n0;\r\nT: x\r\n\r\n";
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const std::vector<char> exact(whole.begin(), whole.begin() + static_cast<long>(size));
        const ChunkedDecode got = decode_chunked({exact.data(), exact.size()});
        EXPECT_FALSE(got.complete || got.error) << size;
        EXPECT_EQ(got.body, size < 12 ? "" : size < 18 ? "abc" : "abc\n") << size;
    }
    EXPECT_TRUE(decode_chunked(whole).complete);
}

}  // namespace
}  // namespace quorvane
