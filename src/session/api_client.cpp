#include "session/api_client.h"

#include <string>
#include <utility>

#include "http/exchange.h"
#include "http/tls.h"
#include "json/parser.h"
#include "json/writer.h"
#include "net/address.h"
#include "session/trust_store.h"
#include "support/output.h"
#include "support/text.h"

namespace quorvane {
namespace {

constexpr std::int64_t kMaxResponseBytes = 8'388'608;
constexpr std::int64_t kServiceTimeoutMs = 10'000;
constexpr std::int32_t kDefaultTlsPort = 443;

HttpRequest make_service_request(std::string_view path, JsonView body, std::string_view token) {
    return make_post(
        std::string(path), write_json(body),
        {{"Content-Type", "application/json"}, {"Authorization", concat({"Bearer ", token})}});
}

ExchangeResult exchange_with(const ServiceOrigin& origin, const HttpRequest& request) {
    HttpTarget target = {.host_header = std::string(origin.host),
                         .host = std::string(origin.host),
                         .max_response_bytes = kMaxResponseBytes,
                         .timeout_ms = kServiceTimeoutMs};
    if (!origin.tls || origin.port != kDefaultTlsPort) {
        target.host_header.append(":").append(std::to_string(origin.port));
    }
    if (origin.tls) {
        TlsTransport transport(origin.port, choose_trust_store());
        return exchange(target, request, transport);
    }
    target.host = kLoopbackIpv4;  // A plain origin is always on this machine.
    PlainTransport transport(origin.port);
    return exchange(target, request, transport);
}

std::string refusal_message(std::int64_t status, JsonView response) {
    if (json_has_member(response, "error")) return std::string(json_get_string(response, "error"));
    return "Request failed: HTTP " + std::to_string(status);
}

}  // namespace

std::optional<JsonValue> call_service(const ServiceOrigin& origin, std::string_view path,
                                      JsonView body, std::string_view token) {
    ExchangeResult result = exchange_with(origin, make_service_request(path, body, token));
    if (!result.ok) {
        const std::string_view detail = origin.tls ? last_tls_error() : "HTTP transport";
        print_line(Stream::kError, concat({"Cannot reach ", origin.text,
                                           " (HTTP 0, complete=false; ", detail, ")"}));
        return std::nullopt;
    }
    const std::int64_t status = result.response.status;
    JsonParseResult parsed = parse_json(std::move(result.response.body), kApplicationJsonLimits);
    if (status < 400 && parsed.ok && parsed.value.view().is_object()) {
        return std::move(parsed.value);
    }
    print_line(Stream::kError, refusal_message(status, parsed.value));
    return std::nullopt;
}

}  // namespace quorvane
