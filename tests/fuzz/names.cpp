// Addresses as inet_pton(3) reads them, but for two wanted differences: leading zeros in IPv4
// literals are read, and a dotted tail in IPv6 ones is not.  What a DNS response yields are such
// literals, no more than its head announces, and under its own identifier alone.  Which they are is
// the unit tests'.

#include <arpa/inet.h>

#include <cstring>
#include <regex>
#include <string>

#include "dns/message.h"
#include "dns/name_server.h"
#include "net/address.h"
#include "target.h"

namespace {

void check_address(const std::string& text) {
    const auto four = quorvane::parse_ipv4(text);
    const auto six = quorvane::parse_ipv6(text);
    if (text.size() > 99 || text.find('\0') != std::string::npos) return check(!four && !six);
    unsigned char bytes[16];
    static const std::regex kLeadingZeros("\\b0+(?=[0-9])");
    static const std::regex kFourDigits("[0-9]{4}");
    const std::string plain = std::regex_replace(text, kLeadingZeros, "");
    const bool wide = std::regex_search(text, kFourDigits);
    check(four.has_value() == (!wide && inet_pton(AF_INET, plain.c_str(), bytes) == 1));
    if (four) check(std::memcmp(four->bytes.data(), bytes, 4) == 0);
    if (four) check(quorvane::format_ipv4(*four) == plain);
    const bool dotted = text.find('.') != std::string::npos;
    check(six.has_value() == (!dotted && inet_pton(AF_INET6, text.c_str(), bytes) == 1));
    if (six) check(std::memcmp(six->bytes.data(), bytes, 16) == 0);
    if (six) check(quorvane::parse_ipv6(quorvane::format_ipv6(*six))->bytes == six->bytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = as_text(data, size);
    check_address(std::string(text));
    check(quorvane::parse_ipv4(quorvane::choose_name_server(text)).has_value());
    const auto name = quorvane::encode_dns_name(text);
    check(!name || (name->size() <= 255 && name->size() > text.size()));

    const auto identifier = static_cast<std::uint16_t>(size < 2 ? 0 : data[0] * 256 + data[1]);
    const quorvane::DnsAnswer answer = quorvane::parse_dns_response(text, identifier);
    check(answer.ok ? answer.error == 0 : answer.addresses.empty());
    if (!answer.ok) return 0;
    check(size >= 12 && (data[2] & 0x80) != 0 && (data[3] & 0x0F) == 0);
    check(data[4] == 0 && data[5] <= 16 && data[6] * 256 + data[7] <= 256);
    check(std::ssize(answer.addresses) <= data[6] * 256 + data[7]);
    check(!quorvane::parse_dns_response(text, identifier ^ 1U).ok);
    for (const std::string& address : answer.addresses) {
        check(quorvane::parse_ipv4(address) || quorvane::parse_ipv6(address));
    }
    return 0;
}
