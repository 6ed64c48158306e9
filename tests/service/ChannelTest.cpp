#include "ServiceFixture.h"

#include <map>
#include <thread>

namespace cdxservice {
namespace {

using cdxtest::Frame;
using cdxtest::WebSocketPeer;

class Channels : public ServiceFixture {
protected:
    /// Subscribes and passes over what comes up to "current".
    void follow(WebSocketPeer& peer, int sub, const std::string& resource) {
        peer.text(subscribe(sub, resource));
        for (;;) {
            const auto next = message(peer);
            ASSERT_FALSE(next.empty());
            if (text(next.at("op")) == "current") {
                return;
            }
        }
    }
    static std::string subscribe(int sub, const std::string& resource, const std::string& rest = "") {
        return R"({"op":"subscribe","sub":)" + std::to_string(sub) + R"(,"resource":")" + resource + "\"" + rest + "}";
    }
    std::string epoch() { return text(object(client->get("/CarDataExchange").body).at("epoch")); }
    std::string since(int revision) {
        return R"(,"since":{"epoch":")" + epoch() + R"(","rev":)" + std::to_string(revision) + "}";
    }
    int upgradeStatus(const std::string& target, const std::string& lines) {
        return client
            ->exchange("GET " + target + " HTTP/1.1\r\n" + host() + "Connection: Upgrade\r\nUpgrade: websocket\r\n" +
                       lines + "\r\n")
            .status;
    }

