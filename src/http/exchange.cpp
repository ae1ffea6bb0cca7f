#include "http/exchange.h"

#include <utility>

namespace quorvane {

ExchangeResult exchange(const HttpTarget& target, const HttpRequest& request,
                        HttpTransport& transport) {
    const ByteBuffer bytes = serialize_request(request, target.host_header);
    TransportResult received = transport.round_trip(target.host, bytes.view(),
                                                    target.max_response_bytes, target.timeout_ms);
    if (!received.ok) return {};
    ResponseParse parse = parse_response(std::move(received.bytes), target.max_response_bytes);
    return {.response = std::move(parse.response), .ok = true, .complete = parse.complete};
}

}  // namespace quorvane
