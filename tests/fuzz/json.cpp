// What was parsed is written and parsed again with the same result, in both layouts; a text is
// judged alike as a view, as a buffer and under tighter limits; a fault has a place in the input.
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
    check(!error.code.empty() && error.offset >= 0 && error.offset <= std::ssize(input));
    const std::string_view before = input.substr(0, static_cast<std::size_t>(error.offset));
    check(error.line == 1 + std::count(before.begin(), before.end(), '\n'));
    check(error.column == std::ssize(before.substr(before.rfind('\n') + 1)) + 1);
}

// The compact text of the input, empty when it is refused.
std::string check_parse(std::string_view input, JsonLimits limits) {
    const JsonParseResult viewed = parse_json(input, limits);
    const JsonParseResult adopted = parse_json(ByteBuffer::copy_of(input), limits);
    check(viewed.ok == adopted.ok && viewed.error.message == adopted.error.message);
    check(viewed.error.offset == adopted.error.offset);
    std::string text(write_json(adopted.value).view());
    check(write_json(viewed.value).view() == text);
    if (!viewed.ok) {
        check(text == "null");
        check_place(viewed.error, input);
        return "";
    }
    limits.max_input_bytes = 16'777'216;  // The indented text is longer than the input.
    for (const auto write : {quorvane::write_json, quorvane::write_pretty_json}) {
        const JsonParseResult again = parse_json(write(viewed.value), limits);
        check(again.ok && write_json(again.value).view() == text);
    }
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input = as_text(data, size);
    const std::string wide = check_parse(input, quorvane::kApplicationJsonLimits);
    const std::string tight = check_parse(input, kTight);
    check(tight.empty() || wide.empty() || tight == wide);
    return 0;
}
