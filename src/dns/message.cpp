#include "dns/message.h"

#include <algorithm>
#include <cerrno>

#include "net/address.h"
#include "support/text.h"

namespace quorvane {
namespace {

constexpr std::size_t kHeaderBytes = 12;
constexpr std::size_t kMaxNameBytes = 253;
constexpr std::size_t kMaxLabelBytes = 63;
constexpr int kNameStepLimit = 127;
constexpr int kMaxQuestions = 16;
constexpr int kMaxAnswers = 256;
constexpr std::uint16_t kClassIn = 1;

void append_u16(std::string& bytes, std::uint16_t value) {
    bytes += static_cast<char>(value >> 8);
    bytes += static_cast<char>(value & 0xFF);
}

std::uint8_t byte_at(std::string_view bytes, std::size_t offset) {
    return static_cast<std::uint8_t>(bytes[offset]);
}

/// The two bytes at `offset` lie inside.
std::uint16_t u16_at(std::string_view bytes, std::size_t offset) {
    return static_cast<std::uint16_t>(byte_at(bytes, offset) << 8 | byte_at(bytes, offset + 1));
}

/// True when `count` more bytes lie inside; `offset` is at most the size.
bool has_bytes(std::string_view bytes, std::size_t offset, std::size_t count) {
    return count <= bytes.size() - offset;
}

/// The offset just behind the name at `offset`, which is at most the size.  Pointers are followed,
/// so that a name is refused wherever its labels lie.
std::optional<std::size_t> skip_name(std::string_view datagram, std::size_t offset) {
    std::optional<std::size_t> end;
    for (int steps = 0; steps < kNameStepLimit; ++steps) {
        if (offset >= datagram.size()) return std::nullopt;
        const std::uint8_t length = byte_at(datagram, offset);
        if (length == 0) return end ? end : offset + 1;
        if (length >= 0xC0) {
            // RFC 1035 4.1.4: a pointer ends the name here.
            if (!has_bytes(datagram, offset, 2)) return std::nullopt;
            if (!end) end = offset + 2;
            offset = u16_at(datagram, offset) & 0x3FFFU;
        } else {
            if (length > kMaxLabelBytes) return std::nullopt;
            offset += 1U + length;  // Past the end the next step refuses it.
        }
    }
    return std::nullopt;
}

template <typename Address>
Address address_from(std::string_view data) {
    Address address;
    std::transform(data.begin(), data.end(), address.bytes.begin(),
                   [](char byte) { return static_cast<std::uint8_t>(byte); });
    return address;
}

struct DnsRecord {
    std::uint16_t type = 0;
    std::uint16_t record_class = 0;
    std::string_view data;
    std::size_t end = 0;  ///< The offset just behind it.
};

std::optional<DnsRecord> read_record(std::string_view datagram, std::size_t offset) {
    constexpr std::size_t kFixedBytes = 10;
    const std::optional<std::size_t> fixed = skip_name(datagram, offset);
    if (!fixed || !has_bytes(datagram, *fixed, kFixedBytes)) return std::nullopt;
    const std::size_t begin = *fixed + kFixedBytes;
    const std::size_t length = u16_at(datagram, *fixed + 8);
    if (!has_bytes(datagram, begin, length)) return std::nullopt;
    return DnsRecord{.type = u16_at(datagram, *fixed),
                     .record_class = u16_at(datagram, *fixed + 2),
                     .data = datagram.substr(begin, length),
                     .end = begin + length};
}

void add_address(std::vector<std::string>& addresses, const DnsRecord& record) {
    if (record.record_class != kClassIn) return;
    if (record.type == kDnsTypeA && record.data.size() == 4) {
        addresses.push_back(format_ipv4(address_from<Ipv4Address>(record.data)));
    } else if (record.type == kDnsTypeAaaa && record.data.size() == 16) {
        addresses.push_back(format_ipv6(address_from<Ipv6Address>(record.data)));
    }
}

std::optional<std::size_t> skip_questions(std::string_view datagram, int count) {
    std::size_t offset = kHeaderBytes;
    for (int i = 0; i < count; ++i) {
        const std::optional<std::size_t> end = skip_name(datagram, offset);
        if (!end || !has_bytes(datagram, *end, 4)) return std::nullopt;
        offset = *end + 4;
    }
    return offset;
}

std::optional<std::vector<std::string>> read_addresses(std::string_view datagram,
                                                       std::uint16_t identifier) {
    if (datagram.size() < kHeaderBytes || u16_at(datagram, 0) != identifier) return std::nullopt;
    // The response bit set and the response code 0 (RFC 1035 4.1.1).
    if ((u16_at(datagram, 2) & 0x800F) != 0x8000) return std::nullopt;
    const int questions = u16_at(datagram, 4);
    const int answers = u16_at(datagram, 6);
    if (questions > kMaxQuestions || answers > kMaxAnswers) return std::nullopt;

    std::optional<std::size_t> offset = skip_questions(datagram, questions);
    if (!offset) return std::nullopt;
    std::vector<std::string> addresses;
    for (int i = 0; i < answers; ++i) {
        const std::optional<DnsRecord> record = read_record(datagram, *offset);
        if (!record) return std::nullopt;
        add_address(addresses, *record);
        offset = record->end;
    }
    return addresses;
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
    std::optional<std::vector<std::string>> addresses = read_addresses(datagram, identifier);
    DnsAnswer answer;
    answer.ok = addresses.has_value();
    if (addresses) {
        answer.addresses = std::move(*addresses);
    } else {
        answer.error = EBADMSG;
    }
    return answer;
}

}  // namespace quorvane
