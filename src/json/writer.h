#pragma once

#include <string_view>

#include "json/value.h"
#include "support/bytes.h"

/// JSON text from values.  Nothing here can fail: every value can be written (json/value.h).
///
/// Strings are written with the two-character escapes \" \\ \b \f \n \r \t, other bytes below
/// 0x20 as \u00 and two lower-case digits, everything else as it is: "/" and 0x7F are never
/// escaped, nor is any character beyond ASCII.  Numbers are written as they were read.  The text
/// has no newline at its end.  An absent value is written as null.  Nesting costs stack, some
/// hundred bytes for each level.
namespace quorvane {

/// The compact text: no blank and no newline outside strings.
[[nodiscard]] ByteBuffer write_json(JsonView value);

/// Appends the compact text.
void append_json(JsonView value, ByteBuffer& out);

/// The layout of files that people read: every element and member on a line of its own, indented
/// by two blanks for each level, ": " behind keys; empty containers stay "{}" and "[]".
[[nodiscard]] ByteBuffer write_indented_json(JsonView value);

/// Appends `text`, which must be valid UTF-8, as a JSON string with its quotes.
void append_json_string(std::string_view text, ByteBuffer& out);

}  // namespace quorvane
