#pragma once

#include "json/value.h"
#include "support/bytes.h"

/// JSON text from values.  Nothing here can fail: every value can be written (json/value.h).
///
/// Strings are written with the two-character escapes \" \\ \b \f \n \r \t, other bytes below
/// 0x20 as \u00 and two lower-case digits, everything else as it is: "/" and 0x7F are never
/// escaped, nor is any character beyond ASCII.  Numbers are written as they were read.  The text
/// has no line feed at its end.  An absent value is written as null.  Nesting costs stack, some
/// hundred bytes for each level.
namespace quorvane {

/// The compact text: no whitespace outside strings.
[[nodiscard]] ByteBuffer write_json(JsonView value);

/// The layout of files that people read: every element and member on a line of its own, indented
/// by two spaces for each level, ": " after keys; empty containers stay "{}" and "[]".
[[nodiscard]] ByteBuffer write_pretty_json(JsonView value);

}  // namespace quorvane
