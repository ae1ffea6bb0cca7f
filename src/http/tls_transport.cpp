#include "http/tls_transport.h"

#include <optional>

#include "http/receive_response.h"
#include "http/tls.h"

namespace quorvane {

TransportResult TlsTransport::round_trip(std::string_view host, std::string_view request,
                                         std::int64_t max_bytes, std::int64_t timeout_ms) {
    std::optional<TlsConnection> connection = tls_connect({.host = std::string(host),
                                                           .port = port_,
                                                           .timeout_ms = timeout_ms,
                                                           .trust_store_file = trust_store_file_});
    if (!connection || !tls_write(*connection, request)) return {};
    return receive_response(max_bytes, kDefaultBodyLimit,
                            [&connection](ByteBuffer& into, std::int64_t most) {
                                return tls_read(*connection, into, most);
                            });
}

}  // namespace quorvane
