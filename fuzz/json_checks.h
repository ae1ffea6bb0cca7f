#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "json/parser.h"
#include "json/writer.h"
#include "json_reference.h"

/// What must hold for every input of the JSON parser; a breach ends the program.
namespace quorvane::reference {

inline void require(bool holds, const char* what, std::string_view input) {
    if (holds) return;
    std::fprintf(stderr, "broken: %s, for %zu bytes: %.*s\n", what, input.size(),
                 static_cast<int>(input.size()), input.data());
    std::abort();
}

/// The real parser and writer do what the plain ones do, from a view and from a buffer; what was
/// written is read back as the same, in both layouts, and so is a copy.
inline void check_json(std::string_view input, const JsonLimits& limits) {
    const Outcome expected = read_json(input, limits);
    const JsonParseResult viewed = parse_json(input, limits);
    const JsonParseResult adopted = parse_json(ByteBuffer::copy_of(input), limits);
    for (const JsonParseResult* got : {&viewed, &adopted}) {
        require(got->ok == expected.code.empty(), "verdict", input);
        require(got->error.code == expected.code, "code", input);
        require(got->error.message == expected.message, "message", input);
        require(got->error.offset == expected.offset, "offset", input);
        require(got->error.line == expected.line, "line", input);
        require(got->error.column == expected.column, "column", input);
        require(got->ok || got->value.view().is_null(), "no value beside an error", input);
        if (got->ok) require(write_json(got->value).view() == expected.compact, "text", input);
    }
    if (!viewed.ok) return;
    JsonLimits roomy = limits;  // The indented text is longer than the input.
    roomy.max_input_bytes = 16'777'216;
    const ByteBuffer indented = write_pretty_json(viewed.value);
    const JsonParseResult again = parse_json(indented.view(), roomy);
    require(again.ok, "indented text is read", input);
    require(write_json(again.value).view() == expected.compact, "indented content", input);
    require(indented.view() == indent_json(expected.compact), "indented text", input);
    require(write_json(json_copy(viewed.value)).view() == expected.compact, "copy", input);
}

/// Limits of which most inputs come near one.
inline constexpr JsonLimits kTightJsonLimits = {.max_input_bytes = 4000,
                                                .max_depth = 4,
                                                .max_nodes = 40,
                                                .max_string_bytes = 7,
                                                .max_object_members = 18,
                                                .reject_duplicate_keys = false};

inline void check_json(std::string_view input) {
    check_json(input, kApplicationJsonLimits);
    check_json(input, kTightJsonLimits);
}

}  // namespace quorvane::reference
