#pragma once

#include <string>

#include "json/value.h"
#include "session/origin.h"

/// The credential file: one for each origin text, holding the object that the sign-in returned.
///
/// It lies in "quorvane/" below $XDG_CONFIG_HOME, or below $HOME/.config when that variable is
/// absent (set but empty counts as present, an absent HOME as empty).  Its name is the lower-case
/// hex SHA-256 digest of the origin's text, and ".json"; two spellings of one origin therefore
/// keep two files, and a person can be signed in to several deployments at once.
namespace quorvane {

/// What a credential file holds: the object that the sign-in returned, stored whole.  The client
/// itself relies on one member, the string "token".
using CredentialStore = JsonValue;

/// The client's folder, ending in a slash.
[[nodiscard]] std::string config_directory();

[[nodiscard]] std::string credential_path(const ServiceOrigin& origin);

/// The stored object, or a null value when nobody is signed in: the file is missing, unreadable,
/// not JSON within the application limits, or not an object.
[[nodiscard]] CredentialStore load_credentials(const ServiceOrigin& origin);

/// Replaces the file atomically; false leaves the old one untouched.
[[nodiscard]] bool save_credentials(const ServiceOrigin& origin, JsonView credentials);

/// False when nothing could be removed, which includes a file that is no longer there.
[[nodiscard]] bool delete_credentials(const ServiceOrigin& origin);

}  // namespace quorvane
