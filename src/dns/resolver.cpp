#include "dns/resolver.h"

#include <netinet/in.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "dns/name_server.h"
#include "net/address.h"
#include "net/socket.h"
#include "support/clock.h"
#include "support/fd.h"
#include "support/files.h"
#include "support/random.h"

namespace quorvane {
namespace {

constexpr std::int32_t kDnsPort = 53;
constexpr std::size_t kMaxDatagramBytes = 4096;

// One query.
struct DnsQuestion {
    std::string_view host;
    std::uint16_t type = kDnsTypeA;
    std::uint16_t identifier = 0;
    std::int64_t timeout_ms = kDefaultDnsTimeoutMs;
    std::string_view name_server;  // An IPv4 literal.
};

// RFC 1122 3.2.1.3: 127.0.0.0/8 never leaves this machine, nor does what is sent to 0.0.0.0.
bool is_local(const sockaddr_in& endpoint) {
    const std::uint32_t address = ntohl(endpoint.sin_addr.s_addr);
    return address >> 24 == 127 || address == INADDR_ANY;
}

// A server that listens on every address of this machine answers from 127.0.0.1, whichever of its
// local addresses it was asked at, so all of them are one server.
bool is_from(const sockaddr_in& sender, const sockaddr_in& server) {
    if (sender.sin_family != server.sin_family || sender.sin_port != server.sin_port) return false;
    return sender.sin_addr.s_addr == server.sin_addr.s_addr ||
           (is_local(sender) && is_local(server));
}

DnsAnswer receive_response(int fd, const SocketAddress& server, const DnsQuestion& question) {
    const std::int64_t deadline_ms = monotonic_ms() + question.timeout_ms;
    for (;;) {
        const std::int64_t left_ms = deadline_ms - monotonic_ms();
        const long ready = left_ms < 0 ? 0 : wait_ready(fd, POLLIN, left_ms);
        if (ready < 0) return {.error = ready};
        if (ready == 0) return {.timed_out = true};

        char datagram[kMaxDatagramBytes];
        SocketAddress sender;
        const long received_bytes =
            kernel::recvfrom(fd, datagram, sizeof datagram, MSG_DONTWAIT, &sender, &sender.size);
        // recvfrom(2): the datagram that made the socket readable may be damaged and dropped.
        if (received_bytes == -EAGAIN) continue;
        if (received_bytes < 0) return {.error = received_bytes};
        if (!is_from(sender.ipv4, server.ipv4)) continue;
        const std::string_view received(datagram, static_cast<std::size_t>(received_bytes));
        return parse_dns_response(received, question.identifier);
    }
}

DnsAnswer ask_name_server(DnsQuestion question) {
    const std::optional<Ipv4Address> address = parse_ipv4(question.name_server);
    const bool timeout_fits = question.timeout_ms >= 0 && question.timeout_ms <= kMaxReadyWaitMs;
    if (!address || !timeout_fits) return {.error = -EINVAL};
    // Built first, because for a bad name nothing is drawn or sent.
    std::optional<std::string> query = build_dns_query(question.host, 0, question.type);
    if (!query) return {.error = -EINVAL};
    const std::optional<std::string> identifier = secure_random_bytes(2);
    if (!identifier) return {.error = -EIO};
    std::ranges::copy(*identifier, query->begin());
    question.identifier =
        static_cast<std::uint16_t>(static_cast<std::uint8_t>(identifier->front()) << 8 |
                                   static_cast<std::uint8_t>(identifier->back()));

    const long opened = kernel::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (opened < 0) return {.error = opened};
    const FdHandle fd(opened);
    const SocketAddress server = make_socket_address(*address, kDnsPort);
    const SocketAddress local = make_socket_address(Ipv4Address(), 0);
    // ip(7): this reports at once that nothing listens there; without it, or where it is refused,
    // that takes the time limit.
    const int on = 1;
    static_cast<void>(kernel::setsockopt(fd.get(), IPPROTO_IP, IP_RECVERR, &on, sizeof on));
    long status = kernel::bind(fd.get(), &local, local.size);
    const std::string_view datagram = *query;
    if (status >= 0) {
        status = kernel::sendto(fd.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL, &server,
                                server.size);
    }
    if (status < 0) return {.error = status};
    return receive_response(fd.get(), server, question);
}

}  // namespace

ResolveResult resolve_host(std::string_view host, std::int64_t timeout_ms,
                           std::string_view name_server) {
    const std::string server = name_server.empty() ? read_name_server() : std::string(name_server);
    DnsQuestion question = {host, kDnsTypeAaaa, 0, timeout_ms, server};
    const DnsAnswer ipv6 = ask_name_server(question);
    question.type = kDnsTypeA;
    const DnsAnswer ipv4 = ask_name_server(question);

    ResolveResult result = ipv6;
    result.addresses.insert(result.addresses.end(), ipv4.addresses.begin(), ipv4.addresses.end());
    result.ok = ipv6.ok || ipv4.ok;
    result.timed_out = ipv6.timed_out && ipv4.timed_out;
    if (ipv4.error != 0) result.error = ipv4.error;
    if (result.ok) result.error = 0;
    return result;
}

std::string read_name_server() {
    const ByteBuffer file = read_whole_file("/etc/resolv.conf");
    return std::string(choose_name_server(file.view()));
}

}  // namespace quorvane
