#include "support/bytes.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <string>

#include "rows.h"
#include "support/files.h"
#include "support/text.h"

namespace quorvane {
namespace {

TEST(ByteBuffer, KeepsItsBytesWhileItGrows) {
    const std::size_t before = memory_in_use();
    {
        ByteBuffer buffer;
        const std::string piece(10'007, 'b');
        for (int i = 0; i < 2'000; ++i) buffer.append(piece);
        buffer.drop_front(7);
        const ByteBuffer moved = std::move(buffer);
        EXPECT_EQ(std::count(moved.view().begin(), moved.view().end(), 'b'), 2'000 * 10'007 - 7);
        EXPECT_LT(memory_in_use() - before, 40U << 20);
    }
    EXPECT_EQ(memory_in_use(), before);
    EXPECT_LT(mallinfo2().hblkhd, 1U << 20) << "bytes of large blocks that were never freed";
    release(allocate(0));
}

TEST(ParentDirectory, CutsTheLastName) {
    const std::pair<std::string_view, const char*> cases[] = {
        {"", "."}, {"name", "."}, {"/name", "/"}, {"///", "/"}, {"a//b", "a/"}, {"a/b///", "a"}};
    expect_rows(cases, parent_directory);
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
