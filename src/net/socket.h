#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "support/bytes.h"
#include "support/fd.h"

/// TCP with time limits, straight on Linux system calls.
///
/// Times are in milliseconds, and a limit bounds one wait, not a complete transfer.  Ports are in
/// host byte order.  Failures are negated errno values: that of the failing call, -EINVAL for an
/// argument outside its range (nothing was opened), -ETIMEDOUT for a connect or a send whose wait
/// ran out.  EINTR is retried by a wait and by `accept_connection`, and nowhere else.  Every
/// descriptor is close-on-exec.  Results own their descriptor; functions that take a plain `int fd`
/// only borrow it.
namespace quorvane {

/// The longest single connect, send or receive wait that is accepted.
inline constexpr std::int64_t kMaxSocketWaitMs = 10'000;

/// The longest wait that `wait_ready` and the socket's own limits accept.
inline constexpr std::int64_t kMaxReadyWaitMs = 600'000;

/// The most bytes that one `receive_some` takes.
inline constexpr std::int64_t kMaxReceiveBytes = 1'048'576;

/// A stream socket in blocking mode.
struct ConnectResult {
    bool ok = false;
    FdHandle fd = {};  ///< Valid exactly when `ok`.
    long error = 0;    ///< 0 when `ok`, else a negated errno value.
};

/// Connects to a dotted-decimal literal; names are never resolved.  The socket sends small pieces
/// at once (TCP_NODELAY), where the system permits that.  `port` is 1 to kMaxPort, `timeout_ms` 1
/// to kMaxSocketWaitMs.  A refused connection fails at once, a silent peer after `timeout_ms`.
[[nodiscard]] ConnectResult connect_ipv4(std::string_view address, std::int32_t port,
                                         std::int64_t timeout_ms);

/// The same for the literal forms of `parse_ipv6`.
[[nodiscard]] ConnectResult connect_ipv6(std::string_view address, std::int32_t port,
                                         std::int64_t timeout_ms);

/// Listens on a dotted-decimal address; the result's socket is a listening one in blocking mode.
/// `port` is 0 (the kernel picks one) to kMaxPort, `backlog` 1 to 4096.  The address of a closed
/// listener can be used again at once (SO_REUSEADDR); with `reuse_port` several listeners can share
/// one.
[[nodiscard]] ConnectResult open_listener(std::string_view address, std::int32_t port,
                                          std::int32_t backlog = 128, bool reuse_port = false);

/// The port that an IPv4 socket is bound to, or nothing when the kernel does not tell.
[[nodiscard]] std::optional<std::int32_t> listener_port(int fd);

/// Takes one waiting connection, which is in blocking mode whichever mode the listener is in.  A
/// listener in blocking mode waits for one without limit; another gives nothing if there is none.
[[nodiscard]] std::optional<FdHandle> accept_connection(int fd);

/// Adds O_NONBLOCK to the descriptor's flags.
[[nodiscard]] bool set_non_blocking(int fd);

/// Waits for one of `events` (POLLIN, POLLOUT) or a failure on `fd`, at most `timeout_ms`
/// (0 to kMaxReadyWaitMs).  Returns the events, 0 when the wait ran out, or a negated errno value.
[[nodiscard]] long wait_ready(int fd, std::int32_t events, std::int64_t timeout_ms);

/// Sends every byte and returns 0, or a negated errno value: -ETIMEDOUT when the peer takes nothing
/// for `timeout_ms` (1 to kMaxSocketWaitMs), -EPIPE, without a signal, when it has closed.
[[nodiscard]] long send_all(int fd, std::string_view bytes,
                            std::int64_t timeout_ms = kMaxSocketWaitMs);

/// The result of one read.  At most one of the last three fields is set; with none of them
/// `received_bytes` is positive.
struct ReceiveResult {
    std::int64_t received_bytes = 0;  ///< Bytes appended.
    bool end_of_stream = false;       ///< The peer closed its side.
    bool timed_out = false;           ///< Nothing arrived in time.
    long error = 0;                   ///< 0, or a negated errno value.
};

/// Waits at most `timeout_ms` (1 to kMaxSocketWaitMs) for something to read, then appends up to
/// `max_bytes` (1 to kMaxReceiveBytes) of it to `into` by a single read.
[[nodiscard]] ReceiveResult receive_some(int fd, ByteBuffer& into, std::int64_t max_bytes,
                                         std::int64_t timeout_ms);

/// Bounds every blocking send and receive on `fd`, for code that waits inside the socket call
/// itself: such a call then fails with EAGAIN after `timeout_ms` (1 to kMaxReadyWaitMs).
[[nodiscard]] bool set_socket_timeouts(int fd, std::int64_t timeout_ms);

/// Ends a connection on which a response has just been sent, so that the peer can read it.  The
/// writing side is shut, what the peer still sends is read and dropped until it closes, at most
/// 64 KiB and for at most `timeout_ms`, and the socket is closed.  (Closing it over unread bytes
/// makes the kernel send a reset, which can overtake the response.)
void finish_connection(FdHandle fd, std::int64_t timeout_ms = 500);

}  // namespace quorvane
