// Literals as inet_pton(3) reads them, but for two wanted differences: we take leading zeros in
// IPv4 addresses, and no dotted tail in IPv6 ones.

#include <arpa/inet.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "net/address.h"

namespace {

bool has_leading_zero(const std::string& text) {
    for (std::size_t i = 0; i + 1 < text.size(); ++i) {
        const bool starts = i == 0 || text[i - 1] == '.';
        if (starts && text[i] == '0' && text[i + 1] != '.') return true;
    }
    return false;
}

void check(bool holds) {
    if (!holds) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto four = quorvane::parse_ipv4(text);
    const auto six = quorvane::parse_ipv6(text);
    if (text.find('\0') != std::string::npos) {
        check(!four && !six);
        return 0;
    }
    unsigned char bytes[16];
    if (inet_pton(AF_INET, text.c_str(), bytes) == 1) {
        check(four && std::memcmp(four->bytes.data(), bytes, 4) == 0);
        check(quorvane::format_ipv4(*four) == text);
    } else {
        check(!four || has_leading_zero(text));
    }
    const bool dotted = text.find('.') != std::string::npos;
    const bool other_six = !dotted && inet_pton(AF_INET6, text.c_str(), bytes) == 1;
    check(six.has_value() == other_six);
    if (six) {
        check(std::memcmp(six->bytes.data(), bytes, 16) == 0);
        check(quorvane::parse_ipv6(quorvane::format_ipv6(*six))->bytes == six->bytes);
    }
    return 0;
}
