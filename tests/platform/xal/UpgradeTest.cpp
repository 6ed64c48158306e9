#include "ScriptedService.h"
#include "TestClient.h"

#include <support/HttpMistakes.h>

#include <gmock/gmock.h>

namespace {

using namespace xaltest;
using namespace cdxtest;
using testing::ElementsAre;

const std::string statusLine = "HTTP/1.1 101 Switching Protocols\r\n";
const std::string switching = "Connection: Upgrade\r\nUpgrade: websocket\r\n";
const std::string accepting = "Sec-WebSocket-Accept: KEY\r\n"; ///< the digest comes in place of KEY
const std::string speaking = "Sec-WebSocket-Protocol: cdx.v1\r\n";
const std::string good = switching + accepting + speaking;

/// A service that answers one upgrade.
class UpgradingService {
public:
    std::string uri() const { return m_service.uri(); }
    /// Takes the client's request, and sends this for an answer.
    TcpPeer answer(std::string bytes, std::size_t slice = 0) {
        TcpPeer tcp = m_service.acceptTcp();
        const std::string head = tcp.takeUntil("\r\n\r\n").value_or("");
        const std::string digest = webSocketAccept(headerValue(head, "Sec-WebSocket-Key"));
        for (auto place = bytes.find("KEY"); place != std::string::npos; place = bytes.find("KEY", place))
            bytes.replace(place, 3, digest);
        tcp.send(bytes, slice);
        return tcp;
    }

private:
    ScriptedService m_service;
};

// What a service must not answer.

using Cases = std::vector<HttpStrictnessCase>;

HttpStrictnessCase refused(const char* title, const std::string& headers, const std::string& reason) {
    return {title, statusLine + headers + "\r\n", 101, false, reason};
}

Cases headerCases() {
    const std::string noWebSocket = "upgrade to something else than a WebSocket";
    const std::string noConnection = "upgrade of something else than the connection";
    const std::string noSubprotocol = "upgrade without the subprotocol";
    const std::string noDigest = "upgrade without one digest of its key";
    const std::string onConnection = "Connection: Upgrade\r\n" + accepting + speaking;
    const std::string toWebSocket = "Upgrade: websocket\r\n" + accepting + speaking;
    Cases cases{
        refused("no digest", switching + speaking, noDigest),
        refused("another key's digest", switching + "Sec-WebSocket-Accept: d3Jvbmc=\r\n" + speaking,
                "The WebSocket handshake Sec-WebSocket-Accept field is invalid"),
        refused("an endless digest", switching + speaking + "Sec-WebSocket-Accept: " + std::string(2000, 'a') + "\r\n",
                noDigest),
        refused("two digests", good + accepting, noDigest),
        refused("no upgrade", onConnection, noWebSocket),
        refused("an upgrade to something else", onConnection + "Upgrade: other\r\n", noWebSocket),
        refused("an upgrade to more", onConnection + "Upgrade: websocket, other\r\n", noWebSocket),
        refused("two upgrades", good + "Upgrade: websocket\r\n", noWebSocket),
        refused("no subprotocol", switching + accepting, noSubprotocol),
        refused("another subprotocol", switching + accepting + "Sec-WebSocket-Protocol: other\r\n", noSubprotocol),
        refused("two subprotocols", good + speaking, noSubprotocol),
        refused("an extension", good + "Sec-WebSocket-Extensions: permessage-deflate\r\n",
                "upgrade with an extension that was not offered"),
        refused("a length", good + "Content-Length: 0\r\n", "malformed answer: an interim answer with a body"),
        refused("a transfer coding", good + "Transfer-Encoding: chunked\r\n",
                "malformed answer: an interim answer with a body"),
        refused("no word on the connection", toWebSocket, noConnection),
    };
    for (const char* value : {"Upgrades", "Upgrade other", "Upgrade/1", "Upgrade;q=0", "Upgrade=no", "Upgrade\xc3"})
        cases.push_back(
            refused("another word on the connection", toWebSocket + "Connection: " + value + "\r\n", noConnection));
    for (const HttpMistake& mistake : headerMistakes(good, ""))
        cases.push_back(refused(mistake.title, mistake.headers, "malformed answer"));
    return cases;
}

Cases statusCases() {
    std::string interim;
    for (int i = 0; i < 5000; ++i)
        interim += "HTTP/1.1 100 Continue\r\n\r\n";
    const std::string noHttp = "malformed answer: it is not HTTP/1";
    const std::string tooLarge = "malformed answer: the header is too large";
    const std::string cutShort = "malformed answer: the connection was closed before its end";
    return {
        {"nothing", "", 0, true, "end of stream"},
        {"no HTTP at all", "SSH-2.0-server\r\n", 0, false, noHttp},
        {"another version", "HTTP/1.0 101 Switching Protocols\r\n" + good + "\r\n", 101, false,
         "malformed answer: it switches protocols in HTTP/1.0"},
        {"bare line feeds", "HTTP/1.1 101 Switching Protocols\n" + good + "\n", 0, false,
         "malformed answer: a line ends without a carriage return"},
        {"a status line cut short", "HTTP/1.1 10", 0, true, cutShort},
        {"a header cut short", statusLine + good, 101, true, cutShort},
        {"an over-long status line", "HTTP/1.1 101 " + std::string(70'000, 'a') + "\r\n" + good + "\r\n", 0, false,
         tooLarge},
        {"interim answers without end", interim, 0, false, tooLarge},
        {"an ordinary answer", "HTTP/1.1 200 OK\r\n" + good + "\r\n", 200, false, "upgrade refused with status 200"},
        {"a redirect", "HTTP/1.1 301 Moved\r\nLocation: /\r\nContent-Length: 0\r\n\r\n", 301, false,
         "upgrade refused with status 301"},
        {"unauthorised", "HTTP/1.1 401 Unauthorized\r\nContent-Length: 0\r\n\r\n", 401, false,
         "upgrade refused with status 401"},
        {"not found, with a body that never comes", "HTTP/1.1 404 Not Found\r\nContent-Length: 99\r\n\r\n", 404, false,
         "upgrade refused with status 404"},
        {"a service away", "HTTP/1.1 503 Away\r\nConnection: close\r\n\r\nnot now", 503, false,
         "upgrade refused with status 503"},
    };
}

class BadUpgrade : public testing::TestWithParam<HttpStrictnessSection> {};

/// What is not as it must be where a client is answered so; empty when all is.
std::string difference(const HttpStrictnessCase& sent) {
    UpgradingService service;
    TestClient client(service.uri());
    client.listen();
    TcpPeer tcp = service.answer(sent.bytes);
    if (sent.ends)
        tcp.endSending();
    const std::string line = client.log->await("no connection");
    if (line.find(": " + sent.reason) == std::string::npos)
        return line.empty() ? "no failed attempt" : line;
    if (!tcp.readToEnd())
        return "the connection goes on";
    client.close();
    return client.told.size() == 0 ? "" : client.told.lines().front();
}

TEST_P(BadUpgrade, IsAFailedAttemptWithItsReason) {
    playSection("framework", GetParam(), "", difference);
}

INSTANTIATE_TEST_SUITE_P(Section, BadUpgrade,
                         testing::Values(HttpStrictnessSection{"upgrade_headers", headerCases},
                                         HttpStrictnessSection{"upgrade_status_lines", statusCases}),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST(Upgrade, ThatIsRefusedIsTriedAgain) {
    UpgradingService service;
    TestClient client(service.uri());
    client.listen();
    const TcpPeer first = service.answer("HTTP/1.1 503 Away\r\nContent-Length: 0\r\n\r\n");
    const TcpPeer second = service.answer(statusLine + good + "\r\n");
    ASSERT_TRUE(client.connection());
    EXPECT_THAT(client.told.lines(), ElementsAre("connected"));
}

// What a service may answer.

struct Good {
    const char* name;
    std::string bytes;
};

class GoodUpgrade : public testing::TestWithParam<Good> {
protected:
    /// Whether the client is connected, and answers the pings that come right behind the answer.
    static void expectPongs(std::size_t slice) {
        constexpr int pings = 20; // more than the client takes at once
        std::string bytes = GetParam().bytes;
        for (int i = 0; i < pings; ++i)
            bytes += encode({Opcode::ping, std::string(120, static_cast<char>('a' + i))}, false);
        UpgradingService service;
        TestClient client(service.uri());
        client.listen();
        TcpPeer tcp = service.answer(bytes, slice);
        ASSERT_TRUE(client.connection()) << client.log->await("no connection");
        for (int i = 0; i < pings; ++i) {
            std::optional<Frame> pong;
            while (!(pong = takeFrame(tcp.received())) && tcp.read() == TcpPeer::Read::Bytes) {
            }
            ASSERT_TRUE(pong);
            EXPECT_EQ(pong->payload, std::string(120, static_cast<char>('a' + i)));
        }
        EXPECT_EQ(client.log->count("no connection"), 0u);
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
        Good{"AmongOthers", "HTTP/1.1 101 \xc3\xa4\r\nServer: \xc3\xa4\r\nSet-Cookie: a\r\nSet-Cookie: b\r\nEmpty:\r\n"
                            "Blank: \r\nConnection: , keep-alive, upgrade ,\r\nUpgrade:\twebsocket\t\r\n" +
                                accepting + speaking + "Sec-WebSocket-Version: 13\r\n\r\n"},
        Good{"InTwoLines", statusLine + "Connection: keep-alive\r\n" + good + "\r\n"},
        Good{"BehindInterimAnswers",
             "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early Hints\r\nLink: x\r\n\r\n" + statusLine + good + "\r\n"},
        Good{"WithALongHeader", statusLine + "A: " + std::string(60 * 1024, 'a') + "\r\n" + good + "\r\n"}),
    [](const auto& tested) { return std::string(tested.param.name); });

} // namespace
