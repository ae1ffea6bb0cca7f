#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "dns/message.h"

/// A stub resolver: host names to addresses through one name server, over UDP port 53.
///
/// One datagram goes out per query and one answer is taken: nothing is sent again, no second
/// server is asked, nothing falls back to TCP.  There is no search list and no hosts file.
namespace quorvane {

/// The time limit of one query where the caller gives none.
inline constexpr std::int64_t kDefaultDnsTimeoutMs = 2'000;

/// The addresses of both queries, and what became of them.
struct ResolveResult {
    std::vector<std::string> addresses;  ///< Address texts: the AAAA query's, then the A query's.
    bool ok = false;                     ///< At least one query was answered validly.
    bool timed_out = false;              ///< Neither query was answered in time.
    int error = 0;  ///< 0 when `ok`, else the A query's errno value or, if that is 0, the other's.
};

/// Asks for AAAA records and then, whatever came of it, for A records; each query may wait for
/// `timeout_ms` (0 to 600000).  `name_server` is an IPv4 literal, empty for that of the resolver
/// file.
///
/// A query fails with EINVAL, and sends nothing, when the host is no DNS name, the server no IPv4
/// literal or the limit out of range; with EIO when the kernel gives no random identifier; with the
/// error of the socket call that failed, ECONNREFUSED among them when the server's machine says
/// that nothing listens there; and with EBADMSG on an unusable response.  Datagrams from any other
/// address or port than the server's are dropped and the wait goes on; all of 127.0.0.0/8 counts
/// as one address.
[[nodiscard]] ResolveResult resolve_host(std::string_view host,
                                         std::int64_t timeout_ms = kDefaultDnsTimeoutMs,
                                         std::string_view name_server = {});

/// The name server that "/etc/resolv.conf" gives, or the default one, also when there is no such
/// file.
[[nodiscard]] std::string read_name_server();

}  // namespace quorvane
