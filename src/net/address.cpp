#include "net/address.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "support/text.h"

namespace quorvane {
namespace {

constexpr std::size_t kIpv6Groups = 8;

std::optional<std::uint8_t> parse_octet(std::string_view text) {
    if (text.empty() || text.size() > 3) return std::nullopt;
    int value = 0;
    for (const char byte : text) {
        if (!is_digit(byte)) return std::nullopt;
        value = value * 10 + (byte - '0');
    }
    if (value > 255) return std::nullopt;
    return static_cast<std::uint8_t>(value);
}

std::optional<std::uint16_t> parse_group(std::string_view text) {
    if (text.empty() || text.size() > 4) return std::nullopt;
    std::uint16_t value = 0;
    const char* const end = text.data() + text.size();
    // An unsigned target takes no sign, so only hexadecimal digits reach the end.
    if (std::from_chars(text.data(), end, value, 16).ptr != end) return std::nullopt;
    return value;
}

struct GroupList {
    bool ok = false;
    std::size_t count = 0;
    std::array<std::uint16_t, kIpv6Groups> values = {};
};

/// Groups separated by ":"; the empty text is the empty list.
GroupList parse_groups(std::string_view text) {
    GroupList list;
    if (text.empty()) return {.ok = true, .count = 0, .values = {}};
    for (TextSplit rest = {{}, text, true}; rest.found;) {
        rest = split_once(rest.after, ':');
        const std::optional<std::uint16_t> group = parse_group(rest.before);
        if (!group || list.count == kIpv6Groups) return {};
        list.values[list.count++] = *group;
    }
    list.ok = true;
    return list;
}

std::uint16_t network_order(std::int32_t port) { return htons(static_cast<std::uint16_t>(port)); }

}  // namespace

std::optional<Ipv4Address> parse_ipv4(std::string_view text) {
    Ipv4Address address;
    TextSplit rest = {{}, text, true};
    for (std::uint8_t& byte : address.bytes) {
        if (!rest.found) return std::nullopt;
        rest = split_once(rest.after, '.');
        const std::optional<std::uint8_t> octet = parse_octet(rest.before);
        if (!octet) return std::nullopt;
        byte = *octet;
    }
    if (rest.found) return std::nullopt;
    return address;
}

std::optional<Ipv6Address> parse_ipv6(std::string_view text) {
    const std::size_t gap = text.find("::");
    const bool compressed = gap != std::string_view::npos;
    const GroupList head = parse_groups(text.substr(0, gap));
    const GroupList tail = parse_groups(compressed ? text.substr(gap + 2) : std::string_view());
    if (!head.ok || !tail.ok) return std::nullopt;
    const std::size_t given = head.count + tail.count;
    if (compressed ? given >= kIpv6Groups : given != kIpv6Groups) return std::nullopt;

    std::array<std::uint16_t, kIpv6Groups> groups = {};
    std::copy_n(head.values.begin(), head.count, groups.begin());
    std::copy_n(tail.values.begin(), tail.count, groups.end() - static_cast<long>(tail.count));
    Ipv6Address address;
    for (std::size_t i = 0; i < kIpv6Groups; ++i) {
        address.bytes[2 * i] = static_cast<std::uint8_t>(groups[i] >> 8);
        address.bytes[2 * i + 1] = static_cast<std::uint8_t>(groups[i] & 0xFF);
    }
    return address;
}

std::string format_ipv4(const Ipv4Address& address) {
    std::string text;
    for (const std::uint8_t byte : address.bytes) {
        if (!text.empty()) text += '.';
        text += to_decimal(byte);
    }
    return text;
}

std::string format_ipv6(const Ipv6Address& address) {
    std::string text;
    for (std::size_t i = 0; i < kIpv6Groups; ++i) {
        const unsigned group = address.bytes[2 * i] * 256U + address.bytes[2 * i + 1];
        char digits[4];
        if (i > 0) text += ':';
        text.append(digits, std::to_chars(digits, digits + sizeof digits, group, 16).ptr);
    }
    return text;
}

sockaddr_in make_socket_address(const Ipv4Address& address, std::int32_t port) {
    sockaddr_in result = {};
    result.sin_family = AF_INET;
    result.sin_port = network_order(port);
    std::memcpy(&result.sin_addr, address.bytes.data(), address.bytes.size());
    return result;
}

sockaddr_in6 make_socket_address(const Ipv6Address& address, std::int32_t port) {
    sockaddr_in6 result = {};
    result.sin6_family = AF_INET6;
    result.sin6_port = network_order(port);
    std::memcpy(&result.sin6_addr, address.bytes.data(), address.bytes.size());
    return result;
}

}  // namespace quorvane
