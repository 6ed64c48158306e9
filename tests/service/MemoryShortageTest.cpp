#include "ServiceFixture.h"

#include <support/ProcessState.h>
#include <support/scarce/ScarceMemory.h>

#include <functional>
#include <optional>
#include <poll.h>
#include <set>

namespace cdxservice {
namespace {

using cdxtest::HttpTestClient;
using cdxtest::openDescriptors;
using cdxtest::WebSocketPeer;

/// A service that lacks memory at one moment of what a client does, for each such moment there is: however it ends for
/// the client, the service runs on and its data are whole.
class MemoryShortage : public ::testing::TestWithParam<std::uint64_t> {
protected:
    /// What a client does while memory is short.
    using Deed = std::function<void()>;
    /// What must be true of the data afterwards, in the words of a list of ids.
    using States = std::set<std::string>;

    void begin() {
        clock = std::make_shared<ManualClock>();
        ServerOptions options;
        options.clock = clock;
        options.maxConnections = 4;
        server = std::make_unique<Server>(options);
        server->start();
        client = std::make_unique<HttpTestClient>(server->port());
        for (const char* body : {R"({"id":"d1","name":"A","eventId":"E"})", R"({"id":"d2","name":"A","eventId":"E"})",
                                 R"({"id":"d3","name":"A","eventId":"F"})"}) {
            ASSERT_EQ(client->post(dataPath, body).status, 201);
        }
        const std::string mortal =
            R"({"id":"d4","timeToLive":10,"timestamp":)" + std::to_string(clock->sinceEpoch().count()) + "}";
        ASSERT_EQ(client->post(dataPath, mortal).status, 201);
        ASSERT_EQ(client->post(controlPath, R"({"id":"c","name":"A"})").status, 201);
        watcher.emplace(WebSocketPeer::connect(server->port()));
        watcher->text(R"({"op":"subscribe","sub":1,"resource":"cdxData"})");
        while (text(message(*watcher).at("op")) != "current") {
        }
        told = 4;
    }

    /// Sends and reads one answer, which is one of those expected, one that tells of the shortage, or the connection's
    /// end.
    void ask(const std::string& method, const std::string& target, const std::set<int>& expected,
             const std::string& headers = "", const std::string& body = "") {
        client->send(method + " " + target + " HTTP/1.1\r\nHost: localhost\r\n" + headers + "\r\n" + body);
        const cdxtest::HttpAnswer answer = client->read();
        if (answer.status == 0) {
            EXPECT_TRUE(client->isEnded(std::chrono::seconds(2))) << method << " " << target << " is never answered";
            client->close();
        } else {
            EXPECT_TRUE(answer.status == 500 || expected.count(answer.status) == 1) << answer.status << answer.body;
        }
    }

    /// The ids in cdxData, joined, and the control's ticket.
    std::string state() {
        std::set<std::string> ids;
        const boost::json::value list = boost::json::parse(client->get(dataPath).body);
        for (const auto& element : list.as_array()) {
            ids.insert(text(element.at("id")));
        }
        std::string joined;
        for (const std::string& id : ids) {
            joined += id + " ";
        }
        const auto control = object(client->get(std::string(controlPath) + "/c").body);
        return joined + (control.contains("eventTicket") ? text(control.at("eventTicket")) : "-");
    }

    /// A subscriber from before either lost its connection or comes to the same revision as the service.
    void expectTheWatcherIsTold() {
        const std::int64_t latest =
            object(client->get("/CarDataExchange").body).at("resources").at("cdxData").at("revision").as_int64();
        while (told < latest && readEvent()) {
        }
        EXPECT_TRUE(told == latest || watcher->tcp().readToEnd(std::chrono::seconds(1)))
            << "a subscriber waits in vain";
    }

    /// False: the connection ended, or nothing came.
    bool readEvent() {
        const auto next = watcher->readText();
        if (next) {
            const auto event = object(*next);
            EXPECT_EQ(event.at("prev").as_int64(), told);
            told = event.at("rev").as_int64();
        }
        return next.has_value();
    }

    /// As many connections as before are served: none is counted that is gone.
    void expectTheServiceServes() {
        watcher.reset();
        client->close();
        const auto deadline = std::chrono::steady_clock::now() + cdxtest::patience;
        bool served = false;
        while (!served && std::chrono::steady_clock::now() < deadline) {
            std::vector<std::unique_ptr<HttpTestClient>> all;
            served = true;
            for (int i = 0; i < 4; ++i) {
                all.push_back(std::make_unique<HttpTestClient>(server->port()));
                served = all.back()->get("/health").status == 200 && served;
            }
        }
        EXPECT_TRUE(served);
        WebSocketPeer fresh = WebSocketPeer::connect(server->port());
        fresh.text(R"({"op":"subscribe","sub":1,"resource":"cdxData"})");
        EXPECT_EQ(text(message(fresh).at("op")), "subscribed");
    }

    /// Does the deed with the first allocation of the service failing, then the second, and so on, until all went well.
    void atEveryMoment(const Deed& deed, const States& allowed) {
        const std::size_t before = openDescriptors().size();
        std::uint64_t moment = 0;
        for (bool failed = true; failed && !HasFailure();) {
            SCOPED_TRACE("allocation " + std::to_string(++moment));
            begin();
            {
                const cdxtest::scarce::Spared spared;
                cdxtest::scarce::refuse(moment, GetParam());
                deed();
                failed = cdxtest::scarce::end() >= moment;
            }
            client->close();
            if (server) {
                const std::string after = state();
                EXPECT_EQ(allowed.count(after), 1u) << after;
                expectTheWatcherIsTold();
                expectTheServiceServes();
            }
            client.reset();
            watcher.reset();
            server.reset();
            EXPECT_EQ(openDescriptors().size(), before);
        }
        EXPECT_GT(moment, 1u);
        std::cout << moment - 1 << " moments\n";
    }

