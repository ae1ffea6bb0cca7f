#include "dns/connect_host.h"

#include <cerrno>
#include <string>

#include "dns/resolver.h"
#include "net/address.h"

namespace quorvane {
namespace {

ConnectResult connect_literal(std::string_view address, std::int32_t port,
                              std::int64_t timeout_ms) {
    return parse_ipv4(address) ? connect_ipv4(address, port, timeout_ms)
                               : connect_ipv6(address, port, timeout_ms);
}

int resolve_error(const ResolveResult& resolved) {
    if (resolved.timed_out) return -ETIMEDOUT;
    return resolved.error != 0 ? -resolved.error : -EHOSTUNREACH;
}

}  // namespace

ConnectResult connect_host(std::string_view host, std::int32_t port, std::int64_t timeout_ms) {
    const bool in_range = port >= 1 && port <= kMaxPort && timeout_ms >= 1;
    if (!in_range || timeout_ms > kMaxSocketWaitMs) return {.error = -EINVAL};
    if (parse_ipv4(host) || parse_ipv6(host)) return connect_literal(host, port, timeout_ms);

    const ResolveResult resolved = resolve_host(host, timeout_ms);
    ConnectResult result = {.error = resolve_error(resolved)};
    for (const std::string& address : resolved.addresses) {
        result = connect_literal(address, port, timeout_ms);
        if (result.ok) break;
    }
    return result;
}

}  // namespace quorvane
