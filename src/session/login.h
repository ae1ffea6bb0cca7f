#pragma once

#include "session/origin.h"

namespace quorvane {

struct LoginOptions {
    bool open_browser = true;  ///< Start the desktop's opener with the URL that is printed.
    unsigned user_umask = 0;   ///< The mask that the user had, for the opener.
};

/// Signs the user in through the browser (RFC 8252 7.3: a redirect to the loopback interface; RFC
/// 7636: a verifier that only this process knows) and stores the object that the service returns as
/// the origin's credential file.  Prints the URL, waits up to five minutes, answers the browser,
/// and prints either who is signed in or the reason of the failure.  Returns the exit status.
[[nodiscard]] int run_login(const ServiceOrigin& origin, const LoginOptions& options);

}  // namespace quorvane
