#include "net/address.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "support/text.h"

namespace quorvane {
namespace {

// The bytes of groups separated by ":", at most eight groups; the empty text is the empty list.
std::optional<std::string> parse_groups(std::string_view text) {
    std::string bytes;
    if (text.empty()) return bytes;
    for (const std::string_view part : split(text, ':')) {
        const std::int64_t group = part.size() > 4 ? -1 : parse_hex(part, 0xFFFF);
        if (group < 0 || bytes.size() == sizeof(Ipv6Address)) return std::nullopt;
        bytes += static_cast<char>(group >> 8);
        bytes += static_cast<char>(group & 0xFF);
    }
    return bytes;
}

std::uint16_t network_order(std::int32_t port) { return htons(static_cast<std::uint16_t>(port)); }

}  // namespace

std::optional<Ipv4Address> parse_ipv4(std::string_view text) {
    Ipv4Address address;
    std::size_t count = 0;
    for (const std::string_view part : split(text, '.')) {
        const std::int64_t byte = part.size() > 3 ? -1 : parse_decimal(part, 255);
        if (byte < 0 || count == address.bytes.size()) return std::nullopt;
        address.bytes[count++] = static_cast<std::uint8_t>(byte);
    }
    if (count != address.bytes.size()) return std::nullopt;
    return address;
}

std::optional<Ipv6Address> parse_ipv6(std::string_view text) {
    Ipv6Address address;
    const std::size_t gap = text.find("::");
    const bool compressed = gap != std::string_view::npos;
    const auto front = parse_groups(text.substr(0, gap));
    const auto back = parse_groups(compressed ? text.substr(gap + 2) : std::string_view());
    if (!front || !back) return std::nullopt;
    const std::size_t given = front->size() + back->size();
    if (compressed ? given >= address.bytes.size() : given != address.bytes.size()) {
        return std::nullopt;
    }
    std::ranges::copy(*front, address.bytes.begin());
    std::ranges::copy_backward(*back, address.bytes.end());
    return address;
}

std::string format_ipv4(const Ipv4Address& address) {
    std::string text;
    for (const std::uint8_t byte : address.bytes) {
        if (!text.empty()) text += '.';
        text += std::to_string(byte);
    }
    return text;
}

std::string format_ipv6(const Ipv6Address& address) {
    std::string text;
    for (std::size_t i = 0; i < address.bytes.size(); i += 2) {
        const unsigned group = address.bytes[i] * 256U + address.bytes[i + 1];
        char digits[4];
        if (i > 0) text += ':';
        text.append(digits, std::to_chars(digits, digits + sizeof digits, group, 16).ptr);
    }
    return text;
}

SocketAddress make_socket_address(const Ipv4Address& address, std::int32_t port) {
    SocketAddress result;
    result.size = sizeof result.ipv4;
    result.ipv4 = {};
    result.ipv4.sin_family = AF_INET;
    result.ipv4.sin_port = network_order(port);
    std::memcpy(&result.ipv4.sin_addr, address.bytes.data(), address.bytes.size());
    return result;
}

SocketAddress make_socket_address(const Ipv6Address& address, std::int32_t port) {
    SocketAddress result;
    result.ipv6.sin6_family = AF_INET6;
    result.ipv6.sin6_port = network_order(port);
    std::memcpy(&result.ipv6.sin6_addr, address.bytes.data(), address.bytes.size());
    return result;
}

}  // namespace quorvane
