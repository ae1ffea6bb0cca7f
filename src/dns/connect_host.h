#pragma once

#include <cstdint>
#include <string_view>

#include "net/socket.h"

namespace quorvane {

/// Connects to an IPv4 or IPv6 literal as it is, else to the first of the name's resolved
/// addresses that answers, in the resolver's order.  `port` is 1 to kMaxPort, `timeout_ms` 1 to
/// kMaxSocketWaitMs; the limit holds for each query and for each address tried.
///
/// When no address answers, the error is that of the last attempt.  When there was no address to
/// try, it is the resolver's error, -ETIMEDOUT if no response came, or -EHOSTUNREACH if it held no
/// address.
[[nodiscard]] ConnectResult connect_host(std::string_view host, std::int32_t port,
                                         std::int64_t timeout_ms = 5'000);

}  // namespace quorvane
