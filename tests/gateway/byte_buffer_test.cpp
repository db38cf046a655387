// The byte buffer between a socket and its reader: its capacity, and the socket's outcomes.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <string>

#include "ByteBuffer.h"
#include "UniqueFd.h"

using gwio::ByteBuffer;
using gwio::IoResult;

namespace {

struct SocketPair {
    SocketPair() {
        int fds[2];
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, fds), 0);
        near.reset(fds[0]);
        far.reset(fds[1]);
    }
    gwio::UniqueFd near, far;
};

TEST(ByteBufferTest, ReadingStopsAtTheCapacityAndResumesOnceConsumed) {
    SocketPair sockets;
    const std::string sent(100, 'x');
    ASSERT_EQ(::send(sockets.far.get(), sent.data(), sent.size(), 0), 100);
    ByteBuffer buffer(64);
    EXPECT_EQ(buffer.fillFrom(sockets.near.get()), IoResult::progress);
    EXPECT_EQ(buffer.size(), 64u);
    EXPECT_TRUE(buffer.full());
    EXPECT_EQ(buffer.fillFrom(sockets.near.get()), IoResult::wouldBlock) << "full: nothing read";
    buffer.consume(63);
    EXPECT_EQ(buffer.fillFrom(sockets.near.get()), IoResult::progress);
    EXPECT_EQ(buffer.size(), 37u) << "the rest, after the byte left";
    EXPECT_EQ(buffer.fillFrom(sockets.near.get()), IoResult::wouldBlock) << "nothing more sent yet";
    sockets.far.reset();
    EXPECT_EQ(buffer.fillFrom(sockets.near.get()), IoResult::closed);
}

// Appends pass the capacity whole (the admission server's buffer has none: gatewayd_test) and
// drain in order (a stream of commands: mediad_test); here what no peer shows.
TEST(ByteBufferTest, DrainingAnEmptyBufferWaitsAndDrainingToAGonePeerFails) {
    SocketPair sockets;
    ByteBuffer buffer(4);
    EXPECT_EQ(buffer.drainTo(sockets.near.get()), IoResult::wouldBlock) << "empty: nothing to send";
    sockets.far.reset();
    buffer.append("x");
    EXPECT_EQ(buffer.drainTo(sockets.near.get()), IoResult::failed) << "the peer is gone";
}

}  // namespace
