#include "net/socket.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace quorvane {
namespace {

// What depends on one end of a connection alone.  Stages, time limits and order of addresses are
// the network test's.
struct Pair {
    FdHandle listener = open_listener("127.0.0.1", 0).fd;
    std::int32_t port = listener_port(listener.get()).value_or(0);
    ConnectResult client = connect_ipv4("127.0.0.1", port, 10'000);
    FdHandle server = accept_connection(listener.get()).value_or(FdHandle());
};

TEST(Sockets, AreBlockingAndPrivate) {
    const Pair pair;
    EXPECT_EQ(kernel::fcntl(pair.client.fd.get(), F_GETFL) & O_NONBLOCK, 0);
    for (const int fd : {pair.client.fd.get(), pair.server.get(), pair.listener.get()}) {
        EXPECT_EQ(kernel::fcntl(fd, F_GETFD), FD_CLOEXEC);
    }
    EXPECT_TRUE(set_non_blocking(pair.listener.get()));
    EXPECT_FALSE(accept_connection(pair.listener.get()));
}

TEST(Sockets, GiveUpOnASilentPeer) {
    Pair pair;
    ByteBuffer got;
    EXPECT_TRUE(receive_some(pair.server.get(), got, 1, 1).timed_out);
    EXPECT_EQ(receive_some(pair.server.get(), got, 1, 10'001).error, -EINVAL);
    EXPECT_EQ(send_all(pair.client.fd.get(), std::string(16U << 20, 'x'), 50), -ETIMEDOUT);
    pair.server.close();
    EXPECT_LT(send_all(pair.client.fd.get(), "x"), 0);  // Without a signal.
    // Nobody accepts: once the queue is full the kernel drops further attempts in silence.
    const FdHandle full = open_listener("127.0.0.1", 0, 1).fd;
    std::vector<ConnectResult> waiting(1);
    do waiting.push_back(connect_ipv4("127.0.0.1", *listener_port(full.get()), 50));
    while (waiting.back().ok && waiting.size() < 9);
    EXPECT_EQ(waiting.back().error, -ETIMEDOUT);
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
    finish_connection(std::move(pair.server), 10'000);
    peer.join();
}

}  // namespace
}  // namespace quorvane
