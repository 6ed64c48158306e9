#include "ChannelFixture.h"

#include <gmock/gmock.h>

namespace {

using namespace xaltest;
using cdxtest::Frame;
using cdxtest::Opcode;
using testing::ElementsAre;
using testing::IsEmpty;

/// A service that says what it must not. Whatever that leads to, no handler meets an exception.
class BadInput : public Channel {
protected:
    void TearDown() override {
        client.onTaskExecutor([] {});
        EXPECT_THAT(client.executorLog->lines(), IsEmpty());
    }
    /// The next change reaches the subscription of connectAndSubscribe().
    void expectItGoesOn(cdxtest::WebSocketPeer& channel) {
        channel.text(changed(1, 1, 2, "b"));
        EXPECT_EQ(notified.await("b"), "b a");
    }
    /// The next connection is asked for the subscription from its position.
    void expectTheNextOneGoesOn() {
        auto channel = resume();
        expectItGoesOn(channel);
    }
    /// The next connection is asked for the subscription as if there had been none, and its state is told.
    void expectTheNextOneBeginsAnew() {
        auto channel = peer.accept();
        EXPECT_FALSE(readMessage(channel).contains("since"));
        channel.text(subscribed(1));
        channel.text(changed(1, 0, 1, "b"));
        channel.text(current(1, 1, 1));
        EXPECT_EQ(notified.await("b"), "b");
    }
};

/// What ends the connection with 4000, so that the next one goes on from revision 1.
class BrokenOrder : public BadInput, public testing::WithParamInterface<std::string> {};

TEST_P(BrokenOrder, EndsTheConnectionAndTheNextOneGoesOn) {
    {
        auto channel = connectAndSubscribe();
        channel.text(GetParam());
        EXPECT_EQ(channel.readClose(), 4000u);
    }
    expectTheNextOneGoesOn();
}

INSTANTIATE_TEST_SUITE_P(OfMessages, BrokenOrder,
                         testing::Values(changed(1, 2, 3, "x"), // a gap
                                         changed(1, 0, 1, "x"), // repeated
                                         changed(1, 1, 1, "x"), // not rising
                                         removed(1, 0, 2, "a"), // an older one
                                         current(1, 2, 3)));

/// What comes before the answer to "subscribe", or is one that was not asked for: nothing of it is told.
class BrokenBegin : public BadInput, public testing::WithParamInterface<std::string> {};

TEST_P(BrokenBegin, EndsTheConnectionAndTheNextOneBeginsAnew) {
    {
        auto channel = connect();
        subscription = subscribe(*connection);
        readMessage(channel);
        channel.text(GetParam());
        EXPECT_EQ(channel.readClose(), 4000u);
    }
    expectTheNextOneBeginsAnew();
    EXPECT_THAT(notified.lines(), ElementsAre("b"));
}

INSTANTIATE_TEST_SUITE_P(OfMessages, BrokenBegin,
                         testing::Values(changed(1, 0, 1, "a"), removed(1, 0, 1, "a"), current(1, 0, 0),
                                         subscribed(1, true)));

/// What is logged and dropped, and changes nothing.
class BadMessage : public BadInput, public testing::WithParamInterface<std::string> {};

TEST_P(BadMessage, IsLoggedAndDropped) {
    auto channel = connectAndSubscribe();
    channel.text(GetParam());
    EXPECT_NE(client.log->await("dropped"), "");
    expectItGoesOn(channel);
    EXPECT_THAT(client.told.lines(), ElementsAre("connected"));
}

INSTANTIATE_TEST_SUITE_P(
    FromTheService, BadMessage,
    testing::Values("", "x", "[]", "5", "null", "{}", R"({"op":"event"})", R"({"op":5,"sub":1})",
                    R"({"op":"dance","sub":1})", R"({"op":"event","sub":"1","prev":1,"rev":2,"removed":"a"})",
                    R"({"op":"event","sub":1,"prev":"1","rev":2,"removed":"a"})",
                    R"({"op":"event","sub":1,"prev":1,"rev":2.0,"removed":"a"})",
                    R"({"op":"event","sub":1,"prev":1,"rev":-2,"removed":"a"})",
                    R"({"op":"event","sub":1,"prev":1,"rev":9007199254740993,"removed":"a"})",
                    R"({"op":"subscribed","sub":1,"epoch":5,"resumed":false})",
                    R"({"op":"subscribed","sub":1,"epoch":"x","resumed":1})", R"({"op":"current","sub":1,"prev":1})",
                    R"({"op":"current","sub":1,"prev":1,"rev":2,"other":{x}})",
                    R"({"op":"event","sub":1,"prev":1,"rev":2,"element":{"id":"x")", R"({"op":"error","sub":1})",
                    R"({"op":"error","sub":1,"status":200})", R"({"op":"error","sub":1,"status":399})",
                    R"({"op":"error","sub":1,"status":600})",
                    R"({"op":"subscribed","sub":1,"resumed":false,"epoch":")" + std::string(1025, 'e') + "\"}",
                    std::string(100'000, '[')));

/// Events that cannot be used but are in order: they move the position.
class UnusableEvent : public BadInput, public testing::WithParamInterface<std::string> {};

TEST_P(UnusableEvent, MovesThePosition) {
    auto channel = connectAndSubscribe();
    channel.text(R"({"op":"event","sub":1,"prev":1,"rev":2)" + GetParam() + "}");
    channel.text(changed(1, 2, 3, "b"));
    EXPECT_EQ(notified.await("b"), "b a");
    EXPECT_NE(client.log->await("dropped"), "");
}

INSTANTIATE_TEST_SUITE_P(FromTheService, UnusableEvent,
                         testing::Values("", R"(,"element":5)", R"(,"element":null)", R"(,"element":{})",
                                         R"(,"element":{"id":5})", R"(,"element":{"id":""})", R"(,"removed":5)",
                                         R"(,"removed":"a","element":{"id":"a"})",
                                         R"(,"element":{"id":"x","name":"\ud800"})",
                                         R"(,"element":{"id":"x",},"other":"\"}")", R"(,"removed":"a","other":{x})"));

std::string nested(std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
}

TEST_F(BadInput, MovesThePositionPastElementsThatAreNestedTooDeeply) {
    auto channel = connectAndSubscribe();
    channel.text(R"({"op":"event","sub":1,"prev":1,"rev":2,"element":{"id":"x","]}\"":)" + nested(200) + "}}");
    channel.text(R"({"op":"event","sub":1,"prev":2,"rev":3,"element":)" + nested(500'000) + "}");
    channel.text(changed(1, 3, 4, "b"));
    EXPECT_EQ(notified.await("b"), "b a");
    EXPECT_EQ(client.log->count("dropped"), 2u);
}

struct BadFrame {
    const char* name;
    Frame frame;
    unsigned code;
};

class WrongFrame : public BadInput, public testing::WithParamInterface<BadFrame> {};

TEST_P(WrongFrame, EndsTheConnectionWithTheRightCodeAndTheNextOneGoesOn) {
    {
        auto channel = connectAndSubscribe();
        channel.send(GetParam().frame);
        EXPECT_EQ(channel.readClose(), GetParam().code);
    }
    expectTheNextOneGoesOn();
}

Frame masked() {
    Frame frame{Opcode::text, "{}"};
    frame.masked = true;
    return frame;
}
Frame claiming(std::uint64_t length) {
    Frame frame{Opcode::text, "{"};
    frame.claimedLength = length;
    return frame;
}

INSTANTIATE_TEST_SUITE_P(FromTheService, WrongFrame,
                         testing::Values(BadFrame{"Binary", {Opcode::binary, "x"}, 1003},
                                         BadFrame{"InvalidUtf8", {Opcode::text, "\xff"}, 1007},
                                         BadFrame{"ReservedBits", {Opcode::text, "{}", true, 4}, 1002},
                                         BadFrame{"ReservedOpcode", {3, "x"}, 1002},
                                         BadFrame{"LongPing", {Opcode::ping, std::string(126, 'x')}, 1002},
                                         BadFrame{"FragmentedPing", {Opcode::ping, "x", false}, 1002},
                                         BadFrame{"StrayContinuation", {Opcode::continuation, "x"}, 1002},
                                         BadFrame{"Masked", masked(), 1002},
                                         BadFrame{"TooLarge", claiming(64 * 1024 * 1024), 1009}),
                         [](const auto& wrong) { return wrong.param.name; });

TEST_F(BadInput, TakesMessagesOfTwoMebibytes) {
    auto channel = connectAndSubscribe();
    const std::string frame = changed(1, 1, 2, "b", "");
    channel.text(changed(1, 1, 2, "b", std::string(2 * 1024 * 1024 - frame.size(), 'x')));
    EXPECT_EQ(notified.await("b"), "b a");
}

TEST_F(BadInput, TakesMessagesInSingleBytes) {
    auto channel = connectAndSubscribe();
    const std::string message = changed(1, 1, 2, "b");
    for (std::size_t i = 0; i < message.size(); ++i)
        channel.send({i == 0 ? Opcode::text : Opcode::continuation, message.substr(i, 1), i + 1 == message.size()}, 1);
    EXPECT_EQ(notified.await("b"), "b a");
}

TEST_F(BadInput, EndsTheConnectionForAMessageThatIsTooLargeInManyFragments) {
    auto channel = connectAndSubscribe();
    const std::string piece(64 * 1024, ' ');
    for (int i = 0; i <= 32; ++i)
        channel.send({i == 0 ? Opcode::text : Opcode::continuation, piece, false});
    EXPECT_EQ(channel.readClose(), 1009u);
    channel.tcp().close();
    expectTheNextOneGoesOn();
}

TEST_F(BadInput, EndsTheConnectionForAMessageOf64MebibytesThoughAllOfItIsSent) {
    auto channel = connectAndSubscribe();
    channel.text(std::string(64 * 1024 * 1024, ' '));
    EXPECT_EQ(channel.readClose(), 1009u);
    channel.tcp().close();
    expectTheNextOneGoesOn();
}

TEST_F(BadInput, PassesOverMessagesForSubscriptionsThatItNeverMade) {
    auto channel = connectAndSubscribe();
    channel.text(subscribed(7));
    channel.text(changed(7, 0, 1, "x"));
    channel.text(current(7, 5, 3));
    channel.text(refused(7, 404));
    expectItGoesOn(channel);
    EXPECT_THAT(notified.lines(), ElementsAre("a", "b a"));
}

} // namespace
