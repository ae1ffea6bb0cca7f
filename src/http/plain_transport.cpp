#include "http/plain_transport.h"

#include "http/receive_response.h"
#include "net/socket.h"

namespace quorvane {

TransportResult PlainTransport::round_trip(std::string_view host, std::string_view request,
                                           std::int64_t max_bytes, std::int64_t timeout_ms) {
    const ConnectResult connection = connect_ipv4(host, port_, timeout_ms);
    if (!connection.ok) return {};
    const int fd = connection.fd.get();
    if (send_all(fd, request, timeout_ms) < 0) return {};
    return receive_response(max_bytes, -1, [fd, timeout_ms](ByteBuffer& into, std::int64_t most) {
        return receive_some(fd, into, most, timeout_ms);
    });
}

}  // namespace quorvane