    const std::string good = "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: "
                             "dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Protocol: cdx.v1\r\n";
};

TEST_F(Channels, AreGivenTheirProtocolAndNoExtension) {
    WebSocketPeer peer =
        WebSocketPeer::connect(server->port(), "/CarDataExchange",
                               "Sec-WebSocket-Protocol: other\r\nSec-WebSocket-Extensions: permessage-deflate\r\n");
    EXPECT_EQ(cdxtest::headerValue(peer.head(), "Sec-WebSocket-Protocol"), "cdx.v1");
    EXPECT_EQ(cdxtest::headerValue(peer.head(), "Sec-WebSocket-Extensions"), "");
}

TEST_F(Channels, AreRefusedElsewhereAndInOtherWords) {
    EXPECT_EQ(upgradeStatus("/CarDataExchange", good), 101);
    EXPECT_EQ(upgradeStatus("/", good), 404);
    EXPECT_EQ(upgradeStatus("/CarDataExchange/", good), 404);
    EXPECT_EQ(upgradeStatus(configPath, good), 404);
    EXPECT_EQ(upgradeStatus("/CarDataExchange?a=b", good), 400);
    EXPECT_EQ(upgradeStatus("/CarDataExchange",
                            "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"),
              400);
    EXPECT_EQ(
        upgradeStatus("/CarDataExchange",
                      "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: short\r\nSec-WebSocket-Protocol: cdx.v1\r\n"),
        400);
    EXPECT_EQ(upgradeStatus("/CarDataExchange", "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: "
                                                "dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Protocol: CDX.v1\r\n"),
              400);
}

TEST_F(Channels, OfAnotherVersionAreToldWhichIsSpoken) {
    const auto answer =
        client->exchange("GET /CarDataExchange HTTP/1.1\r\n" + host() +
                         "Connection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 8\r\n\r\n");
    EXPECT_EQ(answer.status, 426);
    EXPECT_EQ(answer.header("Upgrade"), "websocket");
    EXPECT_EQ(answer.header("Connection"), "Upgrade");
    EXPECT_EQ(answer.header("Sec-WebSocket-Version"), "13");
    EXPECT_EQ(client->get("/health").status, 200) << "the connection goes on";
    EXPECT_EQ(client
                  ->exchange("GET /CarDataExchange HTTP/1.1\r\n" + host() +
                             "Connection: Upgrade, close\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 8\r\n\r\n")
                  .header("Connection"),
              "Upgrade, close");
    EXPECT_TRUE(client->isEnded());
    EXPECT_EQ(upgradeStatus("/nowhere", "Sec-WebSocket-Version: 8\r\n"), 404);
}

TEST_F(Channels, TellWhatIsThereThenWhatChanges) {
    make(configPath, R"({"id":"a"})");
    make(configPath, R"({"id":"b"})");
    WebSocketPeer peer = channel();
    peer.text(subscribe(1, "cdxConfig"));
    EXPECT_EQ(*peer.readText(), R"({"op":"subscribed","sub":1,"epoch":")" + epoch() + R"(","resumed":false})");
    EXPECT_EQ(
        *peer.readText(),
        R"({"op":"event","sub":1,"prev":0,"rev":1,"element":{"id":"a","uri":"/CarDataExchange/cdxConfig/a","elementId":1}})");
    EXPECT_EQ(
        *peer.readText(),
        R"({"op":"event","sub":1,"prev":1,"rev":2,"element":{"id":"b","uri":"/CarDataExchange/cdxConfig/b","elementId":2}})");
    EXPECT_EQ(*peer.readText(), R"({"op":"current","sub":1,"prev":2,"rev":2})");
    client->patch(std::string(configPath) + "/a", R"({"name":"RefreshField^false>>A"})");
    EXPECT_EQ(
        *peer.readText(),
        R"({"op":"event","sub":1,"prev":2,"rev":3,"element":{"id":"a","name":"A","uri":"/CarDataExchange/cdxConfig/a","elementId":1},"new":false})");
    client->request("DELETE", std::string(configPath) + "/b");
    EXPECT_EQ(*peer.readText(), R"({"op":"event","sub":1,"prev":3,"rev":4,"removed":"b"})");
}

TEST_F(Channels, ResumeWhereASubscriberLeftOff) {
    make(configPath, R"({"id":"a"})");
    make(configPath, R"({"id":"b"})");
    client->request("DELETE", std::string(configPath) + "/a");
    WebSocketPeer peer = channel();
    peer.text(subscribe(5, "cdxConfig", since(1)));
    EXPECT_TRUE(message(peer).at("resumed").as_bool());
    EXPECT_EQ(message(peer).at("rev").as_int64(), 2);
    EXPECT_EQ(text(message(peer).at("removed")), "a");
    EXPECT_EQ(*peer.readText(), R"({"op":"current","sub":5,"prev":3,"rev":3})");
}

TEST_F(Channels, BeginAnewForAnotherEpochOrAPositionAhead) {
    make(configPath, "{}");
    WebSocketPeer peer = channel();
    for (const std::string& position : {std::string(R"(,"since":{"epoch":"0123456789abcdef","rev":1})"), since(2)}) {
        static int sub = 0;
        peer.text(subscribe(++sub, "cdxConfig", position));
        EXPECT_FALSE(message(peer).at("resumed").as_bool());
        EXPECT_EQ(message(peer).at("prev").as_int64(), 0);
        EXPECT_EQ(text(message(peer).at("op")), "current");
    }
}

TEST_F(Channels, FollowOneElement) {
    make(configPath, R"({"id":"a"})");
    WebSocketPeer peer = channel();
    peer.text(subscribe(1, "cdxConfig", R"(,"id":"b")"));
    EXPECT_FALSE(message(peer).at("resumed").as_bool());
    EXPECT_EQ(*peer.readText(), R"({"op":"current","sub":1,"prev":0,"rev":1})") << "what is not there is no error";
    make(configPath, R"({"id":"c"})");
    make(configPath, R"({"id":"b"})");
    const auto event = message(peer);
    EXPECT_EQ(event.at("prev").as_int64(), 1);
    EXPECT_EQ(event.at("rev").as_int64(), 3);
    client->request("DELETE", std::string(configPath) + "/b");
    EXPECT_EQ(text(message(peer).at("removed")), "b");
}

TEST_F(Channels, RefuseSubscriptionsWithoutEndingThemselves) {
    WebSocketPeer peer = channel();
    const auto status = [&](const std::string& payload) {
        peer.text(payload);
        const auto error = message(peer);
        EXPECT_EQ(text(error.at("op")), "error") << payload;
        EXPECT_TRUE(error.contains("sub")) << payload;
        EXPECT_FALSE(text(error.at("title")).empty());
        return error.at("status").as_int64();
    };
    EXPECT_EQ(status(subscribe(3, "cdxNothing")), 404);
    EXPECT_EQ(status(subscribe(3, "cdxData")), 409) << "a refused number is used up";
    EXPECT_EQ(status(subscribe(2, "cdxNothing")), 409);
    EXPECT_EQ(status(subscribe(2, "cdxData", R"(,"x":1)")), 400);
    EXPECT_EQ(status(subscribe(4, "cdxData", R"(,"id":"a/b")")), 400);
    EXPECT_EQ(status(subscribe(4, "cdxData")), 409);
    EXPECT_EQ(status(R"({"op":"unsubscribe","sub":4,"x":1})"), 400);
    peer.text(subscribe(5, "cdxData"));
    EXPECT_EQ(text(message(peer).at("op")), "subscribed");
}

TEST_F(Channels, TellNothingMoreOfWhatWasReleased) {
    WebSocketPeer peer = channel();
    follow(peer, 1, "cdxConfig");
    follow(peer, 2, "cdxConfig");
    peer.text(R"({"op":"unsubscribe","sub":1})");
    peer.text(R"({"op":"unsubscribe","sub":77})");
    follow(peer, 3, "cdxData"); // what was sent before has been taken in
    make(configPath, "{}");
    EXPECT_EQ(message(peer).at("sub").as_int64(), 2);
}

TEST_F(Channels, CarrySeveralSubscriptionsOfOneResource) {
    WebSocketPeer peer = channel();
    follow(peer, 1, "cdxConfig");
    follow(peer, 2, "cdxConfig");
    make(configPath, "{}");
    std::map<std::int64_t, std::int64_t> seen;
    for (int i = 0; i < 2; ++i) {
        const auto event = message(peer);
        seen[event.at("sub").as_int64()] = event.at("rev").as_int64();
    }
    EXPECT_EQ(seen, (std::map<std::int64_t, std::int64_t>{{1, 1}, {2, 1}}));
}

TEST_F(Channels, EndWithWhatCannotBeRead) {
    for (const char* payload : {"x", "[]", R"({"op":"subscribe"})", R"({"op":"hello","sub":1})",
                                R"({"op":"unsubscribe","sub":1.0})", R"({"op":"unsubscribe","sub":1,"sub":2})"}) {
        WebSocketPeer peer = channel();
        peer.text(payload);
        const auto error = message(peer);
        ASSERT_FALSE(error.empty()) << payload;
        EXPECT_EQ(text(error.at("op")), "error");
        EXPECT_EQ(error.at("status").as_int64(), 400);
        EXPECT_FALSE(error.contains("sub"));
        EXPECT_EQ(peer.readClose(), 1008u) << payload;
    }
}

TEST_F(Channels, EndWithTheCodeOfWhatWasWrong) {
    const auto closedWith = [&](const Frame& frame) {
        WebSocketPeer peer = channel();
        peer.send(frame);
        return peer.readClose().value_or(0);
    };
    Frame reserved;
    reserved.reserved = 4;
    Frame unmasked;
    unmasked.masked = false;
    EXPECT_EQ(closedWith(reserved), 1002u);
    EXPECT_EQ(closedWith(unmasked), 1002u);
    EXPECT_EQ(closedWith({cdxtest::Opcode::binary, "x"}), 1003u);
    EXPECT_EQ(closedWith({cdxtest::Opcode::text, "\xff"}), 1007u);
    EXPECT_EQ(closedWith({cdxtest::Opcode::text, std::string(64 * 1024 + 1, ' ')}), 1009u);
    EXPECT_EQ(closedWith({cdxtest::Opcode::text, std::string(64 * 1024, ' ')}), 1008u)
        << "not too large, but not readable";
}

TEST_F(Channels, AnswerPings) {
    WebSocketPeer peer = channel();
    peer.ping("are you there");
    const auto frame = peer.read();
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->opcode, cdxtest::Opcode::pong);
    EXPECT_EQ(frame->payload, "are you there");
}

