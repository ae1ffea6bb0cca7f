#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "net/socket.h"
#include "support/bytes.h"
#include "support/fd.h"

// OpenSSL's own types, declared here so that this header does not include OpenSSL's.
struct ssl_ctx_st;
struct ssl_st;

/// A verified TLS client connection, by OpenSSL 3 over a socket of our own.
///
/// libssl.so.3 is loaded on the first call of `tls_connect` (or linked, with the build option
/// QUORVANE_LINK_OPENSSL).  Peer verification cannot be turned off.  Protocol versions and ciphers
/// are the library's defaults.  The process must ignore SIGPIPE: OpenSSL writes to the socket
/// without MSG_NOSIGNAL.
namespace quorvane {

struct TlsSettings {
    /// A name or a literal: connected to, sent as SNI, and required in the certificate.  A trailing
    /// dot is left out of both: neither SNI (RFC 6066 3) nor a certificate has one.
    std::string host;
    std::int32_t port = 443;       ///< 1 to kMaxPort.
    std::int64_t timeout_ms = 0;   ///< 1 to kMaxReadyWaitMs.
    std::string trust_store_file;  ///< PEM certificates; empty for OpenSSL's own locations.
};

struct FreeTls {
    void operator()(ssl_ctx_st* context) const;
    void operator()(ssl_st* session) const;
};
using TlsContext = std::unique_ptr<ssl_ctx_st, FreeTls>;
using TlsSession = std::unique_ptr<ssl_st, FreeTls>;

/// An established connection.  Destroying it frees everything; `tls_close` also tells the peer.
struct TlsConnection {
    // In this order, so that the session is freed first and the socket closed last.
    FdHandle fd;
    TlsContext context;
    TlsSession session;
    std::int64_t timeout_ms = 0;
};

/// Connects and runs the handshake; the certificate must be valid for `host`, as an address if it
/// is a literal.  The host "localhost" is the address ::1 and no other.
///
/// Every single wait for the peer is bounded by `timeout_ms`, in the handshake and afterwards;
/// each query and each connection attempt also by kMaxSocketWaitMs.
/// Returns nothing when a step fails; `last_tls_error` is then "TLS failed at " and the step:
///
/// - "configuration": a setting is out of its range, or OpenSSL cannot be loaded
/// - "tcp_connect": the name does not resolve, or no address of it answers
/// - "context_create", "session_create", "server_name", "host_verification_setup",
///   "socket_attach": OpenSSL refused, for lack of memory or because of an impossible host
/// - "trust_store": `trust_store_file` cannot be read or holds no certificate
/// - "handshake": the peer is silent or no TLS server, shares no protocol version with us, or
///   shows a certificate that does not verify
/// - "certificate_verification": the result of the check, read once more after the handshake
[[nodiscard]] std::optional<TlsConnection> tls_connect(TlsSettings settings);

/// Writes every byte.  False when the peer is gone or takes nothing for the time limit.
[[nodiscard]] bool tls_write(TlsConnection& connection, std::string_view bytes);

/// Appends up to `max_bytes` (clamped to 1 to kMaxReceiveBytes) to `into`.  End of stream is the
/// peer's close, with or without a notification.  An error is that of the socket call, or -EIO
/// where the peer broke the protocol.
[[nodiscard]] ReceiveResult tls_read(TlsConnection& connection, ByteBuffer& into,
                                     std::int64_t max_bytes);

/// Sends the close notification without waiting for anything, and frees everything.
void tls_close(TlsConnection connection);

/// The process's last TLS failure, empty after a `tls_connect` that succeeded.
[[nodiscard]] std::string_view last_tls_error();

}  // namespace quorvane
