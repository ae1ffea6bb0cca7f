#include "json/parser.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "json/writer.h"
#include "rows.h"

namespace quorvane {
namespace {

// The error of a parse as "OFFSET CODE: MESSAGE", nothing when there is none.
std::string error_of(std::string_view input, const JsonLimits& limits = {}) {
    const JsonParseResult got = parse_json(input, limits);
    const std::string offset = got.ok ? "" : std::to_string(got.error.offset) + " ";
    return offset + std::string(got.error.code) + (got.ok ? "" : ": ") +
           std::string(got.error.message);
}

TEST(ParseJson, ReportsTheFirstFaultAndItsPlace) {
    const std::pair<std::string_view, const char*> cases[] = {
        {"[1, ", "4 unexpected_end: expected JSON value"},
        {"[1", "2 unexpected_end: unterminated JSON array"},
        {"{ ", "2 unexpected_end: unterminated JSON object"},
        {"\"ab", "3 unexpected_end: unterminated JSON string"},
        {"\"\\", "2 unexpected_end: unterminated JSON escape"},
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
        {"-012345678901234567", "0 invalid_number: invalid JSON number"},
        {R"({"a":{"b":1},"\u0061" x)", "21 duplicate_key: duplicate JSON object key"}};
    expect_rows(cases, [](std::string_view input) { return error_of(input); });
}

TEST(ParseJson, HoldsEveryLimitExactly) {
    const std::string deep = "depth_limit: JSON nesting exceeds configured limit";
    const std::string many = "node_limit: JSON node count exceeds configured limit";
    const std::string wide = "node_limit: JSON object member count exceeds configured limit";
    const std::string text = "string_limit: JSON string exceeds configured limit";
    const std::string size = "input_limit: JSON input exceeds configured byte limit";
    const std::string open = "unexpected_end: unterminated JSON array";
    // As many nodes as bytes, the last of which is filled: the sanitizers watch the block's end.
    const std::string nodes = std::string(63, '[') + "1";
    // The limits, what keeps within them and what does not; the error.
    using Input = std::tuple<JsonLimits, std::string_view, std::string_view>;
    const std::pair<Input, std::string> cases[] = {
        {{{.max_input_bytes = 4}, "1234", "\n\xFF\n45"}, "4 " + size},
        {{{.max_depth = 2}, "[[]]", "[[1]]"}, "2 " + deep},
        {{{.max_depth = 1}, "{}", R"({"a" : x)"}, "7 " + deep},
        {{{.max_depth = 1}, "[]", "[ "}, "2 " + deep},
        {{{.max_depth = 64}, "1", nodes}, "64 " + open},
        {{{.max_nodes = 4}, R"({"a":[1,{}]})", R"({"a":[1,{}, x]})"}, "12 " + many},
        {{{.max_nodes = 1}, "[]", "["}, "1 " + many},
        {{{.max_string_bytes = 4}, "\"a\\n\xC3\xA9\"", "\"abc\xC3\xA9\""}, "4 " + text},
        {{{.max_string_bytes = 4}, R"("ab\u00E9")", R"("abc\u00E9")"}, "4 " + text},
        {{{.max_string_bytes = 4}, "\"1234\"", "\"\\n1234\n"}, "6 " + text},
        {{{.max_string_bytes = 1}, R"({"a":1})", R"({"ab":1})"}, "3 " + text},
        {{{.max_object_members = 1}, R"({"a":{"a":1}})", R"({"a":1,"a":2})"}, "10 " + wide}};
    expect_rows(cases, [](const Input& input) {
        const auto& [limits, accepted, refused] = input;
        return error_of(accepted, limits) + error_of(refused, limits);
    });
}

TEST(ParseJson, RefusesLimitsOutsideTheirRanges) {
    const JsonLimits highest = {16'777'216, 256, 1'000'000, 16'777'216, 100'000};
    EXPECT_EQ(error_of("0", highest), "");
    for (const auto limit :
         {&JsonLimits::max_input_bytes, &JsonLimits::max_depth, &JsonLimits::max_nodes,
          &JsonLimits::max_string_bytes, &JsonLimits::max_object_members}) {
        for (const std::int64_t value : {std::int64_t{0}, highest.*limit + 1}) {
            JsonLimits limits = highest;
            limits.*limit = value;
            EXPECT_EQ(error_of("x", limits), "0 input_limit: invalid JSON parser limits");
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

std::string compact(JsonView value) { return std::string(write_json(value).view()); }

JsonValue parsed(std::string_view text) { return parse_json(text).value; }

TEST(JsonNumber, KeepsItsTextAndItsRange) {
    const JsonValue all = json_array(
        json_values(json_number_text("-0"), json_integer(INT64_MIN), parsed("9223372036854775807"),
                    parsed("9223372036854775808"), json_number_text("1234567890123456.50E+0007")));
    std::string shown;
    for (const auto& [key, value] : all.view().items()) {
        const JsonNumber number = value.number();
        shown.append(number.text).append(number.is_integer ? " is " : " ");
        shown.append(number.fits ? std::to_string(number.integer) + "\n" : "\n");
    }
    EXPECT_EQ(shown,
              "-0 is 0\n-9223372036854775808 is -9223372036854775808\n9223372036854775807 is "
              "9223372036854775807\n9223372036854775808 is \n1234567890123456.50E+0007 \n");
}

TEST(JsonView, AnswersEveryQuestionOfEveryKind) {
    const JsonValue all = parsed(R"([null, "s", 7, true, [], {"k": [1, 2]}])");
    int expected = 0;
    for (const auto& [key, element] : all.view().items()) {
        const JsonKind kind = element.kind();
        EXPECT_EQ(static_cast<int>(kind), expected++);
        EXPECT_EQ(element.text().empty(), kind != JsonKind::kString);
        EXPECT_EQ(element.integer() == 7, kind == JsonKind::kNumber);
        EXPECT_EQ(element.boolean(), kind == JsonKind::kBoolean);
        EXPECT_EQ(json_member(element, "k").size(), element.is_object() ? 2 : 0);
    }
    const JsonValue refused = json_array(
        json_values(json_number_text("1 "), json_string("\xC0\x80"), json_borrow(JsonView()),
                    json_object({"\xFF"}, json_values(json_null())), json_object({"k"}, {})));
    EXPECT_EQ(compact(refused) + compact(JsonView()), "[null,null,null,null,null]null");
}

TEST(JsonValue, ComposesAndTakesApart) {
    const JsonValue inner = parsed(R"({"id": 1, "list": [1, {"x": "\n"}], "id ": 2, "last": {}})");
    constexpr std::string_view kLeftOut[] = {"id", "id ", "absent"};
    const JsonValue value = json_object(
        {"p", "config", "", "t"},
        json_values(json_string("\"q\""), json_without_members(inner, kLeftOut),
                    json_array(json_values(json_bool(true), json_array({}))), json_integer(5)));
    EXPECT_EQ(compact(value),
              R"({"p":"\"q\"","config":{"list":[1,{"x":"\n"}],"last":{}},"":[true,[]],"t":5})");
    EXPECT_EQ(write_pretty_json(value).view(),
              "{\n  \"p\": \"\\\"q\\\"\",\n  \"config\": {\n    \"list\": [\n      1,\n      {\n"
              "        \"x\": \"\\n\"\n      }\n    ],\n    \"last\": {}\n  },\n"
              "  \"\": [\n    true,\n    []\n  ],\n  \"t\": 5\n}");
    EXPECT_EQ(json_get_string(value, "p"), "\"q\"");
    EXPECT_EQ(json_get_string(value, "t"), "");
    JsonValue again = json_array(json_values(json_borrow(json_member(value, "config"))));
    again = json_object({"k", "id"}, json_values(std::move(again), parsed("[0,1,2,3,4,5,6,7]")));
    EXPECT_EQ(compact(again),
              R"({"k":[{"list":[1,{"x":"\n"}],"last":{}}],"id":[0,1,2,3,4,5,6,7]})");
    EXPECT_EQ(compact(json_without_members(json_member(again, "k"), kLeftOut)), "{}");
}

}  // namespace
}  // namespace quorvane