TEST_F(Channels, EndWhenTheClientEndsThem) {
    WebSocketPeer peer = channel();
    peer.close(4000);
    EXPECT_EQ(peer.readClose(), 4000u);
    EXPECT_TRUE(peer.tcp().readToEnd());
}

TEST_F(Channels, AreToldThatTheServiceStops) {
    WebSocketPeer peer = channel();
    follow(peer, 1, "cdxConfig");
    std::thread stopping([this] { server->stop(); });
    EXPECT_EQ(peer.readClose(), 1001u);
    peer.close(1001);
    peer.tcp().close();
    stopping.join();
}

TEST_F(Channels, StayOpenHoweverQuiet) {
    WebSocketPeer peer = channel();
    follow(peer, 1, "cdxConfig");
    cdxtest::HttpTestClient idle(server->port());
    ASSERT_EQ(idle.get("/health").status, 200);
    clock->advance(std::chrono::hours(24));
    EXPECT_TRUE(idle.isEnded()) << "the clock has been looked at";
    make(configPath, "{}");
    EXPECT_EQ(message(peer).at("rev").as_int64(), 1);
}

TEST_F(Channels, OfASlowReaderGiveEveryElementsLatestState) {
    // More than the sockets between the two hold.
    const std::string body(200'000, 'x');
    constexpr int elements = 30;
    WebSocketPeer peer = channel();
    follow(peer, 1, "cdxConfig");
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < elements; ++i) {
            const std::string id = "e" + std::to_string(i);
            const std::string fields = R"("expiryTime":)" + std::to_string(round) + R"(,"recordBody":")" + body + "\"}";
            if (round == 0) {
                make(configPath, R"({"id":")" + id + "\"," + fields);
            } else {
                ASSERT_EQ(client->patch(std::string(configPath) + "/" + id, "{" + fields).status, 200);
            }
        }
    }
    std::map<std::string, std::int64_t> latest;
    std::int64_t position = 0;
    int events = 0;
    while (position < 3 * elements) {
        const auto event = message(peer);
        ASSERT_FALSE(event.empty());
        EXPECT_EQ(event.at("prev").as_int64(), position);
        position = event.at("rev").as_int64();
        latest[text(event.at("element").at("id"))] = event.at("element").at("expiryTime").as_int64();
        ++events;
    }
    EXPECT_EQ(latest.size(), std::size_t(elements));
    for (const auto& [id, round] : latest) {
        EXPECT_EQ(round, 2) << id;
    }
    EXPECT_LT(events, 3 * elements) << "states between were not kept for it";
}

