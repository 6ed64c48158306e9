#include "ScriptedService.h"
#include "TestClient.h"

#include <support/HttpMistakes.h>

#include <gmock/gmock.h>

namespace {

using namespace xaltest;
using namespace cdxtest;
using testing::ElementsAre;
using testing::HasSubstr;

const std::string statusLine = "HTTP/1.1 101 Switching Protocols\r\n";
const std::string switching = "Connection: Upgrade\r\nUpgrade: websocket\r\n";
const std::string accepting = "Sec-WebSocket-Accept: KEY\r\n"; ///< the digest comes in place of KEY
const std::string speaking = "Sec-WebSocket-Protocol: cdx.v1\r\n";
const std::string good = switching + accepting + speaking;

/// A service's side of an upgrade.
class Upgrade : public testing::Test {
protected:
    /// Takes the client's request, and sends this for an answer.
    void answer(std::string bytes, std::size_t slice = 0) {
        m_tcp = peer.acceptTcp();
        const std::string head = m_tcp.takeUntil("\r\n\r\n").value_or("");
        if (const auto place = bytes.find("KEY"); place != std::string::npos)
            bytes.replace(place, 3, webSocketAccept(headerValue(head, "Sec-WebSocket-Key")));
        m_tcp.send(bytes, slice);
    }

