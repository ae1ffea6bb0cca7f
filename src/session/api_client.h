#pragma once

#include <optional>
#include <string_view>

#include "json/value.h"
#include "session/origin.h"

namespace quorvane {

/// Posts `body` to the absolute `path` of the service over a connection of its own and returns
/// the object that it answered with.
///
/// The token travels in the header "Authorization: Bearer TOKEN"; an empty one is sent as
/// "Bearer ", which the service takes as anonymous.  A connection attempt, or any one wait for the
/// peer, takes 10 s at most; an answer has at most 8 MiB, its head included.  Nothing is retried
/// and no redirect is followed.
///
/// On failure the one line that says why has been printed on standard error:
///   - "Cannot reach ORIGIN (HTTP 0, complete=false; detail)": no connection, a request that could
///     not be sent, or a wait that ran out before the answer was whole;
///   - the text of the answer's "error" member, empty when that is not a string;
///   - "Request failed: HTTP n": any other answer that is not an object with a status below 400; n
///     is 0 when the answer was empty or had no usable status line.
/// An answer that the peer cut short is judged by what arrived.
[[nodiscard]] std::optional<JsonValue> call_service(const ServiceOrigin& origin,
                                                    std::string_view path, JsonView body,
                                                    std::string_view token = {});

}  // namespace quorvane
