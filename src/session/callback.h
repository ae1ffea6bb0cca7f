#pragma once

#include <optional>
#include <string>
#include <string_view>

/// What the browser says when it comes back from the sign-in page; no I/O here.
namespace quorvane {

/// The raw value of the first query parameter `name`: what stands between "name=" at the start of
/// the query or after a "&", and the next "&" or the end.  Nothing is percent-decoded.  Empty when
/// there is none.
[[nodiscard]] std::string_view query_parameter(std::string_view query, std::string_view name);

/// Judges the bytes of one request to the login listener.  It is the callback that is waited for
/// when its head arrived whole, its method is "GET", its path "/callback", its "state" parameter
/// is not empty and equals `state`, and its "request" parameter equals `request_identifier`; the
/// result is then its "code" parameter, empty when missing.  Anything else gives nothing.
[[nodiscard]] std::optional<std::string> judge_callback(std::string_view bytes,
                                                        std::string_view state,
                                                        std::string_view request_identifier);

}  // namespace quorvane
