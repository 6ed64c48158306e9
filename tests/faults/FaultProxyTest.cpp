#include <support/FaultProxy.h>

#include <gtest/gtest.h>

#include <system_error>

namespace cdxtest {
namespace {

using Direction = FaultProxy::Direction;
using End = FaultProxy::End;
using std::chrono::milliseconds;

class Proxied : public ::testing::Test {
protected:
    Proxied() { connect(); }

    void connect() {
        client = TcpPeer::connect(proxy.port());
        server = TcpPeer(listener.accept());
    }

    Listener listener;
    FaultProxy proxy{listener.port()};
    TcpPeer client;
    TcpPeer server;
};

TEST_F(Proxied, BytesGoBothWaysAndAreCounted) {
    client.send("ping");
    EXPECT_EQ(server.take(4), "ping");
    server.send("pong!");
    EXPECT_EQ(client.take(5), "pong!");
    EXPECT_TRUE(proxy.waitFor(
        [](const auto& counts) { return counts.connections == 1 && counts.toServer == 4 && counts.toClient == 5; }));
}

TEST_F(Proxied, MegabytesGoThroughUnchanged) {
    const std::string much(3'000'000, 'x');
    std::thread sender([&] { client.send(much + "end"); });
    EXPECT_EQ(server.takeUntil("end"), much + "end");
    sender.join();
}

TEST_F(Proxied, AnEndIsPassedOnAndTheOtherWayGoesOn) {
    client.send("last");
    client.endSending();
    EXPECT_TRUE(server.readToEnd());
    EXPECT_EQ(server.received(), "last");
    server.send("answer");
    EXPECT_EQ(client.take(6), "answer");
}

TEST_F(Proxied, ACutLetsExactlyItsBytesThrough) {
    proxy.cut(Direction::ToServer, 3, End::Close);
    client.send("abcdef");
    EXPECT_TRUE(server.readToEnd());
    EXPECT_EQ(server.received(), "abc");
    EXPECT_TRUE(client.readToEnd());
    EXPECT_TRUE(proxy.hasCut());
}

TEST_F(Proxied, ACutHappensOnce) {
    proxy.cut(Direction::ToClient, 0, End::Close);
    server.send("a");
    EXPECT_TRUE(client.readToEnd());
    EXPECT_EQ(client.received(), "");
    connect();
    server.send("b");
    EXPECT_EQ(client.take(1), "b");
}

TEST_F(Proxied, AResetIsTold) {
    proxy.endAll(End::Reset);
    EXPECT_EQ(client.read(), TcpPeer::Read::Reset);
    EXPECT_EQ(server.read(), TcpPeer::Read::Reset);
}

TEST_F(Proxied, SilenceTellsNobodyAnything) {
    proxy.endAll(End::Silence);
    client.send("a");
    EXPECT_EQ(server.read(milliseconds(50)), TcpPeer::Read::Late);
    server.send("b");
    EXPECT_EQ(client.read(milliseconds(50)), TcpPeer::Read::Late);
}

TEST_F(Proxied, ALossLeavesNothingButTheEnd) {
    proxy.cut(Direction::ToClient, 3, End::Loss);
    server.send("abcdef");
    EXPECT_EQ(client.take(3), "abc");
    client.send("nobody hears this");
    server.send("nor this");
    server.endSending();
    EXPECT_TRUE(client.readToEnd());
    EXPECT_EQ(client.received(), "");
    EXPECT_TRUE(proxy.hasCut());
    client.endSending();
    EXPECT_TRUE(server.readToEnd());
    EXPECT_EQ(server.received(), "");
}

TEST_F(Proxied, SlicesArriveOneByOne) {
    FaultProxy::Travel travel;
    travel.slice = 1;
    travel.bytesPerSecond = 1000;
    proxy.setTravel(travel);
    const auto begin = std::chrono::steady_clock::now();
    client.send("0123456789");
    EXPECT_EQ(server.read(), TcpPeer::Read::Bytes);
    EXPECT_LT(server.received().size(), 10U);
    EXPECT_EQ(server.take(10), "0123456789");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(9));
}

TEST_F(Proxied, LatencyDelaysBothWays) {
    FaultProxy::Travel travel;
    travel.latency = milliseconds(20);
    proxy.setTravel(travel);
    const auto begin = std::chrono::steady_clock::now();
    client.send("a");
    server.take(1);
    server.send("b");
    client.take(1);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(40));
}

TEST_F(Proxied, ASlowCloseComesLater) {
    FaultProxy::Travel travel;
    travel.slowClose = milliseconds(30);
    proxy.setTravel(travel);
    const auto begin = std::chrono::steady_clock::now();
    client.close();
    EXPECT_TRUE(server.readToEnd());
    EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(30));
}

TEST_F(Proxied, RefusesAndAcceptsAgain) {
    proxy.refuse(true);
    EXPECT_THROW(TcpPeer::connect(proxy.port()), std::system_error);
    client.send("a");
    EXPECT_EQ(server.take(1), "a") << "what was connected goes on";
    proxy.refuse(false);
    connect();
    client.send("b");
    EXPECT_EQ(server.take(1), "b");
}

TEST_F(Proxied, SwallowedConnectionsLeadNowhere) {
    proxy.swallow(true);
    TcpPeer swallowed = TcpPeer::connect(proxy.port());
    swallowed.send("a");
    EXPECT_EQ(swallowed.read(milliseconds(50)), TcpPeer::Read::Late);
    EXPECT_FALSE(listener.accept(milliseconds(0)));
}

TEST_F(Proxied, HangsUpAndTakesWhatStillComes) {
    proxy.hangUp(true);
    TcpPeer caller = TcpPeer::connect(proxy.port());
    EXPECT_EQ(caller.read(), TcpPeer::Read::End);
    EXPECT_TRUE(caller.send(std::string(1'000'000, 'x')));
    EXPECT_EQ(caller.read(), TcpPeer::Read::End) << "and no reset";
    EXPECT_EQ(proxy.counts().open, 2U);
    caller.close();
    EXPECT_TRUE(proxy.waitFor([](const auto& counts) { return counts.open == 1; }));
    EXPECT_FALSE(listener.accept(milliseconds(0)));
}

TEST_F(Proxied, AServerThatIsAwayShowsAsAReset) {
    listener.refuse();
    TcpPeer lost = TcpPeer::connect(proxy.port());
    EXPECT_TRUE(lost.readToEnd());
}

} // namespace
} // namespace cdxtest
