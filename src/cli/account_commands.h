#pragma once

#include "cli/command_call.h"

/// The commands about the signed-in account.  All but `run_login_command` call the service once;
/// when that fails, it has printed the reason.  A member of the response that is missing or of
/// another type prints as the empty text and is no failure.
namespace quorvane {

/// Signs in through the browser (session/login.h).
[[nodiscard]] int run_login_command(const CommandCall& call);

/// Prints the account's canonical e-mail address.
[[nodiscard]] int run_whoami(const CommandCall& call);

/// Prints "ID  NAME" for each project, in the service's order.
[[nodiscard]] int run_projects(const CommandCall& call);

/// Revokes the token on the service, then removes the credential file.  When that cannot be
/// removed, a line says so and the status is 1, although the token is worthless by then.
[[nodiscard]] int run_logout(const CommandCall& call);

}  // namespace quorvane
