#include "net/socket.h"

#include <netinet/tcp.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "net/address.h"
#include "support/clock.h"

namespace quorvane {
namespace {

constexpr std::int64_t kMaxDrainBytes = 65'536;

bool in_range(std::int64_t value, std::int64_t least, std::int64_t most) {
    return value >= least && value <= most;
}

long switch_on(int fd, int level, int option) {
    const int on = 1;
    return kernel::setsockopt(fd, level, option, &on, sizeof on);
}

// "Writable" also means "refused": SO_ERROR tells which (connect(2), EINPROGRESS).
long wait_for_connect(int fd, std::int64_t timeout_ms) {
    const long ready = wait_ready(fd, POLLOUT, timeout_ms);
    if (ready <= 0) return ready == 0 ? -ETIMEDOUT : ready;
    int pending = 0;
    socklen_t size = sizeof pending;
    const long status = kernel::getsockopt(fd, SOL_SOCKET, SO_ERROR, &pending, &size);
    return status < 0 ? status : -static_cast<long>(pending);
}

// `address` is empty when its text was no literal.
template <typename Address>
ConnectResult connect_address(const std::optional<Address>& address, std::int32_t port,
                              std::int64_t timeout_ms) {
    if (!address || !in_range(port, 1, kMaxPort)) return {.error = -EINVAL};
    if (!in_range(timeout_ms, 1, kMaxSocketWaitMs)) return {.error = -EINVAL};
    const SocketAddress target = make_socket_address(*address, port);
    const int type = SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC;
    const long opened = kernel::socket(target.family(), type, 0);
    if (opened < 0) return {.error = opened};
    FdHandle fd(opened);

    long status = kernel::connect(fd.get(), &target, target.size);
    if (status == -EINPROGRESS) status = wait_for_connect(fd.get(), timeout_ms);
    if (status < 0) return {.error = status};

    // Readers poll before every read, so from here on the socket may block.
    status = kernel::fcntl(fd.get(), F_SETFL, 0);
    if (status < 0) return {.error = status};
    // Without this the last piece of a large request waits 40 ms for the peer's delayed
    // acknowledgement (RFC 896 against RFC 1122 4.2.3.2); where it is refused, nothing else
    // changes.
    static_cast<void>(switch_on(fd.get(), IPPROTO_TCP, TCP_NODELAY));
    return {.ok = true, .fd = std::move(fd)};
}

}  // namespace

ConnectResult connect_ipv4(std::string_view address, std::int32_t port, std::int64_t timeout_ms) {
    return connect_address(parse_ipv4(address), port, timeout_ms);
}

ConnectResult connect_ipv6(std::string_view address, std::int32_t port, std::int64_t timeout_ms) {
    return connect_address(parse_ipv6(address), port, timeout_ms);
}

ConnectResult open_listener(std::string_view address, std::int32_t port, std::int32_t backlog,
                            bool reuse_port) {
    const std::optional<Ipv4Address> parsed = parse_ipv4(address);
    if (!parsed || !in_range(port, 0, kMaxPort)) return {.error = -EINVAL};
    if (!in_range(backlog, 1, 4096)) return {.error = -EINVAL};

    const long opened = kernel::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (opened < 0) return {.error = opened};
    FdHandle fd(opened);
    const SocketAddress local = make_socket_address(*parsed, port);
    long status = switch_on(fd.get(), SOL_SOCKET, SO_REUSEADDR);
    if (status >= 0 && reuse_port) status = switch_on(fd.get(), SOL_SOCKET, SO_REUSEPORT);
    if (status >= 0) status = kernel::bind(fd.get(), &local, local.size);
    if (status >= 0) status = kernel::listen(fd.get(), backlog);
    if (status < 0) return {.error = status};
    return {.ok = true, .fd = std::move(fd)};
}

std::optional<std::int32_t> listener_port(int fd) {
    SocketAddress local;
    if (kernel::getsockname(fd, &local, &local.size) < 0) return std::nullopt;
    if (local.family() != AF_INET) return std::nullopt;
    return ntohs(local.ipv4.sin_port);
}

std::optional<FdHandle> accept_connection(int fd) {
    long accepted = 0;
    do accepted = kernel::accept4(fd, SOCK_CLOEXEC);
    while (accepted == -EINTR);
    if (accepted < 0) return std::nullopt;
    return FdHandle(accepted);
}

bool set_non_blocking(int fd) {
    const long flags = kernel::fcntl(fd, F_GETFL);
    return flags >= 0 && kernel::fcntl(fd, F_SETFL, flags | O_NONBLOCK) >= 0;
}

long wait_ready(int fd, std::int32_t events, std::int64_t timeout_ms) {
    if (!in_range(timeout_ms, 0, kMaxReadyWaitMs)) return -EINVAL;
    pollfd waiting = {fd, static_cast<short>(events), 0};
    long status = 0;
    do status = kernel::poll(&waiting, 1, timeout_ms);
    while (status == -EINTR);
    return status > 0 ? waiting.revents : status;
}

long send_all(int fd, std::string_view bytes, std::int64_t timeout_ms) {
    if (!in_range(timeout_ms, 1, kMaxSocketWaitMs)) return -EINVAL;
    while (!bytes.empty()) {
        // The wait is a poll of our own: SO_SNDTIMEO would start again after every partial send,
        // and a peer that stops reading could delay us for twice the limit.
        const long sent =
            kernel::sendto(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent == -EAGAIN) {
            const long ready = wait_ready(fd, POLLOUT, timeout_ms);
            if (ready <= 0) return ready == 0 ? -ETIMEDOUT : ready;
            continue;
        }
        if (sent < 0) return sent;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return 0;
}

ReceiveResult receive_some(int fd, ByteBuffer& into, std::int64_t max_bytes,
                           std::int64_t timeout_ms) {
    if (!in_range(max_bytes, 1, kMaxReceiveBytes)) return {.error = -EINVAL};
    if (!in_range(timeout_ms, 1, kMaxSocketWaitMs)) return {.error = -EINVAL};

    const long ready = wait_ready(fd, POLLIN, timeout_ms);
    if (ready < 0) return {.error = ready};
    if (ready == 0) return {.timed_out = true};
    const auto size = static_cast<std::size_t>(max_bytes);
    const long received_bytes = kernel::read(fd, into.spare(size), size);
    if (received_bytes < 0) return {.error = received_bytes};
    into.commit(static_cast<std::size_t>(received_bytes));
    return {.received_bytes = received_bytes, .end_of_stream = received_bytes == 0};
}

bool set_socket_timeouts(int fd, std::int64_t timeout_ms) {
    if (!in_range(timeout_ms, 1, kMaxReadyWaitMs)) return false;
    const timeval limit = {timeout_ms / 1000, timeout_ms % 1000 * 1000};
    return kernel::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) >= 0 &&
           kernel::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) >= 0;
}

void finish_connection(FdHandle fd, std::int64_t timeout_ms) {
    static_cast<void>(kernel::shutdown(fd.get(), SHUT_WR));
    const std::int64_t deadline_ms = monotonic_ms() + timeout_ms;
    ByteBuffer dropped;
    while (std::ssize(dropped.view()) < kMaxDrainBytes) {
        const std::int64_t left_ms = std::min(deadline_ms - monotonic_ms(), kMaxSocketWaitMs);
        const std::int64_t left_bytes = kMaxDrainBytes - std::ssize(dropped.view());
        if (left_ms < 1 || receive_some(fd.get(), dropped, left_bytes, left_ms).received_bytes == 0)
            break;
    }
}

}  // namespace quorvane
