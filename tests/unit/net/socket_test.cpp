#include "net/socket.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>

#include <string>
#include <thread>

#include "support/clock.h"

namespace quorvane {
namespace {

struct Listening {
    explicit Listening(std::int32_t backlog = 8) : fd(open_listener("127.0.0.1", 0, backlog).fd) {}
    FdHandle fd;
    std::int32_t port = listener_port(fd.get()).value_or(0);
};

struct Pair {
    Listening listener;
    ConnectResult client = connect_ipv4("127.0.0.1", listener.port, 10'000);
    FdHandle server = accept_connection(listener.fd.get());
};

// The lowest free descriptor stays the same when nothing was left open.
int next_descriptor() { return FdHandle(kernel::open("/dev/null", O_RDONLY)).get(); }

TEST(Sockets, RefuseArgumentsOutOfRange) {
    const Pair pair;
    const std::int32_t good_port = pair.listener.port;
    for (const std::int32_t port : {-1, 0, 65'536}) {
        EXPECT_EQ(connect_ipv4("127.0.0.1", port, 1000).error, -EINVAL);
        EXPECT_EQ(connect_ipv6("::1", port, 1000).error, -EINVAL);
    }
    ByteBuffer got;
    for (const std::int64_t timeout_ms : {0, 10'001}) {
        EXPECT_EQ(connect_ipv4("127.0.0.1", good_port, timeout_ms).error, -EINVAL);
        EXPECT_EQ(connect_ipv6("::1", good_port, timeout_ms).error, -EINVAL);
        EXPECT_EQ(receive_some(pair.server.get(), got, 1, timeout_ms).error, -EINVAL);
        EXPECT_EQ(send_all(pair.server.get(), "", timeout_ms), -EINVAL);
    }
    EXPECT_EQ(connect_ipv4("localhost", good_port, 1000).error, -EINVAL);
    EXPECT_EQ(connect_ipv6("127.0.0.1", good_port, 1000).error, -EINVAL);
    EXPECT_EQ(open_listener("localhost", 0).error, -EINVAL);
    EXPECT_EQ(open_listener("127.0.0.1", 65'536).error, -EINVAL);
    EXPECT_EQ(open_listener("127.0.0.1", 0, 0).error, -EINVAL);
    EXPECT_EQ(open_listener("127.0.0.1", 0, 4097).error, -EINVAL);
    EXPECT_EQ(receive_some(pair.server.get(), got, 0, 1).error, -EINVAL);
    EXPECT_EQ(receive_some(pair.server.get(), got, 1'048'577, 1).error, -EINVAL);
    EXPECT_EQ(wait_ready(pair.server.get(), POLLIN, -1), -EINVAL);
    EXPECT_EQ(wait_ready(pair.server.get(), POLLOUT, 600'001), -EINVAL);
    EXPECT_EQ(wait_ready(pair.server.get(), POLLOUT, 600'000), POLLOUT);
}

TEST(Connect, GivesABlockingSocketThatSendsAtOnce) {
    const Pair pair;
    const int fd = pair.client.fd.get();
    EXPECT_EQ(kernel::fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(kernel::fcntl(fd, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(kernel::fcntl(pair.server.get(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(kernel::fcntl(pair.listener.fd.get(), F_GETFD), FD_CLOEXEC);
    int no_delay = 0;
    socklen_t size = sizeof no_delay;
    EXPECT_EQ(kernel::getsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &no_delay, &size), 0);
    EXPECT_EQ(no_delay, 1);
}

TEST(Connect, FailsAtOnceWhenRefusedAndInTimeWhenSilent) {
    Listening listener(1);
    const int before = next_descriptor();
    {
        // Nobody accepts: once the queue is full the kernel drops further attempts in silence.
        std::vector<ConnectResult> waiting(1);
        do waiting.push_back(connect_ipv4("127.0.0.1", listener.port, 50));
        while (waiting.back().ok && waiting.size() < 9);
        EXPECT_EQ(waiting.back().error, -ETIMEDOUT);
    }
    listener.fd.close();
    const std::int64_t start = monotonic_ms();
    EXPECT_EQ(connect_ipv4("127.0.0.1", listener.port, 10'000).error, -ECONNREFUSED);
    EXPECT_EQ(connect_ipv6("::1", listener.port, 10'000).error, -ECONNREFUSED);
    EXPECT_LT(monotonic_ms() - start, 5'000);
    EXPECT_EQ(next_descriptor(), before - 1);
}

TEST(Listener, SharesItsPortAndAnswersEmptyHanded) {
    const ListenResult first = open_listener("127.0.0.1", 0, 4096, true);
    const std::int32_t port = listener_port(first.fd.get()).value_or(0);
    EXPECT_EQ(open_listener("127.0.0.1", port).error, -EADDRINUSE);
    EXPECT_TRUE(open_listener("127.0.0.1", port, 1, true).ok);
    EXPECT_FALSE(listener_port(-1).has_value());
    EXPECT_TRUE(set_non_blocking(first.fd.get()));
    EXPECT_FALSE(accept_connection(first.fd.get()).valid());
}

TEST(ReceiveSome, TellsDataTimeOutAndEndApart) {
    Pair pair;
    const int fd = pair.server.get();
    ByteBuffer got = ByteBuffer::copy_of(">");
    EXPECT_TRUE(receive_some(fd, got, 1, 1).timed_out);

    EXPECT_EQ(send_all(pair.client.fd.get(), "abc"), 0);
    EXPECT_EQ(receive_some(fd, got, 2, 10'000).count, 2);
    EXPECT_EQ(receive_some(fd, got, 1'048'576, 10'000).count, 1);
    EXPECT_EQ(got.view(), ">abc");
    pair.client.fd.close();
    EXPECT_TRUE(receive_some(fd, got, 1, 10'000).end_of_stream);
}

TEST(SendAll, SendsAllOrSaysWhyNot) {
    Pair pair;
    const std::string large(16U << 20, 'x');
    std::thread reader([&] {
        ByteBuffer got;
        while (receive_some(pair.server.get(), got, 65'536, 10'000).count > 0) {
        }
        EXPECT_TRUE(got.view() == large);
        pair.server.close();
    });
    EXPECT_EQ(send_all(pair.client.fd.get(), large), 0);
    kernel::shutdown(pair.client.fd.get(), SHUT_WR);
    reader.join();
    EXPECT_EQ(send_all(pair.client.fd.get(), "x"), -EPIPE);

    const Pair never_reads;
    EXPECT_EQ(send_all(never_reads.client.fd.get(), large, 50), -ETIMEDOUT);
}

TEST(FinishConnection, TheAnswerArrivesOverUnreadBytes) {
    Pair pair;
    EXPECT_EQ(send_all(pair.client.fd.get(), std::string(20'000, 'r')), 0);
    EXPECT_EQ(send_all(pair.server.get(), "answer"), 0);
    std::thread peer([&] {
        ByteBuffer got;
        EXPECT_EQ(receive_some(pair.client.fd.get(), got, 100, 10'000).count, 6);
        EXPECT_TRUE(receive_some(pair.client.fd.get(), got, 100, 10'000).end_of_stream);
        EXPECT_EQ(send_all(pair.client.fd.get(), "late"), 0);  // After a reset it would fail.
        pair.client.fd.close();
    });
    const std::int64_t start = monotonic_ms();
    finish_connection(std::move(pair.server), 9'000);
    EXPECT_LT(monotonic_ms() - start, 8'000);
    peer.join();
}

}  // namespace
}  // namespace quorvane