    std::shared_ptr<ManualClock> clock;
    std::unique_ptr<Server> server;
    std::unique_ptr<HttpTestClient> client;
    std::optional<WebSocketPeer> watcher;
    std::int64_t told = 0; ///< The revision of the latest event that the watcher read.
    const std::string merge = "Content-Type: application/merge-patch+json\r\n";
};

TEST_P(MemoryShortage, DuringASettlingChangesAllOrNothing) {
    const std::string body = R"({"eventTicket":"E","dataDeliveryResult":"okDelivered"})";
    atEveryMoment(
        [&] {
            ask("PATCH", std::string(controlPath) + "/c", {200},
                merge + "Content-Length: " + std::to_string(body.size()) + "\r\n", body);
        },
        {"d1 d2 d3 d4 -", "d3 d4 E"});
}

TEST_P(MemoryShortage, DuringACreationMakesOneElementOrNone) {
    const std::string body = R"({"id":"d5","name":"A","eventId":"E","timeToLive":20,"timestamp":1700000000000,)"
                             R"("messageId":"longer than what fits into a string itself","cdxClientDataReport":["a"]})";
    atEveryMoment(
        [&] {
            ask("POST", dataPath, {201}, jsonType + ("Content-Length: " + std::to_string(body.size()) + "\r\n"), body);
        },
        {"d1 d2 d3 d4 -", "d1 d2 d3 d4 d5 -"});
}

TEST_P(MemoryShortage, DuringALongChunkedCreationMakesOneElementOrNone) {
    const std::string body = R"({"id":"d5","messageId":")" + std::string(10'000, 'x') + "\"}";
    std::string chunks;
    for (std::size_t at = 0; at < body.size(); at += 1000) {
        const std::string piece = body.substr(at, 1000);
        char size[8];
        std::snprintf(size, sizeof size, "%zx", piece.size());
        chunks.append(size).append(" ; a=\"b\"\r\n").append(piece).append("\r\n");
    }
    atEveryMoment(
        [&] {
            ask("POST", dataPath, {201}, std::string(jsonType) + "Transfer-Encoding: chunked\r\n",
                chunks + "0\r\n\r\n");
        },
        {"d1 d2 d3 d4 -", "d1 d2 d3 d4 d5 -"});
}

TEST_P(MemoryShortage, DuringARemovalRemovesItOrNot) {
    atEveryMoment([&] { ask("DELETE", std::string(dataPath) + "/d2", {204}); }, {"d1 d2 d3 d4 -", "d1 d3 d4 -"});
}

TEST_P(MemoryShortage, DuringReadsAndRefusalsLeavesTheDataAlone) {
    atEveryMoment(
        [&] {
            ask("GET", std::string(dataPath) + "?sort=-name,id&fields=name,eventId&limit=2&name=A", {200});
            ask("GET", dataPath, {200});
            ask("GET", "/CarDataExchange", {200});
            ask("GET", "/registry/CarDataExchange", {200});
            ask("GET", "/nowhere", {404});
            ask("POST", dataPath, {400}, std::string(jsonType) + "Content-Length: 2\r\n", "{x");
            ask("POST", dataPath, {422}, std::string(jsonType) + "Content-Length: 11\r\n", R"({"color":1})");
            ask("POST", dataPath, {409}, std::string(jsonType) + "Content-Length: 11\r\n", R"({"id":"d1"})");
        },
        {"d1 d2 d3 d4 -"});
}

TEST_P(MemoryShortage, WhenATimeIsOverIsMadeUpForLater) {
    atEveryMoment(
        [&] {
            clock->advance(std::chrono::seconds(10));
            ask("GET", std::string(dataPath) + "/d4", {404});
        },
        {"d1 d2 d3 -"});
}

TEST_P(MemoryShortage, WhenATimeIsOverIsMadeUpForByALaterTick) {
    atEveryMoment(
        [&] {
            clock->advance(std::chrono::seconds(10));
            EXPECT_TRUE(readEvent() || watcher->tcp().readToEnd(std::chrono::seconds(1)));
        },
        {"d1 d2 d3 -"});
}

TEST_P(MemoryShortage, OnNewConnectionsEndsTheseAlone) {
    atEveryMoment(
        [&] {
            client->close();
            ask("GET", "/health", {200});
            client->close();
            client->send(
                "GET /CarDataExchange HTTP/1.1\r\nHost: localhost\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n"
                "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"
                "Sec-WebSocket-Protocol: cdx.v1\r\n\r\n" +
                cdxtest::encode({cdxtest::Opcode::text,
                                 R"({"op":"subscribe","sub":1,"resource":"cdxConfig","id":"an-id-of-some-length"})"},
                                true) +
                cdxtest::encode({cdxtest::Opcode::text, R"({"op":"subscribe","sub":1,"resource":"cdxNothing"})"},
                                true));
            const auto refusal = client->tcp().takeUntil("\"status\":409");
            EXPECT_TRUE(refusal || client->isEnded(std::chrono::seconds(2)));
            client->close();
        },
        {"d1 d2 d3 d4 -"});
}

TEST_P(MemoryShortage, WhileItStopsDoesNotHoldItUp) {
    atEveryMoment(
        [&] {
            server->stop();
            server.reset();
        },
        {});
}

INSTANTIATE_TEST_SUITE_P(AllocationsThatFail, MemoryShortage, ::testing::Values(1, 8));

} // namespace
} // namespace cdxservice
