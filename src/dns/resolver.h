#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "dns/message.h"

/// A stub resolver: host names to addresses through one name server, over UDP port 53.
///
/// Each query is one datagram, sent once, and the first response counts.  There is no second
/// server, no TCP, no search list and no hosts file.
namespace quorvane {

/// The time limit of one query where the caller gives none.
inline constexpr std::int64_t kDefaultDnsTimeoutMs = 2'000;

/// The result of both queries: the AAAA query's addresses, then the A query's.  `ok` when at least
/// one had a valid response, `timed_out` when neither had one in time.  `error` is 0 when
/// `ok`, else the A query's or, if that is 0, the other's.
using ResolveResult = DnsAnswer;

/// Asks for AAAA records and then, even when that failed, for A records; each query may wait for
/// `timeout_ms` (0 to kMaxReadyWaitMs).  `name_server` is an IPv4 literal, empty for that of the
/// resolver file.
///
/// A query fails with -EINVAL, and sends nothing, when the host is no DNS name, the server no IPv4
/// literal or the time limit out of range; with -EIO when the kernel gives no random identifier;
/// with the error of the socket call that failed, for instance -ECONNREFUSED when nothing listens
/// at the server's address; and with -EBADMSG when the response is unusable.  Datagrams from any
/// other address or port than the server's are dropped and the wait continues; all of 127.0.0.0/8,
/// and 0.0.0.0, count as one address.
[[nodiscard]] ResolveResult resolve_host(std::string_view host,
                                         std::int64_t timeout_ms = kDefaultDnsTimeoutMs,
                                         std::string_view name_server = {});

/// The name server of "/etc/resolv.conf", or the default one.
[[nodiscard]] std::string read_name_server();

}  // namespace quorvane