TEST_F(Channels, TakeSubscriptionsThatComeWithTheUpgrade) {
    const Frame frame{cdxtest::Opcode::text, subscribe(1, "cdxConfig")};
    ASSERT_TRUE(client->send("GET /CarDataExchange HTTP/1.1\r\n" + host() +
                             "Connection: Upgrade\r\nUpgrade: websocket\r\n" + good + "\r\n" +
                             cdxtest::encode(frame, true)));
    EXPECT_EQ(client->read().status, 101);
    ASSERT_TRUE(client->tcp().takeUntil("\"resumed\":false}"));
    ASSERT_TRUE(client->tcp().takeUntil("\"op\":\"current\""));
}

TEST_F(Channels, BeginAnewWhenAForgottenRemovalOvertakesASubscriber) {
    Store::Options few;
    few.keptRemovals = 2;
    options.store = std::make_shared<Store>(nullptr, few);
    startService();
    for (int i = 0; i < 4; ++i) {
        make(dataPath, R"({"name":"client","eventId":"e"})");
    }
    const std::string control = std::string(controlPath) + "/" + make(controlPath, R"({"name":"client"})");
    WebSocketPeer peer = channel();
    follow(peer, 1, "cdxData");
    // Four removals by one request, so that none can be told before the next.
    EXPECT_EQ(client->patch(control, R"({"eventTicket":"e"})").status, 200);
    const auto anew = message(peer);
    EXPECT_EQ(text(anew.at("op")), "subscribed");
    EXPECT_FALSE(anew.at("resumed").as_bool());
    const auto current = message(peer);
    EXPECT_EQ(text(current.at("op")), "current");
    EXPECT_EQ(current.at("prev").as_int64(), 0);
    EXPECT_EQ(current.at("rev").as_int64(), 8);
}

} // namespace
} // namespace cdxservice
