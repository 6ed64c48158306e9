#include "ScriptedService.h"
#include "TestClient.h"

#include <support/ComesTrue.h>
#include <support/Event.h>
#include <support/FullListener.h>
#include <support/NamedAddresses.h>
#include <support/ProcessState.h>
#include <support/Since.h>
#include <support/clock/MovableClock.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <optional>
#include <poll.h>
#include <sys/socket.h>

namespace {

using namespace xaltest;
using cdxtest::Opcode;
using cdxtest::since;
using cdxtest::WebSocketPeer;
using cdxtest::movableclock::pass;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::HasSubstr;

class Availability : public testing::Test {
protected:
    ScriptedService peer;
    TestClient client{peer.uri()};
};

TEST_F(Availability, TriesAtOnce) {
    const auto begin = steady_clock::now();
    client.listen();
    peer.accept();
    ASSERT_TRUE(client.connection());
    EXPECT_LT(since(begin), milliseconds(1000));
}

TEST_F(Availability, TellsEachConnectionAndEachLossOnce) {
    client.listen();
    std::vector<std::shared_ptr<ItemService>> services;
    for (std::size_t i = 1; i <= 3; ++i) {
        auto channel = peer.accept();
        services.push_back(client.connection(i));
        ASSERT_TRUE(services.back());
        channel.tcp().reset();
        ASSERT_TRUE(client.awaitDisconnected(i));
    }
    EXPECT_NE(services[0], services[1]);
    EXPECT_THAT(client.told.lines(),
                ElementsAre("connected", "disconnected", "connected", "disconnected", "connected", "disconnected"));
}

TEST_F(Availability, WarnsOnceOfEachReasonWhyThereIsNoConnection) {
    peer.listener().refuse();
    client.listen();
    ASSERT_TRUE(client.log->awaitCount(4)) << "four attempts";
    EXPECT_EQ(client.log->count("warning"), 1U);
    EXPECT_THAT(client.log->await("warning"), HasSubstr("onnection refused; next attempt in "));
    peer.listener().listen();
    auto channel = peer.accept();
    ASSERT_TRUE(client.connection());
    peer.listener().refuse();
    channel.tcp().reset();
    EXPECT_NE(client.log->await("lost "), "");
    EXPECT_TRUE(cdxtest::comesTrue([this] { return client.log->count("warning") == 3; }))
        << "the loss, and what follows";
}

TEST_F(Availability, KeepsTryingWithGrowingDelays) {
    peer.listener().refuse();
    client.listen();
    ASSERT_NE(client.log->await("no connection"), "");
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(client.log->awaitCount(static_cast<std::size_t>(i) + 2));
    const auto delays = client.announcedDelays();
    ASSERT_GE(delays.size(), 4U);
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_GE(delays[i].count(), 100 << i);
        EXPECT_LE(delays[i].count(), 200 << i);
    }
    peer.listener().listen();
    const auto channel = peer.accept();
    EXPECT_TRUE(client.connection());
    EXPECT_THAT(client.told.lines(), ElementsAre("connected"));
}

TEST_F(Availability, MeetsAServiceThatAcceptsAndClosesWithGrowingDelays) {
    client.listen();
    std::vector<steady_clock::time_point> times;
    for (int i = 0; i < 4; ++i) {
        peer.accept();
        times.push_back(steady_clock::now());
    }
    EXPECT_GE(times[1] - times[0], milliseconds(100));
    EXPECT_GE(times[2] - times[1], milliseconds(200));
    EXPECT_GE(times[3] - times[2], milliseconds(400));
}

TEST_F(Availability, LeavesNoDescriptorOfAnAttemptOrAConnectionBehind) {
    client.listen();
    peer.acceptTcp();
    ASSERT_TRUE(client.log->awaitCount(1));
    const auto before = cdxtest::openDescriptors().size();
    peer.acceptTcp();
    ASSERT_TRUE(client.log->awaitCount(2));
    peer.accept();
    ASSERT_NE(client.log->await("lost"), "");
    EXPECT_EQ(cdxtest::openDescriptors().size(), before);
}

TEST_F(Availability, GivesUpAnAttemptThatTakesTooLong) {
    client.setting.requestTimeout.setValue(1000);
    client.listen();
    auto silent = peer.acceptTcp();
    EXPECT_THAT(client.log->await("no connection"), HasSubstr("timed out"));
    EXPECT_TRUE(silent.readToEnd());
    peer.accept();
    EXPECT_TRUE(client.connection());
}

