#include "net/socket.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>

#include "support/clock.h"

namespace quorvane {
namespace {

struct Listening {
    FdHandle fd;
    std::int32_t port = 0;
};

Listening listen_on_loopback(std::int32_t backlog = 8) {
    ListenResult opened = open_listener("127.0.0.1", 0, backlog);
    const std::int32_t port = listener_port(opened.fd.get()).value_or(0);
    return {std::move(opened.fd), port};
}

/// Two connected sockets.
struct Pair {
    Listening listener = listen_on_loopback();
    ConnectResult client = connect_ipv4("127.0.0.1", listener.port, 1000);
    FdHandle server = accept_connection(listener.fd.get());
};

// The lowest free descriptor stays the same when nothing was left open.
int next_descriptor() { return FdHandle(kernel::open("/dev/null", O_RDONLY)).get(); }

TEST(Connect, RefusesArgumentsOutOfRange) {
    const Listening listener = listen_on_loopback();
    const struct {
        const char* address;
        std::int32_t port;
        std::int64_t timeout_ms;
    } cases[] = {{"127.0.0.1", 0, 1000},
                 {"127.0.0.1", 65536, 1000},
                 {"127.0.0.1", -1, 1000},
                 {"127.0.0.1", listener.port, 0},
                 {"127.0.0.1", listener.port, 10'001},
                 {"localhost", listener.port, 1000}};
    for (const auto& c : cases) {
        EXPECT_EQ(connect_ipv4(c.address, c.port, c.timeout_ms).error, -EINVAL) << c.address;
        EXPECT_EQ(connect_ipv6("::1", c.port, c.timeout_ms == 1000 ? 0 : c.timeout_ms).error,
                  -EINVAL);
    }
    EXPECT_EQ(connect_ipv6("127.0.0.1", listener.port, 1000).error, -EINVAL);
    EXPECT_TRUE(connect_ipv4("127.0.0.1", listener.port, 10'000).ok);
}

TEST(Connect, GivesABlockingSocketThatSendsAtOnce) {
    const Pair pair;
    ASSERT_TRUE(pair.client.ok);
    const int fd = pair.client.fd.get();
    EXPECT_EQ(kernel::fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(kernel::fcntl(fd, F_GETFD), FD_CLOEXEC);
    int no_delay = 0;
    socklen_t size = sizeof no_delay;
    ASSERT_EQ(kernel::getsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &no_delay, &size), 0);
    EXPECT_EQ(no_delay, 1);
    EXPECT_EQ(kernel::fcntl(pair.server.get(), F_GETFD), FD_CLOEXEC);
}

TEST(Connect, FailsAtOnceWhenRefusedAndInTimeWhenSilent) {
    Listening listener = listen_on_loopback(1);
    const int before = next_descriptor();
    // Nobody accepts: once the queue is full the kernel drops further attempts in silence.
    std::vector<ConnectResult> waiting;
    for (int i = 0; i < 8 && (waiting.empty() || waiting.back().ok); ++i) {
        waiting.push_back(connect_ipv4("127.0.0.1", listener.port, 50));
    }
    EXPECT_EQ(waiting.back().error, -ETIMEDOUT);
    EXPECT_FALSE(waiting.back().fd.valid());
    waiting.clear();
    EXPECT_EQ(next_descriptor(), before);

    listener.fd.close();
    const std::int64_t start = monotonic_ms();
    EXPECT_EQ(connect_ipv4("127.0.0.1", listener.port, 10'000).error, -ECONNREFUSED);
    EXPECT_EQ(connect_ipv6("::1", listener.port, 10'000).error, -ECONNREFUSED);
    EXPECT_LT(monotonic_ms() - start, 5'000);
    EXPECT_EQ(next_descriptor(), before - 1);
}

TEST(OpenListener, ChecksItsArguments) {
    EXPECT_EQ(open_listener("localhost", 0).error, -EINVAL);
    EXPECT_EQ(open_listener("127.0.0.1", 65536).error, -EINVAL);
    EXPECT_EQ(open_listener("127.0.0.1", 0, 0).error, -EINVAL);
    EXPECT_EQ(open_listener("127.0.0.1", 0, 4097).error, -EINVAL);
    EXPECT_TRUE(open_listener("0.0.0.0", 0, 4096).ok);

    const ListenResult first = open_listener("127.0.0.1", 0, 1, true);
    const std::int32_t port = listener_port(first.fd.get()).value_or(0);
    EXPECT_EQ(open_listener("127.0.0.1", port, 1, false).error, -EADDRINUSE);
    EXPECT_TRUE(open_listener("127.0.0.1", port, 1, true).ok);
    EXPECT_FALSE(listener_port(-1).has_value());
}

TEST(Accept, AnswersEmptyWhenNobodyWaits) {
    const Listening listener = listen_on_loopback();
    ASSERT_TRUE(set_non_blocking(listener.fd.get()));
    EXPECT_FALSE(accept_connection(listener.fd.get()).valid());
    EXPECT_FALSE(set_non_blocking(-1));
}

TEST(WaitReady, BoundsItsLimit) {
    const Pair pair;
    EXPECT_EQ(wait_ready(pair.server.get(), POLLIN, -1), -EINVAL);
    EXPECT_EQ(wait_ready(pair.server.get(), POLLIN, 600'001), -EINVAL);
    EXPECT_EQ(wait_ready(pair.server.get(), POLLIN, 0), 0);
    EXPECT_EQ(wait_ready(pair.server.get(), POLLOUT, 600'000), POLLOUT);
}

TEST(ReceiveSome, TellsDataTimeOutAndEndApart) {
    Pair pair;
    const int fd = pair.server.get();
    ByteBuffer got = ByteBuffer::copy_of(">");
    EXPECT_EQ(receive_some(fd, got, 0, 1).error, -EINVAL);
    EXPECT_EQ(receive_some(fd, got, 1'048'577, 1).error, -EINVAL);
    EXPECT_EQ(receive_some(fd, got, 1, 0).error, -EINVAL);
    EXPECT_EQ(receive_some(fd, got, 1, 10'001).error, -EINVAL);
    EXPECT_TRUE(receive_some(fd, got, 1, 1).timed_out);

    ASSERT_EQ(send_all(pair.client.fd.get(), "abc"), 0);
    EXPECT_EQ(receive_some(fd, got, 2, 1000).count, 2);
    EXPECT_EQ(receive_some(fd, got, 1'048'576, 1000).count, 1);
    EXPECT_EQ(got.view(), ">abc");
    pair.client.fd.close();
    EXPECT_TRUE(receive_some(fd, got, 1, 1000).end_of_stream);
}

TEST(SendAll, SendsAllOrSaysWhyNot) {
    Pair pair;
    const std::string large(16U << 20, 'x');
    std::thread reader([&] {
        ByteBuffer got;
        while (receive_some(pair.server.get(), got, 65'536, 5000).count > 0) {
        }
        EXPECT_TRUE(got.view() == large);
        pair.server.close();
    });
    EXPECT_EQ(send_all(pair.client.fd.get(), large), 0);
    kernel::shutdown(pair.client.fd.get(), SHUT_WR);
    reader.join();
    EXPECT_EQ(send_all(pair.client.fd.get(), large), -EPIPE);

    // A peer that never reads: one limit, not one for every piece that its buffers took.
    const Pair silent;
    const std::int64_t start = monotonic_ms();
    EXPECT_EQ(send_all(silent.client.fd.get(), large, 400), -ETIMEDOUT);
    EXPECT_LT(monotonic_ms() - start, 750);
    EXPECT_EQ(send_all(silent.client.fd.get(), "", 0), -EINVAL);
}

TEST(FinishConnection, TheAnswerArrivesOverUnreadBytes) {
    Pair pair;
    ASSERT_EQ(send_all(pair.client.fd.get(), std::string(20'000, 'r')), 0);
    ASSERT_EQ(send_all(pair.server.get(), "answer"), 0);
    const std::int64_t start = monotonic_ms();
    finish_connection(std::move(pair.server), 100);
    EXPECT_LT(monotonic_ms() - start, 5'000);
    ByteBuffer got;
    EXPECT_EQ(receive_some(pair.client.fd.get(), got, 100, 1000).count, 6);
    EXPECT_TRUE(receive_some(pair.client.fd.get(), got, 100, 1000).end_of_stream);
}

}  // namespace
}  // namespace quorvane
