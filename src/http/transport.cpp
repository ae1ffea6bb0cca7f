#include "http/transport.h"

#include <algorithm>
#include <optional>

#include "http/reader.h"
#include "http/tls.h"
#include "net/socket.h"

namespace quorvane {
namespace {

// Reads the response to a request that was sent.  Every request asks the peer to close, and only
// then is a body of no announced length complete.  A front that ends TLS may keep the connection
// open in spite of that: with `ends_when_complete` a complete response of up to
// kDefaultMaxBodyBytes ends the reading, too.
//
// `receive(into, most_bytes)` is called while less than `max_bytes` have arrived; it appends at
// most `most_bytes` to `into` and returns a ReceiveResult.
template <typename Receive>
TransportResult receive_response(std::int64_t max_bytes, bool ends_when_complete,
                                 const Receive& receive) {
    constexpr std::int64_t kMaxReadBytes = 65'536;
    TransportResult result = {.ok = true};
    ResponseFraming framing(max_bytes);
    for (;;) {
        const std::int64_t allowed_bytes = max_bytes - std::ssize(result.bytes.view());
        if (allowed_bytes <= 0) return result;
        const ReceiveResult got = receive(result.bytes, std::min(allowed_bytes, kMaxReadBytes));
        if (got.end_of_stream) return result;
        if (got.timed_out || got.error != 0) {
            const bool usable = got.timed_out ? framing.complete : framing.head_bytes.has_value();
            return usable ? std::move(result) : TransportResult();
        }
        framing.advance(result.bytes.view());
        // Space for all that was announced, and for the read that meets the end.
        if (const std::size_t missing_bytes = framing.missing_bytes) {
            static_cast<void>(result.bytes.spare(missing_bytes + std::size_t{kMaxReadBytes}));
        }
        const bool may_end = ends_when_complete && framing.complete;
        if (may_end && framing.body_bytes <= kDefaultMaxBodyBytes) return result;
    }
}

}  // namespace

TransportResult PlainTransport::round_trip(const HttpTarget& target, std::string_view request) {
    const ConnectResult connection = connect_ipv4(target.host, port_, target.timeout_ms);
    if (!connection.ok) return {};
    const int fd = connection.fd.get();
    if (send_all(fd, request, target.timeout_ms) < 0) return {};
    return receive_response(target.max_response_bytes, false,
                            [fd, &target](ByteBuffer& into, std::int64_t most_bytes) {
                                return receive_some(fd, into, most_bytes, target.timeout_ms);
                            });
}

TransportResult TlsTransport::round_trip(const HttpTarget& target, std::string_view request) {
    std::optional<TlsConnection> connection = tls_connect({.host = target.host,
                                                           .port = port_,
                                                           .timeout_ms = target.timeout_ms,
                                                           .trust_store_file = trust_store_file_});
    TransportResult result;
    if (!connection) return result;
    if (tls_write(*connection, request)) {
        result = receive_response(target.max_response_bytes, true,
                                  [&connection](ByteBuffer& into, std::int64_t most_bytes) {
                                      return tls_read(*connection, into, most_bytes);
                                  });
    }
    tls_close(std::move(*connection));
    return result;
}

}  // namespace quorvane
