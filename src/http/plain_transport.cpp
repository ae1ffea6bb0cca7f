#include "http/plain_transport.h"

#include <algorithm>

#include "http/reader.h"
#include "net/socket.h"

namespace quorvane {
namespace {

constexpr std::int64_t kReadBytes = 65'536;

}  // namespace

TransportResult PlainTransport::round_trip(std::string_view host, std::string_view request,
                                           std::int64_t max_bytes, std::int64_t timeout_ms) {
    const ConnectResult connection = connect_ipv4(host, port_, timeout_ms);
    if (!connection.ok) return {};
    if (send_all(connection.fd.get(), request, timeout_ms) < 0) return {};

    TransportResult result;
    ResponseFraming framing(max_bytes);
    for (;;) {
        const std::int64_t allowed = max_bytes - static_cast<std::int64_t>(result.bytes.size());
        if (allowed <= 0) break;
        const ReceiveResult got = receive_some(connection.fd.get(), result.bytes,
                                               std::min(allowed, kReadBytes), timeout_ms);
        if (got.timed_out || got.error != 0) {
            result.ok = framing.whole();
            return result;
        }
        if (got.end_of_stream) break;
        framing.advance(result.bytes.view());
    }
    result.ok = true;
    return result;
}

}  // namespace quorvane
