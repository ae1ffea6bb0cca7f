#include "json/parser.h"

#include <gtest/gtest.h>

#include <string>

namespace quorvane {
namespace {

// The error of a parse as "OFFSET CODE: MESSAGE", nothing when there is none.
std::string error_of(std::string_view input, const JsonLimits& limits = {}) {
    const JsonParseResult got = parse_json(input, limits);
    if (got.ok) return "";
    return std::to_string(got.error.offset)
        .append(" ")
        .append(got.error.code)
        .append(": ")
        .append(got.error.message);
}

TEST(ParseJson, ReportsTheFirstFaultAndItsPlace) {
    const std::pair<std::string_view, const char*> cases[] = {
        {"[1, ", "4 unexpected_end: expected JSON value"},
        {"[1", "2 unexpected_end: unterminated JSON array"},
        {"{ ", "2 unexpected_end: unterminated JSON object"},
        {"\"ab", "3 unexpected_end: unterminated JSON string"},
        {"\"\\", "2 unexpected_end: unterminated JSON escape"},
        {"\xEF\xBB\xBF{}", "0 unexpected_token: unexpected token in JSON input"},
        {"[tru]", "1 unexpected_token: unexpected token in JSON input"},
        {"[1 2]", "3 unexpected_token: expected comma or closing bracket"},
        {"[1, ]", "4 unexpected_token: trailing comma in JSON array"},
        {"{1:2}", "1 unexpected_token: JSON object key must be a string"},
        {R"({"a" 1})", "5 unexpected_token: expected colon after JSON object key"},
        {R"({"a":1])", "6 unexpected_token: expected comma or closing brace"},
        {R"({"a":1, })", "8 unexpected_token: trailing comma in JSON object"},
        {"\"a\tb\"", "2 unexpected_token: unescaped control byte in JSON string"},
        {R"("\x")", "2 invalid_escape: invalid JSON string escape"},
        {R"("\u12)", "5 invalid_unicode: invalid JSON Unicode escape"},
        {R"("\uDC00")", "1 invalid_unicode: unexpected JSON low surrogate"},
        {R"("\uD83D\n1234")", "7 invalid_unicode: missing JSON low surrogate"},
        {R"("\uD83D\uD83D")", "7 invalid_unicode: invalid JSON surrogate pair"},
        {"[1,\"\xC0\x80\", oops", "4 invalid_unicode: JSON input is not valid UTF-8"},
        {"1 2", "2 trailing_input: trailing input after JSON value"},
        {"[-01]", "1 invalid_number: invalid JSON number"},
        {"-012345678901234567", "0 invalid_number: invalid JSON number"},
        {R"({"a":{"b":1},"\u0061" x)", "21 duplicate_key: duplicate JSON object key"}};
    for (const auto& [input, error] : cases) EXPECT_EQ(error_of(input), error);
}

TEST(ParseJson, HoldsEveryLimitExactly) {
    const std::string deep = "depth_limit: JSON nesting exceeds configured limit";
    const std::string many = "node_limit: JSON node count exceeds configured limit";
    const std::string wide = "node_limit: JSON object member count exceeds configured limit";
    const std::string text = "string_limit: JSON string exceeds configured limit";
    const std::string size = "input_limit: JSON input exceeds configured byte limit";
    const std::string open = "unexpected_end: unterminated JSON array";
    const std::string tower(256, '[');
    // As many nodes as bytes, the last of which is filled: the sanitizers watch the block's end.
    const std::string nodes = std::string(63, '[') + "1";
    const struct {
        JsonLimits limits;
        std::string_view accepted;
        std::string_view refused;
        std::string error;
    } cases[] = {{{.max_input_bytes = 4}, "1234", "\n\xFF\n45", "4 " + size},
                 {{.max_depth = 2}, "[[]]", "[[1]]", "2 " + deep},
                 {{.max_depth = 1}, "{}", R"({"a" : x)", "7 " + deep},
                 {{.max_depth = 1}, "[]", "[ ", "2 " + deep},
                 {{.max_depth = 256}, "[]", tower, "256 " + deep},
                 {{.max_depth = 64}, "1", nodes, "64 " + open},
                 {{.max_nodes = 4}, R"({"a":[1,{}]})", R"({"a":[1,{}, x]})", "12 " + many},
                 {{.max_nodes = 1}, "[]", "[", "1 " + many},
                 {{.max_string_bytes = 4}, "\"a\\n\xC3\xA9\"", "\"abc\xC3\xA9\"", "4 " + text},
                 {{.max_string_bytes = 4}, R"("ab\u00E9")", R"("abc\u00E9")", "4 " + text},
                 {{.max_string_bytes = 4}, "\"1234\"", "\"\\n1234\n", "6 " + text},
                 {{.max_string_bytes = 1}, R"({"a":1})", R"({"ab":1})", "3 " + text},
                 {{.max_object_members = 1}, R"({"a":{"a":1}})", R"({"a":1,"a":2})", "10 " + wide}};
    for (const auto& c : cases) {
        EXPECT_EQ(error_of(c.accepted, c.limits), "") << c.accepted;
        EXPECT_EQ(error_of(c.refused, c.limits), c.error) << c.refused;
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
        for (const std::int64_t value : {std::int64_t{0}, highest, highest + 1}) {
            limits.*limit = value;
            EXPECT_EQ(error_of("0", limits),
                      value == highest ? "" : "0 input_limit: invalid JSON parser limits");
        }
    }
}

TEST(ParseJson, FindsTheDuplicateAmongManyKeys) {
    for (const int count : {2, 16, 17, 33, 100'000}) {
        std::string members = "{";
        for (int i = 0; i < count - 1; ++i) {
            members.append("\"key ").append(std::to_string(i)).append(R"(":{"key 0":[1]},)");
        }
        EXPECT_EQ(error_of(members + "\"x\":1}", kApplicationJsonLimits), "") << count;
        for (const int again : {0, count / 2 - 1, count - 2}) {
            const std::string input = members + "\"key " + std::to_string(again) + "\"";
            EXPECT_EQ(error_of(input, kApplicationJsonLimits),
                      std::to_string(input.size()) + " duplicate_key: duplicate JSON object key");
        }
    }
}

}  // namespace
}  // namespace quorvane
