// What a response yields is what the C library's reader of messages finds in it, where that can
// read it, and every address is a literal that the connecting side reads back.  The identifier that
// is asked for is the one that the datagram has.

#include <arpa/nameser.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dns/message.h"
#include "dns/name_server.h"
#include "net/address.h"

namespace {

void check(bool holds) {
    if (!holds) __builtin_trap();
}

std::string in_groups(const unsigned char* address) {
    char text[40];
    std::snprintf(text, sizeof text, "%x:%x:%x:%x:%x:%x:%x:%x", ns_get16(address),
                  ns_get16(address + 2), ns_get16(address + 4), ns_get16(address + 6),
                  ns_get16(address + 8), ns_get16(address + 10), ns_get16(address + 12),
                  ns_get16(address + 14));
    return text;
}

// Nothing when the C library cannot read the message.
std::optional<std::vector<std::string>> expected_addresses(const std::uint8_t* data, int size) {
    ns_msg message;
    if (ns_initparse(data, size, &message) != 0) return {};
    std::vector<std::string> addresses;
    for (int i = 0; i < ns_msg_count(message, ns_s_an); ++i) {
        ns_rr record;
        if (ns_parserr(&message, ns_s_an, i, &record) != 0) return {};
        if (ns_rr_class(record) != ns_c_in) continue;
        const unsigned char* const bytes = ns_rr_rdata(record);
        if (ns_rr_type(record) == ns_t_a && ns_rr_rdlen(record) == 4) {
            char text[16];
            std::snprintf(text, sizeof text, "%d.%d.%d.%d", bytes[0], bytes[1], bytes[2], bytes[3]);
            addresses.emplace_back(text);
        }
        if (ns_rr_type(record) == ns_t_aaaa && ns_rr_rdlen(record) == 16) {
            addresses.push_back(in_groups(bytes));
        }
    }
    return addresses;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const int identifier = size < 2 ? 0 : data[0] * 256 + data[1];
    const quorvane::DnsAnswer answer =
        quorvane::parse_dns_response(text, static_cast<std::uint16_t>(identifier));
    check(answer.ok ? answer.error == 0 : answer.addresses.empty());
    if (answer.ok) {
        check(size >= 12 && (data[2] & 0x80) != 0 && (data[3] & 0x0F) == 0);
        check(ns_get16(data + 4) <= 16 && ns_get16(data + 6) <= 256);
        const auto expected = expected_addresses(data, static_cast<int>(size));
        check(!expected || answer.addresses == *expected);
    }
    for (const std::string& address : answer.addresses) {
        check(quorvane::parse_ipv4(address) || quorvane::parse_ipv6(address));
    }
    check(quorvane::parse_ipv4(quorvane::choose_name_server(text)).has_value());
    const auto name = quorvane::encode_dns_name(text);
    check(!name || (name->size() <= 255 && name->size() > text.size()));
    return 0;
}
