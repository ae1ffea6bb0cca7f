#include "net/socket.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace quorvane {
namespace {

// What depends on one end of a connection alone.  All else is the network test's.
TEST(ConnectIpv4, GivesUpOnASilentPeer) {
    // Nobody accepts: once the queue is full the kernel drops further attempts in silence.
    const FdHandle full = open_listener("127.0.0.1", 0, 1).fd;
    std::vector<ConnectResult> waiting(1);
    do waiting.push_back(connect_ipv4("127.0.0.1", *listener_port(full.get()), 50));
    while (waiting.back().ok && waiting.size() < 9);
    EXPECT_EQ(waiting.back().error, -ETIMEDOUT);
    ByteBuffer got;
    EXPECT_EQ(receive_some(waiting[1].fd.get(), got, 1, 10'001).error, -EINVAL);
    EXPECT_EQ(send_all(waiting[1].fd.get(), std::string(64 << 20, 'x'), 50), -ETIMEDOUT);
}

TEST(FinishConnection, TheAnswerArrivesOverUnreadBytes) {
    const FdHandle listener = open_listener("127.0.0.1", 0).fd;
    FdHandle client = connect_ipv4("127.0.0.1", *listener_port(listener.get()), 10'000).fd;
    FdHandle server = *accept_connection(listener.get());
    EXPECT_EQ(send_all(client.get(), std::string(20'000, 'r')), 0);
    std::thread peer([&] {
        ByteBuffer got;
        EXPECT_TRUE(receive_some(client.get(), got, 100, 10'000).end_of_stream);
        EXPECT_EQ(send_all(client.get(), "late"), 0);  // After a reset it would fail.
        client.close();
    });
    finish_connection(std::move(server), 10'000);
    peer.join();
}

}  // namespace
}  // namespace quorvane
