#include "session/credentials.h"

#include "json/writer.h"
#include "session/encoding.h"
#include "session/json_file.h"
#include "session/sha256.h"
#include "support/files.h"
#include "support/process.h"

namespace quorvane {
namespace {

std::string base_directory() {
    if (const auto configured = lookup_env("XDG_CONFIG_HOME")) return std::string(*configured);
    return std::string(lookup_env("HOME").value_or("")) + "/.config";
}

}  // namespace

std::string config_directory() { return base_directory() + "/quorvane/"; }

std::string credential_path(const ServiceOrigin& origin) {
    return config_directory() + hex_lower(sha256(origin.text)) + ".json";
}

CredentialStore load_credentials(const ServiceOrigin& origin) {
    return read_json_object(credential_path(origin));
}

bool save_credentials(const ServiceOrigin& origin, JsonView credentials) {
    return write_file_atomic(credential_path(origin), write_json(credentials).view());
}

bool delete_credentials(const ServiceOrigin& origin) {
    return remove_path(credential_path(origin));
}

}  // namespace quorvane
