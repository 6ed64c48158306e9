#include "ScriptedService.h"
#include "TestClient.h"

#include <support/Since.h>

#include <gmock/gmock.h>

#include <optional>
#include <thread>

namespace {

using namespace xaltest;
using cdxtest::Opcode;
using cdxtest::since;
using cdxtest::WebSocketPeer;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::IsEmpty;

class Closing : public testing::Test {
protected:
    ScriptedService peer;
    TestClient client{peer.uri()};
};

TEST_F(Closing, EndsWhileConnecting) {
    client.listen();
    auto tcp = peer.acceptTcp();
    const auto begin = steady_clock::now();
    client.close();
    EXPECT_LT(since(begin), milliseconds(1000));
    EXPECT_TRUE(tcp.readToEnd());
    EXPECT_THAT(client.told.lines(), IsEmpty());
}

TEST_F(Closing, EndsWhileWaitingForTheNextAttempt) {
    peer.listener().refuse();
    client.listen();
    ASSERT_NE(client.log->await("no connection"), "");
    const auto begin = steady_clock::now();
    client.close();
    EXPECT_LT(since(begin), milliseconds(1000));
}

TEST_F(Closing, IsForGood) {
    client.makeRegistry();
    client.close();
    client.listen();
    EXPECT_FALSE(peer.listener().accept(milliseconds(150)));
    client.close();
    EXPECT_THAT(client.told.lines(), IsEmpty());
}

/// A connection that ends, whatever the reason, while the peer keeps its side open.
class Goodbye : public Closing {
protected:
    Goodbye() {
        client.listen();
        channel.emplace(peer.accept());
        service = client.connection();
    }
    /// How long the socket stays open after the close frame when the peer does not end its side.
    milliseconds untilTheEnd() {
        EXPECT_TRUE(channel->readClose());
        const auto begin = steady_clock::now();
        EXPECT_TRUE(channel->tcp().readToEnd());
        return since(begin);
    }

    /// A quarter of a second, and some more for a busy computer.
    void expectGoodbye() {
        const milliseconds time = untilTheEnd();
        EXPECT_GE(time, milliseconds(200));
        EXPECT_LT(time, milliseconds(700));
    }

    std::optional<WebSocketPeer> channel;
    std::shared_ptr<ItemService> service;
};

TEST_F(Goodbye, OfAClosedRegistryIsShort) {
    std::thread closing([this] { client.close(); });
    expectGoodbye();
    closing.join();
}

TEST_F(Goodbye, OfARemovedManagerIsShort) {
    client.websockets->removeManager("CarDataExchange");
    expectGoodbye();
}

TEST_F(Goodbye, AfterABreakOfTheOrderIsShort) {
    const auto held = service->subscribeResource<Item>(ItemDescriptor(), nullptr);
    readMessage(*channel);
    channel->text(changed(1, 0, 1, "a"));
    expectGoodbye();
}

TEST_F(Goodbye, AfterABinaryMessageIsShort) {
    channel->send({Opcode::binary, "x"});
    expectGoodbye();
}

TEST_F(Goodbye, AfterAWrongFrameIsShort) {
    channel->send({Opcode::text, "\xff"});
    expectGoodbye();
}

TEST_F(Goodbye, AfterThePeersOwnIsShort) {
    channel->close();
    expectGoodbye();
}

} // namespace
