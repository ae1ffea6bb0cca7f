#pragma once

#include "session/origin.h"

namespace quorvane {

/// Signs the user in through the browser (RFC 8252 7.3: a redirect to the loopback interface; RFC
/// 7636: a verifier that only this process knows) and stores the object that the service returns as
/// the origin's credential file.  Prints the URL, waits up to five minutes, responds to the
/// browser, and prints either who is signed in or the reason of the failure.  With `open_browser`
/// the desktop's opener is started with the URL, under the user's own file-creation mask.  Returns
/// the exit status.
[[nodiscard]] int run_login(const ServiceOrigin& origin, bool open_browser, unsigned user_umask);

}  // namespace quorvane
