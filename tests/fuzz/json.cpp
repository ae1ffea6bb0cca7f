// What was parsed is written and parsed again with the same result, in both layouts; a text is
// judged alike as a view, as a buffer and under tighter limits; a fault has a place in the input; a
// value without its last byte is refused, unless it is a number.
// Which inputs are refused, and with which words, is the unit tests' table.

#include <algorithm>
#include <string>

#include "json/parser.h"
#include "json/writer.h"
#include "target.h"

using quorvane::ByteBuffer;
using quorvane::JsonLimits;
using quorvane::JsonParseResult;

namespace {

// Limits of which most inputs come near one.
constexpr JsonLimits kTight = {.max_input_bytes = 4000,
                               .max_depth = 4,
                               .max_nodes = 40,
                               .max_string_bytes = 7,
                               .max_object_members = 18,
                               .reject_duplicate_keys = false};

void check_place(const quorvane::JsonError& error, std::string_view input) {
    check(!error.code.empty() && !error.message.empty());
    check(error.offset >= 0 && error.offset <= std::ssize(input));
    const std::string_view before = input.substr(0, static_cast<std::size_t>(error.offset));
    check(error.line == 1 + std::count(before.begin(), before.end(), '\n'));
    check(error.column == std::ssize(before.substr(before.rfind('\n') + 1)) + 1);
}

// The compact text of a value that survives every way of writing and reading it.
std::string round_trip(const quorvane::JsonValue& value, JsonLimits limits) {
    limits.max_input_bytes = 16'777'216;  // The indented text is longer than the input.
    std::string text(write_json(value).view());
    const JsonParseResult compact = parse_json(std::string_view(text), limits);
    const JsonParseResult indented = parse_json(write_pretty_json(value), limits);
    check(compact.ok && write_json(compact.value).view() == text);
    check(indented.ok && write_json(indented.value).view() == text);
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input = as_text(data, size);
    const JsonParseResult viewed = parse_json(input, quorvane::kApplicationJsonLimits);
    std::string text;
    if (viewed.ok) {
        text = round_trip(viewed.value, quorvane::kApplicationJsonLimits);
        const std::string_view open = input.substr(0, input.find_last_not_of(" \t\r\n"));
        check(viewed.value.view().kind() == quorvane::JsonKind::kNumber ||
              !quorvane::parse_json(open).ok);
    }
    for (const JsonLimits& limits : {quorvane::kApplicationJsonLimits, kTight}) {
        const JsonParseResult got = parse_json(input, limits);
        const JsonParseResult adopted = parse_json(ByteBuffer::copy_of(input), limits);
        check(got.ok == adopted.ok && got.error.message == adopted.error.message);
        check(got.error.offset == adopted.error.offset);
        if (!got.ok) {
            check(got.value.view().is_null() && adopted.value.view().is_null());
            check_place(got.error, input);
        } else {
            const std::string again = round_trip(got.value, limits);
            check(write_json(adopted.value).view() == again);
            check(viewed.ok ? again == text : viewed.error.code == "duplicate_key");
        }
    }
    return 0;
}
