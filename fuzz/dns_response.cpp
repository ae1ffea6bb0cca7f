// Every address that a response yields is a literal that the connecting side reads back.  The
// identifier that is asked for is the one that the datagram has.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "dns/message.h"
#include "dns/name_server.h"
#include "net/address.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const int identifier = size < 2 ? 0 : data[0] * 256 + data[1];
    const quorvane::DnsAnswer answer =
        quorvane::parse_dns_response(text, static_cast<std::uint16_t>(identifier));
    if (answer.ok ? answer.error != 0 : !answer.addresses.empty()) __builtin_trap();
    for (const std::string& address : answer.addresses) {
        if (!quorvane::parse_ipv4(address) && !quorvane::parse_ipv6(address)) __builtin_trap();
    }
    if (!quorvane::parse_ipv4(quorvane::choose_name_server(text))) __builtin_trap();
    const auto name = quorvane::encode_dns_name(text);
    if (name && (name->size() > 255 || name->size() < text.size() + 1)) __builtin_trap();
    return 0;
}