TEST_F(Availability, ASilentAddressCostsItsShareOfTheAttempt) {
    const cdxtest::NamedAddresses name("several.test", {"127.0.0.2", "127.0.0.1"});
    const cdxtest::FullListener silent("127.0.0.2", peer.listener().port());
    client.config->baseUri = "http://several.test:" + std::to_string(peer.listener().port());
    client.setting.requestTimeout.setValue(2000);
    client.listen();
    const auto channel = peer.accept();
    ASSERT_TRUE(client.connection());
    EXPECT_EQ(client.log->count("no connection"), 0u);
}

TEST_F(Availability, AnUnknownConfigurationIsOneErrorCallAndNoAttempt) {
    client.config->known = false;
    client.listen();
    EXPECT_THAT(client.told.await("error"), HasSubstr("CarDataExchange"));
    EXPECT_FALSE(peer.listener().accept(milliseconds(150)));
    EXPECT_EQ(client.told.size(), 1u);
}

TEST_F(Availability, AnUnknownModeIsAnErrorCall) {
    client.settings.mode = "dynamic";
    client.listen();
    EXPECT_THAT(client.told.await("error"), HasSubstr("dynamic"));
    EXPECT_FALSE(peer.listener().accept(milliseconds(150)));
}

TEST_F(Availability, TheStaticModeMayBeNamed) {
    client.settings.mode = "static";
    client.listen();
    peer.accept();
    EXPECT_TRUE(client.connection());
}

TEST_F(Availability, ASecondListenerIsToldOfTheSameConnection) {
    client.listen();
    auto channel = peer.accept();
    ASSERT_TRUE(client.connection());
    client.listen();
    ASSERT_TRUE(client.connection(2));
    EXPECT_NE(client.connection(1), client.connection(2));
    channel.tcp().reset();
    EXPECT_TRUE(client.awaitDisconnected(2));
}

