#include "session/origin.h"

#include <algorithm>

#include "net/address.h"
#include "support/text.h"

namespace quorvane {
namespace {

constexpr bool is_authority_byte(char byte) {
    const char lower = ascii_lower(byte);
    return (lower >= 'a' && lower <= 'z') || is_digit(byte) || byte == '-' || byte == '.' ||
           byte == ':';
}

constexpr ServiceOrigin read_origin(std::string_view text) {
    constexpr std::string_view kSecure = "https://";
    constexpr std::string_view kPlain = "http://";
    ServiceOrigin origin;
    origin.text = text;
    std::string_view rest;
    if (text.starts_with(kSecure)) {
        origin.tls = true;
        rest = text.substr(kSecure.size());
    } else if (text.starts_with(kPlain)) {
        rest = text.substr(kPlain.size());
    }

    const std::size_t colon = rest.rfind(':');
    if (colon == std::string_view::npos) {
        origin.host = rest;
        origin.port = origin.tls ? 443 : 80;
    } else {
        origin.host = rest.substr(0, colon);
        origin.port = static_cast<std::int32_t>(parse_decimal(rest.substr(colon + 1), kMaxPort));
    }

    const bool local = origin.host == kLocalhost || origin.host == kLoopbackIpv4;
    origin.valid = std::ranges::all_of(rest, is_authority_byte) && origin.port >= 1 &&
                   !origin.host.empty() && (origin.tls || local);
    return origin;
}

static_assert(read_origin(QUORVANE_DEFAULT_ORIGIN).valid,
              "QUORVANE_DEFAULT_ORIGIN must be an HTTPS origin such as https://host or "
              "https://host:8443, without a path or a slash at its end, or http://127.0.0.1:PORT "
              "for local development.");

}  // namespace

ServiceOrigin parse_service_origin(std::string_view text) { return read_origin(text); }

}  // namespace quorvane
