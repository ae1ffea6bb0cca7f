#pragma once

#include <optional>
#include <string>
#include <string_view>

/// The request that the browser makes when it returns from the sign-in page; no I/O.
namespace quorvane {

/// Judges the bytes of one request to the login listener.  The expected callback has a complete
/// head, the method "GET", the path "/callback", a "state" parameter that is not empty and equals
/// `state`, and a "request" parameter that equals `request_identifier`.  Its "code" parameter is
/// the result, empty when missing; any other request gives nothing.
[[nodiscard]] std::optional<std::string> judge_callback(std::string_view bytes,
                                                        std::string_view state,
                                                        std::string_view request_identifier);

}  // namespace quorvane