/// Asks for a sign of life after ten minutes, and waits for it as long.
class Watchdog : public Availability {
protected:
    Watchdog() { client.config->pingInterval = client.config->pongTimeout = 600'000; }
};

TEST_F(Watchdog, TurnsASilentPeerIntoALossInTime) {
    client.listen();
    auto channel = peer.accept();
    ASSERT_TRUE(client.connection());
    pass(minutes(9));
    EXPECT_FALSE(channel.read(milliseconds(0)));
    pass(minutes(1));
    const auto ping = channel.read();
    ASSERT_TRUE(ping);
    EXPECT_EQ(ping->opcode, Opcode::ping);
    pass(minutes(9));
    EXPECT_THAT(client.told.lines(), ElementsAre("connected"));
    pass(minutes(1));
    ASSERT_TRUE(client.awaitDisconnected(1));
    EXPECT_NE(client.log->await("silent"), "");
}

TEST_F(Watchdog, TakesAPongForLife) {
    client.listen();
    auto channel = peer.accept();
    ASSERT_TRUE(client.connection());
    int pings = 0;
    for (int minute = 0; minute < 120; ++minute) {
        pass(minutes(1));
        if (const auto ping = channel.read(milliseconds(0))) {
            ++pings;
            channel.send({Opcode::pong, ping->payload});
        }
    }
    EXPECT_GE(pings, 10);
    EXPECT_LE(pings, 12);
    EXPECT_THAT(client.told.lines(), ElementsAre("connected"));
}

TEST_F(Watchdog, TakesAnyByteForLife) {
    client.listen();
    auto channel = peer.accept();
    ASSERT_TRUE(client.connection());
    // One frame that takes more than two hours to arrive, and no pong.
    const std::string frame = cdxtest::encode({Opcode::text, std::string(24, ' ')}, false);
    for (const char byte : frame) {
        ASSERT_TRUE(channel.tcp().send(std::string(1, byte)));
        pass(minutes(5));
    }
    EXPECT_THAT(client.told.lines(), ElementsAre("connected"));
}

TEST_F(Watchdog, IsOffWhereEitherTimeIsZero) {
    client.config->pongTimeout = 0;
    client.listen();
    auto channel = peer.accept();
    ASSERT_TRUE(client.connection());
    for (int minute = 0; minute < 30; ++minute)
        pass(minutes(1));
    EXPECT_FALSE(channel.read(milliseconds(0)));
    EXPECT_THAT(client.told.lines(), ElementsAre("connected"));
}

/// A subscription whose handler is held up.
class SlowHandler : public Availability {
protected:
    void subscribe() {
        client.listen();
        channel.emplace(peer.accept());
        service = client.connection();
        subscription = service->subscribeResource<Item>(
            ItemDescriptor(), [this](const std::vector<std::shared_ptr<const Item>>& items, const auto&) {
                isBlocked.set();
                goOn.await(patience);
                told.add(items.front()->name().substr(0, 8));
            });
        readMessage(*channel);
        channel->text(subscribed(1));
    }
    /// Sends changes of 64 KiB each until the socket is full for a while; returns how many went out whole, and leaves
    /// the rest of the last one in `unsent`.
    std::int64_t flood(std::int64_t most) {
        const std::string filling(64 * 1024, 'x');
        for (std::int64_t revision = 1; revision <= most; ++revision) {
            std::string name = std::to_string(revision);
            name.insert(0, 8 - name.size(), '0');
            unsent = cdxtest::encode({Opcode::text, changed(1, revision - 1, revision, "a", name + filling)}, false);
            while (!unsent.empty()) {
                pollfd writable{channel->tcp().fd(), POLLOUT, 0};
                if (::poll(&writable, 1, 300) != 1)
                    return revision;
                const auto sent =
                    ::send(channel->tcp().fd(), unsent.data(), unsent.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
                if (sent > 0)
                    unsent.erase(0, static_cast<std::size_t>(sent));
            }
        }
        return most;
    }

    std::optional<WebSocketPeer> channel;
    std::shared_ptr<ItemService> service;
    std::shared_ptr<xal::Subscription> subscription;
    cdxtest::Event isBlocked, goOn;
    Journal told;
    std::string unsent;
};

TEST_F(SlowHandler, StopsTheReadingAndLosesNothing) {
    subscribe();
    constexpr std::int64_t tooMuch = 4096; // 256 MiB
    const std::int64_t taken = flood(tooMuch);
    ASSERT_LT(taken, tooMuch / 4);
    goOn.set();
    ASSERT_TRUE(channel->tcp().send(unsent));
    ASSERT_TRUE(told.awaitCount(static_cast<std::size_t>(taken)));
    const auto names = told.lines();
    EXPECT_EQ(names.size(), static_cast<std::size_t>(taken));
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
}

TEST_F(SlowHandler, IsNoLossOfTheConnection) {
    client.config->pingInterval = 100;
    client.config->pongTimeout = 500;
    subscribe();
    const std::int64_t taken = flood(4096);
    ASSERT_TRUE(isBlocked.await());
    // More than twice what a silent peer gets.
    EXPECT_FALSE(told.awaitCount(1, milliseconds(1500)));
    EXPECT_EQ(client.told.count("disconnected"), 0u);
    goOn.set();
    ASSERT_TRUE(channel->tcp().send(unsent));
    EXPECT_TRUE(told.awaitCount(static_cast<std::size_t>(taken)));
    EXPECT_EQ(client.told.count("disconnected"), 0u);
}

TEST_F(Availability, TriesNotAgainBeforeTheLossIsToldHoweverOftenTheServiceRestarts) {
    cdxtest::Event isBlocked, goOn;
    client.onConnected = [&](const auto&) {
        isBlocked.set();
        goOn.await(patience);
    };
    client.listen();
    peer.accept().tcp().reset();
    ASSERT_TRUE(isBlocked.await());
    ASSERT_NE(client.log->await("lost"), "");
    int attempts = 0;
    for (int restart = 0; restart < 50; ++restart) {
        attempts += peer.listener().accept(milliseconds(10)) ? 1 : 0;
        peer.listener().refuse();
        peer.listener().listen();
    }
    EXPECT_EQ(attempts, 0);
    goOn.set();
    const auto channel = peer.accept();
    ASSERT_TRUE(client.connection(2));
    EXPECT_THAT(client.told.lines(), ElementsAre("connected", "disconnected", "connected"));
}

TEST_F(Availability, ANewListenerLeadsToAnAttemptThoughTheLossIsNotToldYet) {
    cdxtest::Event isBlocked, goOn;
    client.onConnected = [&](const auto&) {
        isBlocked.set();
        goOn.await(patience);
    };
    client.listen();
    peer.accept().tcp().reset();
    ASSERT_TRUE(isBlocked.await());
    ASSERT_NE(client.log->await("lost"), "");
    client.listen();
    const auto channel = peer.accept();
    goOn.set();
    ASSERT_TRUE(client.connection(3));
    EXPECT_THAT(client.told.lines(), ElementsAre("connected", "disconnected", "connected", "connected"));
}

TEST_F(Availability, EndsAConnectionThatDoesNotAnswerASubscription) {
    client.setting.subscribeTimeout.setValue(600'000);
    client.listen();
    auto channel = peer.accept();
    const auto service = client.connection();
    ASSERT_TRUE(service);
    const auto held = service->subscribeResource<Item>(ItemDescriptor(), nullptr);
    readMessage(channel);
    pass(minutes(9));
    EXPECT_FALSE(channel.read(milliseconds(0)));
    pass(minutes(1));
    EXPECT_EQ(channel.readClose(), 1000u);
    channel.tcp().close();
    EXPECT_TRUE(client.awaitDisconnected(1));
    auto next = peer.accept();
    EXPECT_EQ(readMessage(next).at("op").as_string(), "subscribe");
}

TEST_F(Availability, DoesNotWaitForAnswersToReleasedSubscriptions) {
    client.setting.subscribeTimeout.setValue(600'000);
    client.listen();
    auto channel = peer.accept();
    const auto service = client.connection();
    ASSERT_TRUE(service);
    auto held = service->subscribeResource<Item>(ItemDescriptor(), nullptr);
    readMessage(channel);
    held.reset();
    EXPECT_EQ(readMessage(channel).at("op").as_string(), "unsubscribe");
    pass(minutes(20));
    EXPECT_FALSE(channel.read(milliseconds(0)));
    EXPECT_EQ(client.told.count("disconnected"), 0u);
}

/// A registry that is asked where the service is.
class RegistryMode : public Availability {
protected:
    RegistryMode() {
        client.settings.mode = "registry";
        client.settings.registryUri = registry.uri() + "/registry";
        client.config->baseUri = "http://127.0.0.1:1";
    }
    /// Answers one question; returns what was asked.
    std::string answer(const std::string& status, const std::string& body) {
        auto tcp = registry.acceptTcp();
        auto head = tcp.takeUntil("\r\n\r\n").value_or("");
        tcp.send("HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
        return head;
    }

    ScriptedService registry;
};

TEST_F(RegistryMode, AsksBeforeEveryAttempt) {
    client.listen();
    const auto head = answer("200 OK", R"({"name":"CarDataExchange","uri":")" + peer.uri() + R"("})");
    EXPECT_THAT(head, testing::StartsWith("GET /registry/CarDataExchange HTTP/1.1\r\n"));
    peer.accept().tcp().reset();
    ASSERT_TRUE(client.connection());
    answer("200 OK", R"({"name":"CarDataExchange","uri":")" + peer.uri() + R"("})");
    peer.accept();
    EXPECT_TRUE(client.connection(2));
}

TEST_F(RegistryMode, KeepsNoConnectionToTheRegistry) {
    client.listen();
    auto tcp = registry.acceptTcp();
    tcp.takeUntil("\r\n\r\n");
    const std::string body = R"({"uri":")" + peer.uri() + R"("})";
    tcp.send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
    const auto channel = peer.accept();
    ASSERT_TRUE(client.connection());
    EXPECT_TRUE(tcp.readToEnd(milliseconds(1000)));
}

TEST_F(RegistryMode, CarriesTheHeaders) {
    client.makeRegistry();
    const auto headers = std::make_shared<xal::IServiceRegistry::RequestHeaders>();
    (*headers)["X-One"] = std::make_shared<std::string>("1");
    client.registry->setRequestHeaders(headers);
    client.listen();
    EXPECT_THAT(answer("404 Not Found", ""), HasSubstr("X-One: 1\r\n"));
}

TEST_F(RegistryMode, TakesAnyOtherAnswerForAFailedAttempt) {
    client.listen();
    answer("404 Not Found", "{}");
    answer("200 OK", "not json");
    answer("200 OK", R"({"uri":5})");
    answer("200 OK", R"({"uri":"ftp://nowhere"})");
    answer("200 OK", R"({"uri":")" + peer.uri() + R"("})");
    const auto channel = peer.accept();
    ASSERT_TRUE(client.connection());
    EXPECT_THAT(client.told.lines(), ElementsAre("connected"));
}

TEST_F(RegistryMode, KeepsTheConfiguredBasePath) {
    client.config->basePath = "/v1/";
    client.listen();
    answer("200 OK", R"({"uri":")" + peer.uri() + R"("})");
    EXPECT_THAT(peer.accept().head(), testing::StartsWith("GET /v1/CarDataExchange HTTP/1.1\r\n"));
}

TEST_F(RegistryMode, ClosesWhileTheRegistryIsSilent) {
    client.listen();
    auto tcp = registry.acceptTcp();
    tcp.takeUntil("\r\n\r\n");
    const auto begin = steady_clock::now();
    client.close();
    EXPECT_LT(since(begin), milliseconds(1000));
}

} // namespace
