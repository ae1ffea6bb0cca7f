#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// DNS queries and responses (RFC 1035 4) as bytes; no I/O.
namespace quorvane {

inline constexpr std::uint16_t kDnsTypeA = 1;
inline constexpr std::uint16_t kDnsTypeAaaa = 28;

/// The host as labels, each after a byte with its length, ended by a zero byte.  A label has 1 to
/// 63 bytes and the host at most 253; one dot at its end is ignored, and any byte but "." is
/// accepted.
[[nodiscard]] std::optional<std::string> encode_dns_name(std::string_view host);

/// A query with one question in class IN, recursion desired.  `type` is kDnsTypeA or kDnsTypeAaaa.
[[nodiscard]] std::optional<std::string> build_dns_query(std::string_view host,
                                                         std::uint16_t identifier,
                                                         std::uint16_t type);

/// The result of one query.
struct DnsAnswer {
    bool ok = false;                          ///< A valid response; it may hold no address.
    std::vector<std::string> addresses = {};  ///< Texts, in the order of the answer section.
    bool timed_out = false;                   ///< No response came in time.
    long error = 0;                           ///< A negated errno value; 0 when there is none.
};

/// Reads the addresses of a response: every A and AAAA record of class IN, whatever the question
/// was and whichever name owns the record, so that an alias before them does no harm.  IPv6
/// addresses are written in eight groups.
///
/// The answer is not ok, with -EBADMSG and no address, for another identifier, a message that is no
/// response, a response code other than 0, more than 16 questions or 256 answers, a name of 127 or
/// more steps (labels and compression pointers), and any part that is not inside the datagram.  The
/// truncation bit is ignored.
[[nodiscard]] DnsAnswer parse_dns_response(std::string_view datagram, std::uint16_t identifier);

}  // namespace quorvane
