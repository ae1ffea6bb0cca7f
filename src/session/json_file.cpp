#include "session/json_file.h"

#include "json/parser.h"
#include "support/files.h"

namespace quorvane {

JsonValue read_json_object(std::string_view path) {
    JsonParseResult parsed = parse_json(
        read_whole_file(path, kApplicationJsonLimits.max_input_bytes), kApplicationJsonLimits);
    if (!parsed.ok || !parsed.value.view().is_object()) return json_null();
    return std::move(parsed.value);
}

}  // namespace quorvane
