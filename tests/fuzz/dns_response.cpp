// What a response yields are literals that the connecting side reads back, no more than its head
// announces, and under its own identifier alone.  Which they are is the unit tests'.

#include <string>

#include "dns/message.h"
#include "dns/name_server.h"
#include "net/address.h"
#include "target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = as_text(data, size);
    const auto identifier = static_cast<std::uint16_t>(size < 2 ? 0 : data[0] * 256 + data[1]);
    const quorvane::DnsAnswer answer = quorvane::parse_dns_response(text, identifier);
    check(answer.ok ? answer.error == 0 : answer.addresses.empty());
    if (answer.ok) {
        check(size >= 12 && (data[2] & 0x80) != 0 && (data[3] & 0x0F) == 0);
        check(data[4] == 0 && data[5] <= 16 && data[6] * 256 + data[7] <= 256);
        check(std::ssize(answer.addresses) <= data[6] * 256 + data[7]);
        check(!quorvane::parse_dns_response(text, identifier ^ 1U).ok);
    }
    for (const std::string& address : answer.addresses) {
        check(quorvane::parse_ipv4(address) || quorvane::parse_ipv6(address));
    }
    check(quorvane::parse_ipv4(quorvane::choose_name_server(text)).has_value());
    const auto name = quorvane::encode_dns_name(text);
    check(!name || (name->size() <= 255 && name->size() > text.size()));
    return 0;
}
