#include "json/parser.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "json/writer.h"

namespace quorvane {
namespace {

using std::string_view_literals::operator""sv;

struct ErrorCase {
    std::string_view input;
    const char* code;
    const char* message;
    std::int64_t offset;
};

std::string repeat(std::string_view text, std::size_t count) {
    std::string all;
    while (count-- > 0) all += text;
    return all;
}

void expect_error(const JsonParseResult& got, const ErrorCase& expected) {
    SCOPED_TRACE(expected.input.substr(0, 60));
    EXPECT_FALSE(got.ok);
    EXPECT_TRUE(got.value.view().is_null());
    EXPECT_EQ(got.error.code, expected.code);
    EXPECT_EQ(got.error.message, expected.message);
    EXPECT_EQ(got.error.offset, expected.offset);
}

TEST(ParseJson, ReportsTheFirstFaultAndItsPlace) {
    const ErrorCase cases[] = {
        {"", "unexpected_end", "expected JSON value", 0},
        {" \t\r\n", "unexpected_end", "expected JSON value", 4},
        {"[", "unexpected_end", "expected JSON value", 1},
        {"[1, ", "unexpected_end", "expected JSON value", 4},
        {R"({"a": )", "unexpected_end", "expected JSON value", 6},
        {"[1", "unexpected_end", "unterminated JSON array", 2},
        {"{ ", "unexpected_end", "unterminated JSON object", 2},
        {R"({"a":1)", "unexpected_end", "unterminated JSON object", 6},
        {R"({"a":1,)", "unexpected_end", "unterminated JSON object", 7},
        {"\"ab", "unexpected_end", "unterminated JSON string", 3},
        {"\"\\", "unexpected_end", "unterminated JSON escape", 2},
        {"\xEF\xBB\xBF{}", "unexpected_token", "unexpected token in JSON input", 0},
        {".5", "unexpected_token", "unexpected token in JSON input", 0},
        {"[tru]", "unexpected_token", "unexpected token in JSON input", 1},
        {"nul", "unexpected_token", "unexpected token in JSON input", 0},
        {"[\0]"sv, "unexpected_token", "unexpected token in JSON input", 1},
        {"[,1]", "unexpected_token", "unexpected token in JSON input", 1},
        {"\v1", "unexpected_token", "unexpected token in JSON input", 0},
        {"[1 2]", "unexpected_token", "expected comma or closing bracket", 3},
        {"[1}", "unexpected_token", "expected comma or closing bracket", 2},
        {"[1\0"sv, "unexpected_token", "expected comma or closing bracket", 2},
        {"[1, ]", "unexpected_token", "trailing comma in JSON array", 4},
        {"{1:2}", "unexpected_token", "JSON object key must be a string", 1},
        {R"({"a":1,,})", "unexpected_token", "JSON object key must be a string", 7},
        {R"({"a" 1})", "unexpected_token", "expected colon after JSON object key", 5},
        {R"({"a")", "unexpected_token", "expected colon after JSON object key", 4},
        {R"({"a":1])", "unexpected_token", "expected comma or closing brace", 6},
        {R"({"a":1, })", "unexpected_token", "trailing comma in JSON object", 8},
        {"\"a\tb\"", "unexpected_token", "unescaped control byte in JSON string", 2},
        {"\"a\0\""sv, "unexpected_token", "unescaped control byte in JSON string", 2},
        {R"("\x")", "invalid_escape", "invalid JSON string escape", 2},
        {"\"\\\xC3\xA9\"", "invalid_escape", "invalid JSON string escape", 2},
        {R"("\u12G4")", "invalid_unicode", "invalid JSON Unicode escape", 5},
        {R"("\u12)", "invalid_unicode", "invalid JSON Unicode escape", 5},
        {R"("\uDC00")", "invalid_unicode", "unexpected JSON low surrogate", 1},
        {R"("\uD83D")", "invalid_unicode", "missing JSON low surrogate", 7},
        {R"("\uD83D\n1234")", "invalid_unicode", "missing JSON low surrogate", 7},
        {R"("\uD83D\uDE0)", "invalid_unicode", "missing JSON low surrogate", 7},
        {R"("\uD83D\uD83D")", "invalid_unicode", "invalid JSON surrogate pair", 7},
        {R"("\uD83D\uDE0z")", "invalid_unicode", "invalid JSON Unicode escape", 12},
        {"[1,\"\xC0\x80\", oops", "invalid_unicode", "JSON input is not valid UTF-8", 4},
        {"1 2", "trailing_input", "trailing input after JSON value", 2},
        {"truex", "trailing_input", "trailing input after JSON value", 4},
        {"1\0"sv, "trailing_input", "trailing input after JSON value", 1},
        {"[+1]", "invalid_number", "invalid JSON number", 1},
        {" 01", "invalid_number", "invalid JSON number", 1},
        {"-", "invalid_number", "invalid JSON number", 0},
        {"1.", "invalid_number", "invalid JSON number", 0},
        {"1e+", "invalid_number", "invalid JSON number", 0},
        {"12-3", "invalid_number", "invalid JSON number", 0},
        {"-012345678901234567", "invalid_number", "invalid JSON number", 0},
        {R"({"a":1,"a":2})", "duplicate_key", "duplicate JSON object key", 10},
        {R"({"a":{"b":1},"\u0061" x)", "duplicate_key", "duplicate JSON object key", 21},
        {R"({"":1,"":2})", "duplicate_key", "duplicate JSON object key", 8},
    };
    for (const ErrorCase& c : cases) {
        expect_error(parse_json(c.input), c);
        expect_error(parse_json(ByteBuffer::copy_of(c.input)), c);
        // The same further down.
        ErrorCase below = c;
        below.offset += 2;
        expect_error(parse_json(" \n" + std::string(c.input)), below);
    }
}

TEST(ParseJson, CountsLinesAndColumnsInBytes) {
    const struct {
        std::string_view input;
        std::int64_t line;
        std::int64_t column;
    } cases[] = {{"x", 1, 1},
                 {"\n x", 2, 2},
                 {"\r\n\n\xC3\xA9", 3, 1},
                 {"[\n\"\xC3\xA9\",\r\n  \"\xE2\x82\xAC\" x]", 3, 9},
                 {"[1\n", 2, 1}};
    for (const auto& c : cases) {
        const JsonParseResult got = parse_json(c.input);
        EXPECT_EQ(got.error.line, c.line) << c.input;
        EXPECT_EQ(got.error.column, c.column) << c.input;
    }
}

TEST(ParseJson, HoldsEveryLimitExactly) {
    const struct {
        const char* name;
        JsonLimits limits;
        std::string input;
        const char* message;  // Empty: accepted.
        std::int64_t offset;
    } cases[] = {
        {"input at the limit", {.max_input_bytes = 4}, "1234", "", 0},
        {"input beyond it, at the limit, before its UTF-8",
         {.max_input_bytes = 4},
         "\n\xFF\n45",
         "JSON input exceeds configured byte limit",
         4},
        {"depth counts containers", {.max_depth = 2}, "[[]]", "", 0},
        {"depth counts scalars",
         {.max_depth = 2},
         "[[1]]",
         "JSON nesting exceeds configured limit",
         2},
        {"depth before the end",
         {.max_depth = 1},
         "[ ",
         "JSON nesting exceeds configured limit",
         2},
        {"depth in objects, behind the colon",
         {.max_depth = 1},
         R"({"a" : x)",
         "JSON nesting exceeds configured limit",
         7},
        {"deepest", {.max_depth = 256}, repeat("[", 256) + repeat("]", 256), "", 0},
        {"application depth", kApplicationJsonLimits, repeat("[", 64) + "1",
         "JSON nesting exceeds configured limit", 64},
        {"nodes without keys", {.max_nodes = 4}, R"({"a":[1,{}]})", "", 0},
        {"nodes beyond",
         {.max_nodes = 3},
         R"({"a":[1, {}]})",
         "JSON node count exceeds configured limit",
         9},
        {"nodes before the end",
         {.max_nodes = 1},
         "[",
         "JSON node count exceeds configured limit",
         1},
        {"string at the limit", {.max_string_bytes = 4}, "\"a\\n\xC3\xA9\"", "", 0},
        {"character beyond",
         {.max_string_bytes = 4},
         "\"abc\xC3\xA9\"",
         "JSON string exceeds configured limit",
         4},
        {"escape beyond",
         {.max_string_bytes = 4},
         R"("abc\u00E9")",
         "JSON string exceeds configured limit",
         4},
        {"before a later fault",
         {.max_string_bytes = 4},
         "\"\\n1234\n",
         "JSON string exceeds configured limit",
         6},
        {"behind an earlier fault",
         {.max_string_bytes = 4},
         "\"1234\n56",
         "unescaped control byte in JSON string",
         5},
        {"key beyond",
         {.max_string_bytes = 1},
         R"({"ab":1})",
         "JSON string exceeds configured limit",
         3},
        {"members at the limit", {.max_object_members = 2}, R"({"a":{"c":1},"b":2})", "", 0},
        {"members beyond, before the duplicate",
         {.max_object_members = 1},
         R"({"a":1,"a":2})",
         "JSON object member count exceeds configured limit",
         10},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const JsonParseResult got = parse_json(c.input, c.limits);
        EXPECT_EQ(got.error.message, c.message);
        EXPECT_EQ(got.error.offset, c.offset);
        EXPECT_EQ(got.ok, got.error.code.empty());
    }
    EXPECT_EQ(parse_json("\n\n345", {.max_input_bytes = 4}).error.line, 3);
}

TEST(ParseJson, RefusesLimitsOutsideTheirRanges) {
    const struct {
        std::int64_t JsonLimits::*limit;
        std::int64_t highest;
    } ranges[] = {{&JsonLimits::max_input_bytes, 16'777'216},
                  {&JsonLimits::max_depth, 256},
                  {&JsonLimits::max_nodes, 1'000'000},
                  {&JsonLimits::max_string_bytes, 16'777'216},
                  {&JsonLimits::max_object_members, 100'000}};
    for (const auto& range : ranges) {
        for (const std::int64_t value : {std::int64_t{0}, range.highest + 1, range.highest}) {
            JsonLimits limits;
            limits.*range.limit = value;
            const JsonParseResult got = parse_json("\"\"", limits);
            EXPECT_EQ(got.ok, value == range.highest);
            if (!got.ok) {
                expect_error(got, {"", "input_limit", "invalid JSON parser limits", 0});
                EXPECT_EQ(got.error.column, 1);
            }
        }
    }
}

TEST(ParseJson, DecodesStrings) {
    const struct {
        std::string_view input;
        std::string_view text;
    } cases[] = {
        {R"("")", ""},
        {R"("\"\\\/\b\f\n\r\t")", "\"\\/\b\f\n\r\t"},
        {R"("\u0000\u007f\u0080\u07FF\u0800\uFFFF")",
         "\0\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF"sv},
        {R"("\uD83D\ude00\uD800\uDC00\uDBFF\uDFFF")",
         "\xF0\x9F\x98\x80\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
        {"\"0123456789abcde\\n0123456789abcdef\x7F\"", "0123456789abcde\n0123456789abcdef\x7F"},
    };
    for (const auto& c : cases) EXPECT_EQ(parse_json(c.input).value.view().text(), c.text);
}

// Each prefix in a buffer of exactly its size, so that the address sanitizer sees one byte more.
TEST(ParseJson, RefusesEveryPrefix) {
    const std::string document =
        R"( {"a":[1,-2.5e+3,true,false,null,"x\n\ud83d\ude00"],"key of some length" : {"b":[]},)"
        "\n\"\xC3\xA9\":\"long enough to be looked at in more than one step\"}";
    ASSERT_TRUE(parse_json(document).ok);
    for (std::size_t size = 0; size < document.size(); ++size) {
        const std::unique_ptr<char[]> exact(new char[size]);
        std::memcpy(exact.get(), document.data(), size);
        const JsonParseResult got = parse_json(std::string_view(exact.get(), size));
        ASSERT_FALSE(got.ok) << size;
        ASSERT_LE(got.error.offset, static_cast<std::int64_t>(size));
    }
}

TEST(ParseJson, FindsTheDuplicateAmongManyKeys) {
    for (const int count : {2, 15, 16, 17, 18, 33, 100'000}) {
        std::string members;
        for (int i = 0; i < count - 1; ++i) {
            members += "\"key " + std::to_string(i) + "\":{\"key 0\":[" + std::to_string(i) + "]},";
        }
        JsonLimits limits = kApplicationJsonLimits;
        EXPECT_TRUE(parse_json("{" + members + "\"other\":1}", limits).ok) << count;
        for (const int again : {0, count / 2 - 1, count - 2}) {
            const std::string last = "\"key " + std::to_string(again) + "\"";
            const std::string input = "{" + members + last + ":1}";
            const auto offset = static_cast<std::int64_t>(1 + members.size() + last.size());
            expect_error(parse_json(input, limits),
                         {input, "duplicate_key", "duplicate JSON object key", offset});
            limits.reject_duplicate_keys = false;
            const JsonParseResult kept = parse_json(input, limits);
            EXPECT_EQ(kept.value.view().size(), static_cast<std::size_t>(count));
            EXPECT_EQ(write_json(kept.value).view(), input);
            limits.reject_duplicate_keys = true;
        }
    }
}

}  // namespace
}  // namespace quorvane
