#include "http/exchange.h"

#include <utility>

#include "http/reader.h"

namespace quorvane {

ExchangeResult exchange(const HttpTarget& target, const HttpRequest& request,
                        HttpTransport& transport) {
    const ByteBuffer bytes = serialize_request(request, target.host_header);
    TransportResult received = transport.round_trip(target, bytes.view());
    if (!received.ok) return {};
    ResponseParse parse = parse_response(std::move(received.bytes), target.max_response_bytes);
    return {.ok = true, .response = std::move(parse.response), .complete = parse.complete};
}

}  // namespace quorvane
