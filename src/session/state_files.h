#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "json/value.h"
#include "session/origin.h"

/// The JSON files that the client keeps: reading any of them, and the credential files.
///
/// There is one credential file for each origin text.  It is in "quorvane/" below $XDG_CONFIG_HOME,
/// or below $HOME/.config when that variable is absent (an empty one counts as present, an absent
/// HOME as empty).  Its name is the lower-case hex SHA-256 digest of the origin's text, and
/// ".json".  Two spellings of one origin therefore have two files, and a person can be signed in to
/// several deployments at once.
namespace quorvane {

/// The JSON object in the file at `path`, or nothing when the file is missing, not a regular
/// file, unreadable, not JSON within the application limits, or no object.  A file above the limit
/// for input is not read at all, so its size costs nothing.  Nothing is printed; the caller says
/// what a missing object means.
[[nodiscard]] std::optional<JsonValue> read_json_object(std::string_view path);

/// The object that the sign-in returned, stored member for member.  The client itself relies on one
/// member, the string "token".
using CredentialStore = JsonValue;

/// The client's directory, ending in a slash.
[[nodiscard]] std::string config_directory();

[[nodiscard]] std::string credential_path(const ServiceOrigin& origin);

/// The stored object, or nothing when nobody is signed in, that is, when `read_json_object`
/// finds none.
[[nodiscard]] std::optional<CredentialStore> load_credentials(const ServiceOrigin& origin);

/// Replaces the file atomically; false leaves the old one untouched.
[[nodiscard]] bool save_credentials(const ServiceOrigin& origin, JsonView credentials);

/// False when nothing could be removed, for instance because there is no file any more.
[[nodiscard]] bool delete_credentials(const ServiceOrigin& origin);

}  // namespace quorvane