    ScriptedService peer;
    TcpPeer m_tcp;
};

// What a service must not answer.

std::vector<HttpStrictnessCase> headerCases() {
    std::vector<HttpStrictnessCase> cases{
        {"bare line feeds", "HTTP/1.1 101 Switching Protocols\n" + good + "\n", 0},
        {"no digest", statusLine + switching + speaking + "\r\n", 101},
        {"another key's digest", statusLine + switching + "Sec-WebSocket-Accept: d3Jvbmc=\r\n" + speaking + "\r\n",
         101},
        {"an endless digest",
         statusLine + switching + "Sec-WebSocket-Accept: " + std::string(2000, 'a') + "\r\n" + speaking + "\r\n", 101},
        {"two digests", statusLine + good + accepting + "\r\n", 101},
        {"no upgrade", statusLine + "Connection: Upgrade\r\n" + accepting + speaking + "\r\n", 101},
        {"an upgrade to something else",
         statusLine + "Connection: Upgrade\r\nUpgrade: other\r\n" + accepting + speaking + "\r\n", 101},
        {"an upgrade to more",
         statusLine + "Connection: Upgrade\r\nUpgrade: websocket, other\r\n" + accepting + speaking + "\r\n", 101},
        {"two upgrades", statusLine + good + "Upgrade: websocket\r\n\r\n", 101},
        {"no word on the connection", statusLine + "Upgrade: websocket\r\n" + accepting + speaking + "\r\n", 101},
        {"another word on the connection",
         statusLine + "Connection: Upgrades\r\nUpgrade: websocket\r\n" + accepting + speaking + "\r\n", 101},
        {"no subprotocol", statusLine + switching + accepting + "\r\n", 101},
        {"another subprotocol", statusLine + switching + accepting + "Sec-WebSocket-Protocol: other\r\n\r\n", 101},
        {"two subprotocols", statusLine + good + speaking + "\r\n", 101},
        {"an extension", statusLine + good + "Sec-WebSocket-Extensions: permessage-deflate\r\n\r\n", 101},
        {"a length", statusLine + good + "Content-Length: 0\r\n\r\n", 101},
        {"a transfer coding", statusLine + good + "Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n", 101},
    };
    for (const HttpMistake& mistake : headerMistakes(good, ""))
        cases.push_back({mistake.title, statusLine + mistake.headers + "\r\n", 101});
    return cases;
}

std::vector<HttpStrictnessCase> statusCases() {
    return {
        {"nothing", "", 0, true},
        {"no HTTP at all", "SSH-2.0-server\r\n", 0},
        {"another version", "HTTP/1.0 101 Switching Protocols\r\n" + good + "\r\n", 101},
        {"a status line cut short", "HTTP/1.1 10", 0, true},
        {"a header cut short", statusLine + good, 101, true},
        {"an over-long status line", "HTTP/1.1 101 " + std::string(70'000, 'a') + "\r\n" + good + "\r\n", 0},
        {"interim answers without end",
         [] {
             std::string interim;
             for (int i = 0; i < 5000; ++i)
                 interim += "HTTP/1.1 100 Continue\r\n\r\n";
             return interim;
         }(),
         0},
        {"an ordinary answer", "HTTP/1.1 200 OK\r\n" + good + "\r\n", 200},
        {"a redirect", "HTTP/1.1 301 Moved\r\nLocation: /\r\nContent-Length: 0\r\n\r\n", 301},
        {"unauthorised", "HTTP/1.1 401 Unauthorized\r\nContent-Length: 0\r\n\r\n", 401},
        {"not found, with a body that never comes", "HTTP/1.1 404 Not Found\r\nContent-Length: 99\r\n\r\n", 404},
        {"a service away", "HTTP/1.1 503 Away\r\nConnection: close\r\n\r\nnot now", 503},
    };
}

class BadUpgrade : public Upgrade, public testing::WithParamInterface<HttpStrictnessSection> {};

TEST_P(BadUpgrade, IsAFailedAttemptWithItsReason) {
    playSection("framework", GetParam(), ", no connection", [this](const HttpStrictnessCase& sent) -> std::string {
        TestClient client(peer.uri());
        client.listen();
        answer(sent.bytes);
        if (sent.ends)
            m_tcp.endSending();
        if (client.log->await("no connection").empty())
            return "no attempt failed";
        client.close();
        const std::vector<std::string> told = client.told.lines();
        return told.empty() ? "" : told.front();
    });
}

INSTANTIATE_TEST_SUITE_P(Section, BadUpgrade,
                         testing::Values(HttpStrictnessSection{"upgrade_headers", headerCases},
                                         HttpStrictnessSection{"upgrade_status_lines", statusCases}),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(Upgrade, ThatIsRefusedNamesItsStatusAndIsTriedAgain) {
    TestClient client(peer.uri());
    client.listen();
    answer("HTTP/1.1 503 Away\r\nContent-Length: 0\r\n\r\n");
    EXPECT_THAT(client.log->await("no connection"), HasSubstr("upgrade refused with status 503"));
    answer(statusLine + good + "\r\n");
    ASSERT_TRUE(client.connection());
    EXPECT_THAT(client.told.lines(), ElementsAre("connected"));
}

// What a service may answer.

struct Good {
    const char* name;
    std::string bytes;
};

class GoodUpgrade : public Upgrade, public testing::WithParamInterface<Good> {
protected:
    /// Whether the client is connected, and answers the pings that come with the answer itself.
    void expectPongs(std::size_t slice) {
        // More than the client takes at once.
        constexpr std::size_t pings = 20;
        const Frame ping{Opcode::ping, std::string(120, 'p')};
        std::string bytes = GetParam().bytes;
        for (std::size_t i = 0; i < pings; ++i)
            bytes += encode(ping, false);
        TestClient client(peer.uri());
        client.listen();
        answer(bytes, slice);
        ASSERT_TRUE(client.connection()) << client.log->await("no connection");
        EXPECT_TRUE(m_tcp.take(pings * encode(ping, true).size()));
        EXPECT_EQ(client.log->count("no connection"), 0u);
        m_tcp.close();
    }
};

TEST_P(GoodUpgrade, ConnectsAtOnceAndByteByByte) {
    expectPongs(0);
    expectPongs(1);
}

INSTANTIATE_TEST_SUITE_P(
    FromTheService, GoodUpgrade,
    testing::Values(
        Good{"Plain", statusLine + good + "\r\n"}, Good{"WithoutAReason", "HTTP/1.1 101 \r\n" + good + "\r\n"},
        Good{"InAnyCase", statusLine + "connection: UPGRADE\r\nUPGRADE: WebSocket\r\nsec-websocket-accept:KEY\r\n" +
                              speaking + "\r\n"},
        Good{"AmongOthers", statusLine + "Server: x\r\nConnection: keep-alive, upgrade\r\nUpgrade: websocket\r\n" +
                                accepting + speaking + "Date: now\r\n\r\n"},
        Good{"InTwoLines", statusLine + "Connection: keep-alive\r\n" + good + "\r\n"},
        Good{"BehindInterimAnswers",
             "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early Hints\r\nLink: x\r\n\r\n" + statusLine + good + "\r\n"},
        Good{"WithALongHeader", statusLine + "A: " + std::string(60 * 1024, 'a') + "\r\n" + good + "\r\n"}),
    [](const auto& tested) { return std::string(tested.param.name); });

} // namespace
