#pragma once

#include <string_view>

#include "session/origin.h"

/// The commands about the signed-in account.  Each calls the service once with `token`, prints its
/// result on standard output and returns the exit status.  When the call fails, it has printed the
/// reason and the status is 1.  A member of the response that is missing or of another type prints
/// as the empty text and is no failure.
namespace quorvane {

/// Prints the account's canonical e-mail address.
[[nodiscard]] int run_whoami(const ServiceOrigin& origin, std::string_view token);

/// Prints "ID  NAME" for each project, in the service's order.
[[nodiscard]] int run_projects(const ServiceOrigin& origin, std::string_view token);

/// Revokes the token on the service, then removes the credential file.  When that cannot be
/// removed, a line says so and the status is 1, although the token is worthless by then.
[[nodiscard]] int run_logout(const ServiceOrigin& origin, std::string_view token);

}  // namespace quorvane
