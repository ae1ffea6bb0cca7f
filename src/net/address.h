#pragma once

#include <netinet/in.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// IP addresses as text and as the kernel's socket addresses.
///
/// Texts are literals, never names.  Bytes are in network order.
namespace quorvane {

inline constexpr std::int32_t kMaxPort = 65535;

/// The name of this machine.  No transport looks it up: a plain connection goes to kLoopbackIpv4,
/// one over TLS to kLoopbackIpv6.
inline constexpr std::string_view kLocalhost = "localhost";
inline constexpr std::string_view kLoopbackIpv4 = "127.0.0.1";
inline constexpr std::string_view kLoopbackIpv6 = "::1";

struct Ipv4Address {
    std::array<std::uint8_t, 4> bytes = {};
};

struct Ipv6Address {
    std::array<std::uint8_t, 16> bytes = {};
};

/// Dotted decimal: exactly four parts of one to three digits, each at most 255.  Leading zeros are
/// decimal ("010.0.0.1" is 10.0.0.1).
[[nodiscard]] std::optional<Ipv4Address> parse_ipv4(std::string_view text);

/// RFC 4291 2.2, forms 1 and 2: eight groups of one to four hexadecimal digits, or fewer with one
/// "::" in place of one or more groups of zeros.  Refused are a dotted-decimal end, a zone and
/// brackets.
[[nodiscard]] std::optional<Ipv6Address> parse_ipv6(std::string_view text);

/// Four decimal numbers without leading zeros.
[[nodiscard]] std::string format_ipv4(const Ipv4Address& address);

/// All eight groups, lower case, without leading zeros and never shortened by "::".
[[nodiscard]] std::string format_ipv6(const Ipv6Address& address);

/// An address and a port as the kernel takes them; `size` is that of the member in use.
struct SocketAddress {
    union {
        sockaddr_in6 ipv6 = {};
        sockaddr_in ipv4;
    };
    socklen_t size = sizeof(sockaddr_in6);

    [[nodiscard]] int family() const { return ipv6.sin6_family; }
};

/// `port` is 0 to kMaxPort; flow information and scope of an IPv6 address are 0.
[[nodiscard]] SocketAddress make_socket_address(const Ipv4Address& address, std::int32_t port);
[[nodiscard]] SocketAddress make_socket_address(const Ipv6Address& address, std::int32_t port);

}  // namespace quorvane
