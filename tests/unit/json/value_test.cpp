#include "json/value.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "json/parser.h"
#include "json/writer.h"

namespace quorvane {
namespace {

using namespace std::string_view_literals;

std::string compact(JsonView value) { return std::string(write_json(value).view()); }

JsonValue parsed(std::string_view text) { return parse_json(text).value; }

TEST(JsonNumber, KeepsItsTextAndItsRange) {
    const struct {
        std::string_view text;
        std::string_view kind;  // What is_integer and fits say.
        std::int64_t integer;
    } cases[] = {{"-0", "11", 0},
                 {"9223372036854775807", "11", INT64_MAX},
                 {"9223372036854775808", "10", 0},
                 {"1e2", "00", 0},
                 {"1234567890123456.50E+0007", "00", 0}};
    for (const auto& c : cases) {
        const JsonValue values[] = {json_number_text(c.text), parsed(c.text)};
        for (const JsonValue& value : values) {
            const JsonNumber number = value.view().number();
            EXPECT_EQ(number.text, c.text);
            EXPECT_EQ(std::to_string(number.is_integer) + std::to_string(number.fits), c.kind);
            EXPECT_EQ(number.integer, c.integer) << c.text;
            EXPECT_EQ(compact(value), c.text);
        }
    }
    EXPECT_EQ(compact(parsed("[0,1,2,3,4,5,6,7,8,9]")), "[0,1,2,3,4,5,6,7,8,9]");
    EXPECT_EQ(compact(json_integer(INT64_MIN)), "-9223372036854775808");
    EXPECT_EQ(json_integer(-7).view().integer(), -7);
}

TEST(JsonConstructors, RefuseWithNull) {
    for (const std::string_view text :
         {"", "+1", "01", "1.", ".5", "-", "1 ", "1e+", "0x1", "1.5.5"}) {
        EXPECT_TRUE(json_number_text(text).view().is_null()) << text;
    }
    EXPECT_TRUE(json_string("\xC0\x80").view().is_null());
    EXPECT_TRUE(json_object({"\xED\xA0\x80"}, json_values(json_bool(true))).view().is_null());
}

TEST(JsonView, AnswersEveryQuestionOfEveryKind) {
    const JsonValue all = parsed(R"(["s", 7, true, [], {"k": [1, 2]}, null])");
    std::string kinds;
    for (const auto& [key, element] : all.view().items()) {
        const JsonKind kind = element.kind();
        kinds += std::to_string(static_cast<int>(kind));
        EXPECT_EQ(element.text().empty(), kind != JsonKind::kString);
        EXPECT_EQ(element.integer() == 7, kind == JsonKind::kNumber);
        EXPECT_EQ(element.boolean(), kind == JsonKind::kBoolean);
        EXPECT_EQ(json_member(element, "k").size(), element.is_object() ? 2 : 0);
    }
    EXPECT_EQ(kinds + compact(JsonView()) + compact(json_borrow(JsonView())), "123450nullnull");
}

TEST(JsonValue, ComposesAndTakesApart) {
    const JsonValue inner = parsed(R"({"id": 1, "list": [1, {"x": "\n"}], "id ": 2, "last": {}})");
    constexpr std::array kLeftOut = {"id"sv, "id "sv, "absent"sv};
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

    // Borrowed, put in, and borrowed again.
    JsonValue again = json_array(json_values(json_borrow(json_member(value, "config"))));
    EXPECT_EQ(compact(again), R"([{"list":[1,{"x":"\n"}],"last":{}}])");
    again = json_object({"k", "id"}, json_values(std::move(again), json_null()));
    EXPECT_EQ(compact(json_without_members(again, kLeftOut)),
              R"({"k":[{"list":[1,{"x":"\n"}],"last":{}}]})");
    const JsonValue array = parsed("[1]");
    EXPECT_EQ(compact(json_without_members(array, kLeftOut)), "{}");
}

}  // namespace
}  // namespace quorvane
