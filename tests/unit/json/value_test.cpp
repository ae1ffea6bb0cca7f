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
    const std::pair<std::string, const char*> cases[] = {
        {"-0", " integer 0"},
        {"9223372036854775807", " integer 9223372036854775807"},
        {"9223372036854775808", " integer"},
        {"1234567890123456.50E+0007", ""}};
    for (const auto& [text, kind] : cases) {
        const JsonValue values[] = {json_number_text(text), parsed(text)};
        for (const JsonValue& value : values) {
            const JsonNumber number = value.view().number();
            EXPECT_EQ(std::string(number.text) + (number.is_integer ? " integer" : "") +
                          (number.fits ? " " + std::to_string(number.integer) : ""),
                      text + kind);
            EXPECT_EQ(compact(value), text);
        }
    }
    EXPECT_EQ(compact(json_integer(INT64_MIN)), "-9223372036854775808");
    EXPECT_EQ(json_integer(-7).view().integer(), -7);
}

TEST(JsonView, AnswersEveryQuestionOfEveryKind) {
    const JsonValue all = json_array(json_values(parsed(R"(["s", 7, true, [], {"k": [1, 2]}])"),
                                                 json_number_text("1 "), json_string("\xC0\x80"),
                                                 json_object({"\xFF"}, json_values(json_null()))));
    EXPECT_EQ(compact(all), R"([["s",7,true,[],{"k":[1,2]}],null,null,null])");
    std::string kinds;
    for (const auto& [key, element] : (*all.view().items()).value.items()) {
        const JsonKind kind = element.kind();
        kinds += std::to_string(static_cast<int>(kind));
        EXPECT_EQ(element.text().empty(), kind != JsonKind::kString);
        EXPECT_EQ(element.integer() == 7, kind == JsonKind::kNumber);
        EXPECT_EQ(element.boolean(), kind == JsonKind::kBoolean);
        EXPECT_EQ(json_member(element, "k").size(), element.is_object() ? 2 : 0);
    }
    EXPECT_EQ(kinds + compact(JsonView()) + compact(json_borrow(JsonView())), "12345nullnull");
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
    again = json_object({"k", "id"}, json_values(std::move(again), parsed("[0,1,2,3,4,5,6,7]")));
    EXPECT_EQ(compact(again),
              R"({"k":[{"list":[1,{"x":"\n"}],"last":{}}],"id":[0,1,2,3,4,5,6,7]})");
    EXPECT_EQ(compact(json_without_members(json_member(again, "k"), kLeftOut)), "{}");
}

}  // namespace
}  // namespace quorvane
