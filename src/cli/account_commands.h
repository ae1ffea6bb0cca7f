#pragma once

#include <string_view>

#include "session/origin.h"

/// The commands about the signed-in account.  Each makes one call to the service with `token`,
/// prints one result on standard output and returns the exit status; when the call failed its line
/// has been printed and the status is 1.  A member that is missing or of another type in the
/// service's answer prints as the empty text and fails nothing.
namespace quorvane {

/// Prints the account's canonical e-mail address.
[[nodiscard]] int run_whoami(const ServiceOrigin& origin, std::string_view token);

/// Prints "ID  NAME" for each project, in the service's order.
[[nodiscard]] int run_projects(const ServiceOrigin& origin, std::string_view token);

/// Revokes the token on the service, then removes the credential file.  A file that cannot be
/// removed is status 1 with its own line: the token is worthless by then all the same.
[[nodiscard]] int run_logout(const ServiceOrigin& origin, std::string_view token);

}  // namespace quorvane
