#pragma once

#include <cstdint>
#include <string_view>

namespace quorvane {

/// One deployment of the service: a scheme and an authority, nothing else.
///
/// Invariant: when `valid`, `host` is not empty, `port` lies in 1 to 65535, and either `tls` is
/// set or `host` is exactly "localhost" or "127.0.0.1", so that a token never travels
/// unencrypted over a network.
struct ServiceOrigin {
    std::string_view text;   ///< As typed, byte for byte: it names the credential file.
    std::string_view host;   ///< The authority without its port.
    std::int32_t port = -1;  ///< -1 when a port was written that cannot be read; 0 stays 0.
    bool tls = false;        ///< The scheme is https.
    bool valid = false;
};

/// Reads a base URL such as "https://host" or "http://127.0.0.1:8080".  A path (a lone slash
/// included), user information, brackets, a port that is not 1 to 65535, an upper-case scheme, or
/// plain HTTP to any other host leave `valid` unset; nothing else reports them.  The last ":" ends
/// the host, so "https://a:b:1" and an IPv6 literal without brackets have hosts with colons.  The
/// result refers to `text`.
[[nodiscard]] ServiceOrigin parse_service_origin(std::string_view text);

}  // namespace quorvane
