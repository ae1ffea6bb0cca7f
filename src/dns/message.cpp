#include "dns/message.h"

#include <algorithm>
#include <cerrno>

#include "net/address.h"
#include "support/text.h"

namespace quorvane {
namespace {

constexpr std::size_t kMaxNameBytes = 253;
constexpr std::size_t kMaxLabelBytes = 63;
constexpr int kMaxNameSteps = 127;
constexpr int kMaxQuestions = 16;
constexpr int kMaxAnswers = 256;
constexpr std::uint16_t kClassIn = 1;

void append_u16(std::string& bytes, std::uint16_t value) {
    bytes += static_cast<char>(value >> 8);
    bytes += static_cast<char>(value & 0xFF);
}

// Takes a datagram apart from front to back.  Once a part is missing, `ok` stays false and every
// further part is empty or 0.
struct DatagramReader {
    std::string_view datagram;
    std::size_t offset = 0;  // At most the size.
    bool ok = true;

    std::string_view take(std::size_t size) {
        ok = ok && size <= datagram.size() - offset;
        if (!ok) return {};
        offset += size;
        return datagram.substr(offset - size, size);
    }
    std::uint8_t take_u8() {
        const std::string_view byte = take(1);
        return byte.empty() ? std::uint8_t{0} : static_cast<std::uint8_t>(byte.front());
    }
    std::uint16_t take_u16() {
        const std::uint8_t high = take_u8();
        return static_cast<std::uint16_t>(high << 8 | take_u8());
    }

    // Reads a name through its compression pointers, so that a malformed one is refused wherever
    // its labels are, and continues after the name's own bytes.
    void skip_name() {
        DatagramReader name = *this;
        std::optional<std::size_t> end;
        for (int steps = 0; name.ok && steps < kMaxNameSteps; ++steps) {
            const std::uint8_t length = name.take_u8();
            if (length >= 0xC0) {
                // RFC 1035 4.1.4: a pointer ends the name here.
                const std::size_t target = (length & 0x3FU) << 8 | name.take_u8();
                if (!end) end = name.offset;
                name.offset = std::min(target, datagram.size());
            } else if (length == 0 && name.ok) {
                offset = end.value_or(name.offset);
                return;
            } else {
                name.take(length);
                name.ok = name.ok && length <= kMaxLabelBytes;
            }
        }
        ok = false;
    }
};

DnsAnswer malformed() { return {.error = -EBADMSG}; }

template <typename Address> Address address_from(std::string_view data) {
    Address address;
    std::ranges::copy(data, address.bytes.begin());
    return address;
}

}  // namespace

std::optional<std::string> encode_dns_name(std::string_view host) {
    if (host.ends_with('.')) host.remove_suffix(1);
    if (host.size() > kMaxNameBytes) return std::nullopt;
    std::string name;
    for (const std::string_view label : split(host, '.')) {
        if (label.empty() || label.size() > kMaxLabelBytes) return std::nullopt;
        name += static_cast<char>(label.size());
        name += label;
    }
    name += '\0';
    return name;
}

std::optional<std::string> build_dns_query(std::string_view host, std::uint16_t identifier,
                                           std::uint16_t type) {
    if (type != kDnsTypeA && type != kDnsTypeAaaa) return std::nullopt;
    const std::optional<std::string> name = encode_dns_name(host);
    if (!name) return std::nullopt;
    std::string query;
    append_u16(query, identifier);
    append_u16(query, 0x0100);  // Recursion desired.
    append_u16(query, 1);       // Questions; there are no answers, authorities or additionals.
    query.append(6, '\0');
    query += *name;
    append_u16(query, type);
    append_u16(query, kClassIn);
    return query;
}

DnsAnswer parse_dns_response(std::string_view datagram, std::uint16_t identifier) {
    DatagramReader reader = {datagram};
    const bool ours = reader.take_u16() == identifier;
    // The response bit set and the response code 0 (RFC 1035 4.1.1).
    const bool good = (reader.take_u16() & 0x800F) == 0x8000;
    const int questions = reader.take_u16();
    const int answers = reader.take_u16();
    reader.take(4);  // The counts of the sections that are not read.
    if (!reader.ok || !ours || !good) return malformed();
    if (questions > kMaxQuestions || answers > kMaxAnswers) return malformed();

    for (int i = 0; i < questions; ++i) {
        reader.skip_name();
        reader.take(4);  // Type and class.
    }
    DnsAnswer answer = {.ok = true};
    for (int i = 0; i < answers; ++i) {
        reader.skip_name();
        const std::uint16_t type = reader.take_u16();
        const std::uint16_t record_class = reader.take_u16();
        reader.take(4);  // Time to live.
        const std::string_view data = reader.take(reader.take_u16());
        if (record_class != kClassIn) continue;
        if (type == kDnsTypeA && data.size() == 4) {
            answer.addresses.push_back(format_ipv4(address_from<Ipv4Address>(data)));
        } else if (type == kDnsTypeAaaa && data.size() == 16) {
            answer.addresses.push_back(format_ipv6(address_from<Ipv6Address>(data)));
        }
    }
    if (!reader.ok) return malformed();
    return answer;
}

}  // namespace quorvane
