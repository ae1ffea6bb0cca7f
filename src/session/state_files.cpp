#include "session/state_files.h"

#include "json/parser.h"
#include "json/writer.h"
#include "session/encoding.h"
#include "session/sha256.h"
#include "support/atomic_write.h"
#include "support/files.h"
#include "support/process.h"

namespace quorvane {

std::optional<JsonValue> read_json_object(std::string_view path) {
    const std::int64_t max_bytes = kApplicationJsonLimits.max_input_bytes;
    JsonParseResult parsed = parse_json(read_whole_file(path, max_bytes), kApplicationJsonLimits);
    if (!parsed.ok || !parsed.value.view().is_object()) return std::nullopt;
    return std::move(parsed.value);
}

std::string config_directory() {
    if (const auto base = lookup_env("XDG_CONFIG_HOME")) return std::string(*base) + "/quorvane/";
    return std::string(lookup_env("HOME").value_or("")) + "/.config/quorvane/";
}

std::string credential_path(const ServiceOrigin& origin) {
    return config_directory() + hex_lower(sha256(origin.text)) + ".json";
}

std::optional<CredentialStore> load_credentials(const ServiceOrigin& origin) {
    return read_json_object(credential_path(origin));
}

bool save_credentials(const ServiceOrigin& origin, JsonView credentials) {
    return write_file_atomic(credential_path(origin), write_json(credentials).view());
}

bool delete_credentials(const ServiceOrigin& origin) {
    return remove_path(credential_path(origin));
}

}  // namespace quorvane
