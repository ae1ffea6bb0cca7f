// Literals as inet_pton(3) reads them, but for two wanted differences: leading zeros in IPv4
// addresses are read, and a dotted tail in IPv6 ones is not.

#include "net/address.h"

#include <arpa/inet.h>

#include <cstring>
#include <sstream>
#include <string>

#include "target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(as_text(data, size));
    const bool one_word = text.find('\0') == std::string::npos;
    const auto four = quorvane::parse_ipv4(text);
    const auto six = quorvane::parse_ipv6(text);
    unsigned char bytes[16];
    if (one_word && inet_pton(AF_INET, text.c_str(), bytes) == 1) {
        check(four && std::memcmp(four->bytes.data(), bytes, 4) == 0);
        check(quorvane::format_ipv4(*four) == text);
    } else if (four) {  // A part with a leading zero, which is decimal all the same.
        check(one_word && size > quorvane::format_ipv4(*four).size() && size <= 15);
        std::istringstream parts(text);
        for (const int byte : four->bytes) {
            int part = -1;
            parts >> part;
            check(part == byte);
            parts.ignore();
        }
    }
    const bool dotted = text.find('.') != std::string::npos;
    const bool readable = one_word && !dotted && inet_pton(AF_INET6, text.c_str(), bytes) == 1;
    check(six.has_value() == readable);
    if (six) {
        check(std::memcmp(six->bytes.data(), bytes, 16) == 0);
        check(quorvane::parse_ipv6(quorvane::format_ipv6(*six))->bytes == six->bytes);
    }
    return 0;
}
