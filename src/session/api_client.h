#pragma once

#include <optional>
#include <string_view>

#include "json/value.h"
#include "session/origin.h"

namespace quorvane {

/// Posts `body` to the absolute `path` of the service over a connection of its own and returns
/// the JSON object of the response.
///
/// The token is sent in the header "Authorization: Bearer TOKEN"; an empty one is sent as
/// "Bearer ", which the service takes as anonymous.  A connection attempt and any single wait for
/// the peer take 10 s at most; a response has at most 8 MiB, its head included.  Nothing is retried
/// and no redirect is followed.
///
/// On failure one line with the reason has been printed on standard error:
///   - "Cannot reach ORIGIN (HTTP 0, complete=false; detail)": no connection, a request that could
///     not be sent in full, a reset before the response's head was complete, or a wait that ran out
///     before the response was;
///   - the text of the response's "error" member, empty when that is not a string;
///   - "Request failed: HTTP n": any other response that is not an object with a status below 400;
///     n is 0 when the response was empty or had no usable status line.
/// A response that the peer cut short is judged by the part that arrived.
[[nodiscard]] std::optional<JsonValue> call_service(const ServiceOrigin& origin,
                                                    std::string_view path, JsonView body,
                                                    std::string_view token = {});

}  // namespace quorvane
