#pragma once

#include <string_view>

#include "json/value.h"

namespace quorvane {

/// The JSON object that the file at `path` holds, or a null value: the file is missing, not a
/// regular file, unreadable, not JSON within the application limits, or no object.  A file above
/// the limit for input is not read at all, so its size costs nothing.  Nothing is printed; what a
/// missing object means is for the caller to say.
[[nodiscard]] JsonValue read_json_object(std::string_view path);

}  // namespace quorvane
