#include "dns/connect_host.h"

#include <cerrno>
#include <string>

#include "dns/resolver.h"
#include "net/address.h"

namespace quorvane {
namespace {

long resolve_error(const ResolveResult& resolved) {
    if (resolved.timed_out) return -ETIMEDOUT;
    return resolved.error != 0 ? resolved.error : -EHOSTUNREACH;
}

}  // namespace

ConnectResult connect_host(std::string_view host, std::int32_t port, std::int64_t timeout_ms) {
    if (port < 1 || port > kMaxPort) return {.error = -EINVAL};
    if (timeout_ms < 1 || timeout_ms > kMaxSocketWaitMs) return {.error = -EINVAL};
    if (parse_ipv4(host)) return connect_ipv4(host, port, timeout_ms);
    if (parse_ipv6(host)) return connect_ipv6(host, port, timeout_ms);

    const ResolveResult resolved = resolve_host(host, timeout_ms);
    ConnectResult result = {.error = resolve_error(resolved)};
    for (const std::string& address : resolved.addresses) {
        result = parse_ipv4(address) ? connect_ipv4(address, port, timeout_ms)
                                     : connect_ipv6(address, port, timeout_ms);
        if (result.ok) break;
    }
    return result;
}

}  // namespace quorvane
