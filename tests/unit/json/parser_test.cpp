#include "json/parser.h"

#include <gtest/gtest.h>

#include <string>

#include "json/writer.h"

namespace quorvane {
namespace {

struct Fault {
    const char* code;
    const char* message;
};

void expect_error(std::string_view input, const JsonLimits& limits, Fault fault,
                  std::size_t offset) {
    const JsonParseResult results[] = {parse_json(input, limits),
                                       parse_json(ByteBuffer::copy_of(input), limits)};
    for (const JsonParseResult& got : results) {
        SCOPED_TRACE(input.substr(0, 60));
        EXPECT_TRUE(!got.ok && got.value.view().is_null());
        EXPECT_EQ(got.error.code, fault.code);
        EXPECT_EQ(got.error.message, fault.message);
        EXPECT_EQ(got.error.offset, static_cast<std::int64_t>(offset));
    }
}

TEST(ParseJson, ReportsTheFirstFaultAndItsPlace) {
    const struct {
        std::string_view input;
        Fault fault;
        std::size_t offset;
    } cases[] = {
        {"", {"unexpected_end", "expected JSON value"}, 0},
        {"[1, ", {"unexpected_end", "expected JSON value"}, 4},
        {"[1", {"unexpected_end", "unterminated JSON array"}, 2},
        {"{ ", {"unexpected_end", "unterminated JSON object"}, 2},
        {"\"ab", {"unexpected_end", "unterminated JSON string"}, 3},
        {"\"\\", {"unexpected_end", "unterminated JSON escape"}, 2},
        {"\xEF\xBB\xBF{}", {"unexpected_token", "unexpected token in JSON input"}, 0},
        {"[tru]", {"unexpected_token", "unexpected token in JSON input"}, 1},
        {"[.5]", {"unexpected_token", "unexpected token in JSON input"}, 1},
        {"[1 2]", {"unexpected_token", "expected comma or closing bracket"}, 3},
        {"[1, ]", {"unexpected_token", "trailing comma in JSON array"}, 4},
        {"{1:2}", {"unexpected_token", "JSON object key must be a string"}, 1},
        {R"({"a" 1})", {"unexpected_token", "expected colon after JSON object key"}, 5},
        {R"({"a":1])", {"unexpected_token", "expected comma or closing brace"}, 6},
        {R"({"a":1, })", {"unexpected_token", "trailing comma in JSON object"}, 8},
        {"\"a\tb\"", {"unexpected_token", "unescaped control byte in JSON string"}, 2},
        {R"("\x")", {"invalid_escape", "invalid JSON string escape"}, 2},
        {R"("\u12G4")", {"invalid_unicode", "invalid JSON Unicode escape"}, 5},
        {R"("\u12)", {"invalid_unicode", "invalid JSON Unicode escape"}, 5},
        {R"("\uDC00")", {"invalid_unicode", "unexpected JSON low surrogate"}, 1},
        {R"("\uD83D\n1234")", {"invalid_unicode", "missing JSON low surrogate"}, 7},
        {R"("\uD83D\uD83D")", {"invalid_unicode", "invalid JSON surrogate pair"}, 7},
        {"[1,\"\xC0\x80\", oops", {"invalid_unicode", "JSON input is not valid UTF-8"}, 4},
        {"1 2", {"trailing_input", "trailing input after JSON value"}, 2},
        {"[+1]", {"invalid_number", "invalid JSON number"}, 1},
        {"[-01]", {"invalid_number", "invalid JSON number"}, 1},
        {"-012345678901234567", {"invalid_number", "invalid JSON number"}, 0},
        {R"({"a":1,"a":2})", {"duplicate_key", "duplicate JSON object key"}, 10},
        {R"({"a":{"b":1},"\u0061" x)", {"duplicate_key", "duplicate JSON object key"}, 21}};
    for (const auto& c : cases) {
        expect_error(c.input, {}, c.fault, c.offset);
        expect_error("\n " + std::string(c.input), {}, c.fault, c.offset + 2);
    }
}

TEST(ParseJson, HoldsEveryLimitExactly) {
    constexpr Fault kLong = {"input_limit", "JSON input exceeds configured byte limit"};
    constexpr Fault kDeep = {"depth_limit", "JSON nesting exceeds configured limit"};
    constexpr Fault kNodes = {"node_limit", "JSON node count exceeds configured limit"};
    constexpr Fault kText = {"string_limit", "JSON string exceeds configured limit"};
    constexpr Fault kWide = {"node_limit", "JSON object member count exceeds configured limit"};
    const std::string tower(256, '[');
    // As many nodes as bytes, the last of which is filled: the sanitizers watch the block's end.
    const std::string nodes = std::string(63, '[') + "1";
    const struct {
        JsonLimits limits;
        std::string_view accepted;
        std::string_view refused;
        Fault fault;
        std::size_t offset;
    } cases[] = {{{.max_input_bytes = 4}, "1234", "\n\xFF\n45", kLong, 4},
                 {{.max_depth = 2}, "[[]]", "[[1]]", kDeep, 2},
                 {{.max_depth = 1}, "{}", R"({"a" : x)", kDeep, 7},
                 {{.max_depth = 1}, "[]", "[ ", kDeep, 2},
                 {{.max_depth = 256}, "[]", tower, kDeep, 256},
                 {{.max_depth = 64}, "1", nodes, {"unexpected_end", "unterminated JSON array"}, 64},
                 {{.max_nodes = 4}, R"({"a":[1,{}]})", R"({"a":[1,{}, x]})", kNodes, 12},
                 {{.max_nodes = 1}, "[]", "[", kNodes, 1},
                 {{.max_string_bytes = 4}, "\"a\\n\xC3\xA9\"", "\"abc\xC3\xA9\"", kText, 4},
                 {{.max_string_bytes = 4}, R"("ab\u00E9")", R"("abc\u00E9")", kText, 4},
                 {{.max_string_bytes = 4}, "\"1234\"", "\"\\n1234\n", kText, 6},
                 {{.max_string_bytes = 1}, R"({"a":1})", R"({"ab":1})", kText, 3},
                 {{.max_object_members = 1}, R"({"a":{"a":1}})", R"({"a":1,"a":2})", kWide, 10}};
    for (const auto& c : cases) {
        EXPECT_TRUE(parse_json(c.accepted, c.limits).ok) << c.accepted;
        expect_error(c.refused, c.limits, c.fault, c.offset);
    }
}

TEST(ParseJson, RefusesLimitsOutsideTheirRanges) {
    const std::pair<std::int64_t JsonLimits::*, std::int64_t> ranges[] = {
        {&JsonLimits::max_input_bytes, 16'777'216},
        {&JsonLimits::max_depth, 256},
        {&JsonLimits::max_nodes, 1'000'000},
        {&JsonLimits::max_string_bytes, 16'777'216},
        {&JsonLimits::max_object_members, 100'000}};
    for (const auto& [limit, highest] : ranges) {
        JsonLimits limits;
        limits.*limit = highest;
        EXPECT_TRUE(parse_json("\"\"", limits).ok);
        for (const std::int64_t value : {std::int64_t{0}, highest + 1}) {
            limits.*limit = value;
            expect_error("x", limits, {"input_limit", "invalid JSON parser limits"}, 0);
        }
    }
}

TEST(ParseJson, FindsTheDuplicateAmongManyKeys) {
    JsonLimits keeping = kApplicationJsonLimits;
    keeping.reject_duplicate_keys = false;
    for (const int count : {2, 16, 17, 33, 100'000}) {
        std::string members = "{";
        for (int i = 0; i < count - 1; ++i) {
            members.append("\"key ").append(std::to_string(i)).append(R"(":{"key 0":[1]},)");
        }
        EXPECT_TRUE(parse_json(members + "\"x\":1}", kApplicationJsonLimits).ok) << count;
        for (const int again : {0, count / 2 - 1, count - 2}) {
            const std::string input = members + "\"key " + std::to_string(again) + "\":1}";
            expect_error(input, kApplicationJsonLimits,
                         {"duplicate_key", "duplicate JSON object key"}, input.size() - 3);
            EXPECT_EQ(write_json(parse_json(input, keeping).value).view(), input);
        }
    }
}

}  // namespace
}  // namespace quorvane
