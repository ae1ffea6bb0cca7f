// Literals as inet_pton(3) reads them, but for two wanted differences: leading zeros in IPv4
// addresses are read, and a dotted tail in IPv6 ones is not.

#include "net/address.h"

#include <arpa/inet.h>

#include <cstring>
#include <regex>
#include <string>

#include "target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(as_text(data, size));
    const auto four = quorvane::parse_ipv4(text);
    const auto six = quorvane::parse_ipv6(text);
    if (size > 99 || text.find('\0') != std::string::npos) {
        check(!four && !six);
        return 0;
    }
    unsigned char bytes[16];
    const std::string plain = std::regex_replace(text, std::regex("\\b0+(?=[0-9])"), "");
    const bool wide = std::regex_search(text, std::regex("[0-9]{4}"));
    check(four.has_value() == (!wide && inet_pton(AF_INET, plain.c_str(), bytes) == 1));
    if (four) check(std::memcmp(four->bytes.data(), bytes, 4) == 0);
    if (four) check(quorvane::format_ipv4(*four) == plain);
    const bool dotted = text.find('.') != std::string::npos;
    check(six.has_value() == (!dotted && inet_pton(AF_INET6, text.c_str(), bytes) == 1));
    if (six) check(std::memcmp(six->bytes.data(), bytes, 16) == 0);
    if (six) check(quorvane::parse_ipv6(quorvane::format_ipv6(*six))->bytes == six->bytes);
    return 0;
}
