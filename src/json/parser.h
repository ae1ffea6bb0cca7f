#pragma once

#include <cstdint>
#include <string_view>

#include "json/value.h"
#include "support/bytes.h"

/// The JSON parser: RFC 8259 over strict UTF-8, with limits, for bytes from outside.
namespace quorvane {

/// What an input may hold.  A value outside its range makes every parse fail.
struct JsonLimits {
    std::int64_t max_input_bytes = 1'048'576;   ///< 1 to 16777216
    std::int64_t max_depth = 64;                ///< 1 to 256; a value that holds nothing has 1.
    std::int64_t max_nodes = 100'000;           ///< 1 to 1000000; values, without keys.
    std::int64_t max_string_bytes = 1'048'576;  ///< 1 to 16777216; decoded, keys too.
    std::int64_t max_object_members = 10'000;   ///< 1 to 100000
    bool reject_duplicate_keys = true;          ///< Else all are kept, in order.
};

/// For everything the program reads: service responses and stored files.
inline constexpr JsonLimits kApplicationJsonLimits = {
    .max_input_bytes = 8'388'608,
    .max_depth = 64,
    .max_nodes = 1'000'000,
    .max_string_bytes = 8'388'608,
    .max_object_members = 100'000,
    .reject_duplicate_keys = true,
};

/// Why an input is refused, and where: the first error in input order.  Both texts are constants.
///
/// | code               | message                                                             |
/// |--------------------|---------------------------------------------------------------------|
/// | "input_limit"      | "invalid JSON parser limits" (at 0),                                 |
/// |                    | "JSON input exceeds configured byte limit" (at the limit)            |
/// | "invalid_unicode"  | "JSON input is not valid UTF-8" (at the bad sequence, before all     |
/// |                    | that follows), "invalid JSON Unicode escape" (at the byte that is    |
/// |                    | no digit), "unexpected JSON low surrogate", "invalid JSON surrogate  |
/// |                    | pair" (at the escape), "missing JSON low surrogate" (after the high  |
/// |                    | one)                                                                 |
/// | "trailing_input"   | "trailing input after JSON value"                                    |
/// | "depth_limit"      | "JSON nesting exceeds configured limit"                              |
/// | "node_limit"       | "JSON node count exceeds configured limit",                          |
/// |                    | "JSON object member count exceeds configured limit" (after the key)  |
/// | "unexpected_end"   | "expected JSON value", "unterminated JSON array", "unterminated JSON |
/// |                    | object", "unterminated JSON escape", "unterminated JSON string"      |
/// | "unexpected_token" | "unexpected token in JSON input", "expected comma or closing         |
/// |                    | bracket", "trailing comma in JSON array", "JSON object key must be a |
/// |                    | string", "expected colon after JSON object key", "expected comma or  |
/// |                    | closing brace", "trailing comma in JSON object", "unescaped control  |
/// |                    | byte in JSON string"                                                 |
/// | "invalid_escape"   | "invalid JSON string escape" (at the byte after the backslash)       |
/// | "invalid_number"   | "invalid JSON number" (at its first byte)                            |
/// | "string_limit"     | "JSON string exceeds configured limit" (at the character or escape   |
/// |                    | that does not fit)                                                   |
/// | "duplicate_key"    | "duplicate JSON object key" (after the key)                          |
///
/// Elsewhere the place is that of the offending byte, or the end of the input.
struct JsonError {
    std::string_view code;
    std::string_view message;
    std::int64_t offset = 0;  ///< In bytes from 0.
    std::int64_t line = 0;    ///< From 1; a line feed ends a line.
    std::int64_t column = 0;  ///< From 1, in bytes.
};

struct JsonParseResult {
    bool ok = false;
    JsonValue value;  ///< Null unless `ok`.
    JsonError error;  ///< Empty when `ok`.
};

/// Parses a copy of `input`.
[[nodiscard]] JsonParseResult parse_json(std::string_view input, const JsonLimits& limits = {});

/// Parses `input` and keeps it as part of the value: texts without escapes stay where they are.
[[nodiscard]] JsonParseResult parse_json(ByteBuffer input, const JsonLimits& limits = {});

}  // namespace quorvane
