#include "ChannelFixture.h"

#include <support/Event.h>

#include <gmock/gmock.h>

namespace {

using namespace xaltest;
using cdxtest::Opcode;
using testing::ElementsAre;
using testing::HasSubstr;
using Items = std::vector<std::shared_ptr<const Item>>;
namespace json = boost::json;

TEST_F(Channel, AsksForTheServicesOwnAddressWithTheSubprotocolAndNoExtension) {
    const auto channel = connect();
    EXPECT_THAT(channel.head(), testing::StartsWith("GET /CarDataExchange HTTP/1.1\r\n"));
    EXPECT_EQ(cdxtest::headerValue(channel.head(), "Sec-WebSocket-Protocol"), "cdx.v1");
    EXPECT_EQ(cdxtest::headerValue(channel.head(), "Sec-WebSocket-Version"), "13");
    EXPECT_THAT(channel.head(), testing::Not(HasSubstr("Sec-WebSocket-Extensions")));
    EXPECT_EQ(cdxtest::headerValue(channel.head(), "Host"), peer.uri().substr(7));
}

TEST_F(Channel, JoinsBaseUriPathAndServiceWithOneSlash) {
    client.config->baseUri += "/api/";
    client.config->basePath = "/v1/";
    const auto channel = connect();
    EXPECT_THAT(channel.head(), testing::StartsWith("GET /api/v1/CarDataExchange HTTP/1.1\r\n"));
}

TEST_F(Channel, UpgradesWithWhatTheHeaderMapHolds) {
    client.makeRegistry();
    const auto headers = std::make_shared<xal::IServiceRegistry::RequestHeaders>();
    (*headers)["X-One"] = std::make_shared<std::string>("1");
    (*headers)["X-None"] = nullptr;
    (*headers)["X-Bad"] = std::make_shared<std::string>("a\r\nX-Smuggled: 1");
    client.registry->setRequestHeaders(headers);
    const auto channel = connect();
    EXPECT_EQ(cdxtest::headerValue(channel.head(), "X-One"), "1");
    EXPECT_THAT(channel.head(), testing::Not(HasSubstr("X-None")));
    EXPECT_THAT(channel.head(), testing::Not(HasSubstr("Smuggled")));
}

TEST_F(Channel, AsksForAResource) {
    auto channel = connect();
    const auto held = subscribe(*connection);
    EXPECT_EQ(readMessage(channel), (json::object{{"op", "subscribe"}, {"sub", 1}, {"resource", "cdxConfig"}}));
}

TEST_F(Channel, AsksForAnElement) {
    auto channel = connect();
    const auto held = watch(*connection, ItemDescriptor::withId("e-1"));
    EXPECT_EQ(readMessage(channel),
              (json::object{{"op", "subscribe"}, {"sub", 1}, {"resource", "cdxConfig"}, {"id", "e-1"}}));
}

TEST_F(Channel, TellsWhatTheServiceSends) {
    auto channel = connectAndSubscribe();
    channel.text(changed(1, 1, 2, "b"));
    EXPECT_EQ(notified.await("b"), "b a");
    channel.text(removed(1, 2, 3, "a"));
    channel.text(removed(1, 3, 4, "b"));
    EXPECT_EQ(notified.await("-"), "-");
    EXPECT_THAT(notified.lines(), ElementsAre("a", "b a", "-"));
}

TEST_F(Channel, PassesOverMembersThatItDoesNotKnow) {
    auto channel = connect();
    const auto held = subscribe(*connection);
    readMessage(channel);
    channel.text(R"({"op":"subscribed","sub":1,"epoch":"0123456789abcdef","resumed":false,"x":[1]})");
    channel.text(R"({"op":"event","sub":1,"prev":0,"rev":1,"new":true,"x":null,"element":{"id":"a"}})");
    EXPECT_EQ(notified.await("a"), "a");
}

TEST_F(Channel, ResumesFromItsPosition) {
    {
        auto channel = connectAndSubscribe();
        channel.text(changed(1, 1, 7, "b"));
        ASSERT_EQ(notified.await("b"), "b a");
    }
    auto channel = peer.accept();
    EXPECT_EQ(readMessage(channel), (json::object{{"op", "subscribe"},
                                                  {"sub", 1},
                                                  {"resource", "cdxConfig"},
                                                  {"since", {{"epoch", "0123456789abcdef"}, {"rev", 7}}}}));
    channel.text(subscribed(1, true));
    channel.text(changed(1, 7, 8, "c"));
    EXPECT_EQ(notified.await("c"), "c b a");
}

TEST_F(Channel, StartsWithoutAPositionWhereItWasLostBeforeCurrent) {
    {
        auto channel = connect();
        subscription = subscribe(*connection);
        readMessage(channel);
        channel.text(subscribed(1));
        channel.text(changed(1, 0, 1, "a"));
        ASSERT_EQ(notified.await("a"), "a");
    }
    auto channel = peer.accept();
    EXPECT_FALSE(readMessage(channel).contains("since"));
    channel.text(subscribed(1));
    channel.text(changed(1, 0, 1, "a"));
    channel.text(changed(1, 1, 2, "b"));
    EXPECT_EQ(notified.await("b"), "b a");
    EXPECT_THAT(notified.lines(), ElementsAre("a", "b a"));
}

TEST_F(Channel, StartsAnewWhereTheServiceCannotResume) {
    connectAndSubscribe();
    auto channel = peer.accept();
    readMessage(channel);
    channel.text(subscribed(1, false, "fedcba9876543210"));
    channel.text(changed(1, 0, 1, "b"));
    channel.text(current(1, 1, 1));
    channel.text(changed(1, 1, 2, "c"));
    EXPECT_EQ(notified.await("c"), "c b");
    EXPECT_THAT(notified.lines(), ElementsAre("a", "b a", "c b"));
}

TEST_F(Channel, StartsAnewWhenAForgottenRemovalOvertakesIt) {
    auto channel = connectAndSubscribe();
    channel.text(subscribed(1));
    channel.text(current(1, 0, 9));
    EXPECT_EQ(notified.await("-"), "-");
    channel.text(changed(1, 9, 10, "b"));
    EXPECT_EQ(notified.await("b"), "b");
}

TEST_F(Channel, AnswersPings) {
    auto channel = connectAndSubscribe();
    channel.ping("here");
    const auto pong = channel.read();
    ASSERT_TRUE(pong);
    EXPECT_EQ(pong->opcode, Opcode::pong);
    EXPECT_EQ(pong->payload, "here");
}

TEST_F(Channel, UnsubscribesAndHearsNoMore) {
    auto channel = connectAndSubscribe();
    subscription->unsubscribe();
    EXPECT_EQ(readMessage(channel), (json::object{{"op", "unsubscribe"}, {"sub", 1}}));
    const auto other = subscribe(*connection);
    EXPECT_EQ(readMessage(channel).at("sub").as_int64(), 2);
    channel.text(changed(1, 1, 2, "late"));
    channel.text(subscribed(2));
    channel.text(changed(2, 0, 2, "b"));
    EXPECT_EQ(notified.await("b"), "b");
    EXPECT_THAT(notified.lines(), ElementsAre("a", "b"));
}

TEST_F(Channel, UnsubscribesWhatIsDropped) {
    auto channel = connectAndSubscribe();
    subscription.reset();
    EXPECT_EQ(readMessage(channel), (json::object{{"op", "unsubscribe"}, {"sub", 1}}));
}

TEST_F(Channel, DoesNotRenewWhatWasReleasedWhileTheServiceWasAway) {
    connectAndSubscribe();
    ASSERT_TRUE(client.awaitDisconnected(1));
    subscription.reset();
    auto channel = peer.accept();
    ASSERT_TRUE(client.connection(2));
    const auto other = subscribe(*connection, ItemDescriptor("cdxData"));
    EXPECT_EQ(readMessage(channel).at("resource").as_string(), "cdxData");
}

TEST_F(Channel, ResumesAnElementSubscriptionToo) {
    std::shared_ptr<xal::Subscription> held;
    {
        auto channel = connect();
        held = watch(*connection, ItemDescriptor::withId("e"));
        readMessage(channel);
        channel.text(subscribed(1));
        channel.text(changed(1, 0, 4, "e", "old"));
        channel.text(current(1, 4, 4));
        ASSERT_EQ(notified.await("old"), "old");
    }
    auto channel = peer.accept();
    const auto message = readMessage(channel);
    EXPECT_EQ(message.at("id").as_string(), "e");
    EXPECT_EQ(message.at("since").at("rev").as_int64(), 4);
    channel.text(subscribed(1, true));
    channel.text(removed(1, 4, 5, "e"));
    EXPECT_EQ(notified.await("-"), "-");
}

TEST_F(Channel, BeginsWhatWasMadeWhileTheServiceWasAwayWithItsReturn) {
    connect().tcp().close();
    ASSERT_TRUE(client.awaitDisconnected(1));
    const auto held = subscribe(*connection);
    auto channel = peer.accept();
    readMessage(channel);
    channel.text(subscribed(1));
    channel.text(changed(1, 0, 1, "a"));
    EXPECT_EQ(notified.await("a"), "a");
}

TEST_F(Channel, RenewsSubscriptionsAfterTheConnectedCallReturned) {
    connectAndSubscribe();
    std::shared_ptr<xal::Subscription> other;
    client.onConnected = [&](const std::shared_ptr<ItemService>& now) {
        other = subscribe(*now, ItemDescriptor("cdxData"));
    };
    auto channel = peer.accept();
    EXPECT_EQ(readMessage(channel).at("resource").as_string(), "cdxData");
    EXPECT_EQ(readMessage(channel).at("resource").as_string(), "cdxConfig");
}

TEST_F(Channel, RenewsSubscriptionsAfterTheConnectedCallThrew) {
    connectAndSubscribe();
    client.onConnected = [](const std::shared_ptr<ItemService>&) { throw std::runtime_error("not today"); };
    auto channel = peer.accept();
    EXPECT_EQ(readMessage(channel).at("resource").as_string(), "cdxConfig");
    EXPECT_THAT(client.executorLog->await("not today"), HasSubstr("CarDataExchange"));
}

TEST_F(Channel, TellsARefusal) {
    auto channel = connect();
    const auto held = subscribe(*connection);
    readMessage(channel);
    channel.text(refused(1, 404));
    EXPECT_EQ(notified.await("404"), "- !404");
    channel.tcp().close();
    auto next = peer.accept();
    ASSERT_TRUE(client.connection(2));
    const auto other = watch(*connection, ItemDescriptor::withId("e"));
    EXPECT_TRUE(readMessage(next).contains("id"));
}

TEST_F(Channel, RefusesASubscriptionWithAFilter) {
    auto channel = connect();
    ItemDescriptor descriptor;
    descriptor.addFilter("name", "x");
    const auto held = subscribe(*connection, descriptor);
    EXPECT_EQ(notified.await("!"), "- !400");
    const auto other = subscribe(*connection, ItemDescriptor("cdxData"));
    EXPECT_EQ(readMessage(channel).at("resource").as_string(), "cdxData");
}

TEST_F(Channel, AnElementSubscriptionIgnoresAFilter) {
    auto channel = connect();
    auto descriptor = ItemDescriptor::withId("e");
    descriptor.addFilter("name", "x");
    const auto held = watch(*connection, descriptor);
    EXPECT_EQ(readMessage(channel).at("id").as_string(), "e");
}

TEST_F(Channel, RefusesAnElementSubscriptionWithoutAnId) {
    connect();
    const auto held = watch(*connection, ItemDescriptor());
    EXPECT_EQ(notified.await("-"), "-");
    EXPECT_NE(client.log->await("422"), "");
}

TEST_F(Channel, RefusesAnElementSubscriptionWithAnIdThatNoElementHas) {
    connect();
    const auto held = watch(*connection, ItemDescriptor::withId("a/b"));
    EXPECT_EQ(notified.await("-"), "-");
    EXPECT_NE(client.log->await("422"), "");
}

TEST_F(Channel, LogsWhatAHandlerThrowsWithServiceResourceAndReason) {
    auto channel = connect();
    const auto held = connection->subscribeResource<Item>(ItemDescriptor(), [this](const Items& items, const auto&) {
        notified.add(describe(items));
        if (items.size() == 1)
            throw std::runtime_error("no taste");
        if (items.size() == 2)
            throw 5;
    });
    readMessage(channel);
    channel.text(subscribed(1));
    channel.text(changed(1, 0, 1, "a"));
    channel.text(changed(1, 1, 2, "b"));
    channel.text(changed(1, 2, 3, "c"));
    EXPECT_EQ(notified.await("c"), "c b a");
    EXPECT_THAT(client.executorLog->lines(),
                ElementsAre(testing::AllOf(testing::StartsWith("error"), HasSubstr("CarDataExchange/cdxConfig"),
                                           HasSubstr("no taste")),
                            testing::AllOf(testing::StartsWith("error"), HasSubstr("CarDataExchange/cdxConfig"))));
}

TEST_F(Channel, DeliversWhatWasReceivedBeforeItTellsOfTheLoss) {
    auto channel = connect();
    cdxtest::Event isBlocked, goOn;
    const auto held = connection->subscribeResource<Item>(ItemDescriptor(), [&](const Items& items, const auto&) {
        isBlocked.set();
        goOn.await();
        client.told.add(describe(items));
    });
    readMessage(channel);
    channel.text(subscribed(1));
    for (int i = 0; i < 5; ++i)
        channel.text(changed(1, i, i + 1, "a"));
    ASSERT_TRUE(isBlocked.await());
    channel.close();
    ASSERT_TRUE(channel.readClose());
    channel.tcp().close();
    goOn.set();
    ASSERT_TRUE(client.awaitDisconnected(1));
    EXPECT_THAT(client.told.lines(), ElementsAre("connected", "a", "a", "a", "a", "a", "disconnected"));
}

TEST_F(Channel, EndsWhenItsManagerIsRemoved) {
    auto channel = connect();
    client.websockets->removeManager("Other");
    client.websockets->removeManager("CarDataExchange");
    EXPECT_EQ(channel.readClose(), 1000u);
    channel.tcp().close();
    EXPECT_TRUE(client.awaitDisconnected(1));
    peer.accept();
    EXPECT_TRUE(client.connection(2));
}

TEST_F(Channel, SaysGoodbyeWhenTheRegistryIsClosed) {
    auto channel = connect();
    client.close();
    EXPECT_EQ(channel.readClose(), 1000u);
    EXPECT_THAT(client.told.lines(), ElementsAre("connected"));
}

TEST_F(Channel, TheElementRegistryEndsAllSubscriptions) {
    auto channel = connectAndSubscribe();
    xal::ElementRegistry elements(client.registry, nullptr);
    elements.unsubscribeFromAll();
    EXPECT_EQ(readMessage(channel), (json::object{{"op", "unsubscribe"}, {"sub", 1}}));
    const auto other = subscribe(*connection, ItemDescriptor("cdxData"));
    EXPECT_EQ(readMessage(channel).at("sub").as_int64(), 2);
    channel.tcp().reset();
    auto next = peer.accept();
    EXPECT_EQ(readMessage(next).at("resource").as_string(), "cdxData");
}

TEST_F(Channel, WritesToTheRegistrysLoggerWhereThatHasNoneForTheService) {
    client.hasSubFacilityLoggers = false;
    const auto channel = connect();
    EXPECT_THAT(client.log->await("connected to"), HasSubstr(" XalServiceRegistry: "));
}

TEST_F(Channel, WritesOneLineForAConnectionASubscriptionAndALoss) {
    auto channel = connectAndSubscribe();
    channel.tcp().close();
    ASSERT_NE(client.log->await("lost"), "");
    EXPECT_EQ(client.log->count("connected to"), 1u);
    EXPECT_EQ(client.log->count("subscribed to cdxConfig"), 1u);
    EXPECT_EQ(client.log->count("lost"), 1u);
    EXPECT_EQ(client.log->size(), 3u);
}

} // namespace
