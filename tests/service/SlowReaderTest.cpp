#include "Program.h"
#include "ServiceFixture.h"

#include <support/ComesTrue.h>
#include <support/ProcessState.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <vector>

namespace cdxservice {
namespace {

using cdxtest::memoryTells;
using cdxtest::openDescriptors;
using cdxtest::residentKib;
using cdxtest::TcpPeer;

/// Readers that take nothing: their side of the connection holds next to nothing, so that what is not sent is held by
/// the service.
class SlowReaders : public ServiceFixture {
protected:
    void SetUp() override {
        ServiceFixture::SetUp();
        alone = openDescriptors().size();
    }

    void fill(int elements, std::size_t bytes) {
        for (int i = 0; i < elements; ++i) {
            make(configPath, R"({"recordBody":")" + std::string(bytes, 'x') + "\"}");
        }
        whole = client->get(configPath).body.size();
    }

    TcpPeer connectNarrow() {
        cdxtest::Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const int bytes = 4096;
        ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(server->port());
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        return TcpPeer(std::move(socket));
    }

    /// Asks for the whole list, and returns once the service answers.
    TcpPeer askAndReadNothing(const std::string& query = "") {
        TcpPeer reader = connectNarrow();
        EXPECT_TRUE(reader.send("GET " + std::string(configPath) + query + " HTTP/1.1\r\n" + host() + "\r\n"));
        awaitAnswer(reader);
        return reader;
    }
    TcpPeer subscribeAndReadNothing() {
        TcpPeer reader = connectNarrow();
        reader.send(
            "GET /CarDataExchange HTTP/1.1\r\n" + host() +
            "Connection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\nSec-WebSocket-Key: "
            "dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Protocol: cdx.v1\r\n\r\n" +
            cdxtest::encode({cdxtest::Opcode::text, R"({"op":"subscribe","sub":1,"resource":"cdxConfig"})"}, true));
        awaitAnswer(reader);
        return reader;
    }
    static void awaitAnswer(const TcpPeer& reader) {
        pollfd answered = {reader.fd(), POLLIN, 0};
        EXPECT_EQ(::poll(&answered, 1, 20'000), 1);
    }

    /// Moves the clock on until one side of one connection is all that is left; false when that does not come.
    bool isEndedByTheService(std::chrono::milliseconds step) {
        client->close();
        return cdxtest::comesTrue([&] {
            clock->advance(step);
            return openDescriptors().size() == alone + 1;
        });
    }

    std::size_t whole = 0; ///< The bytes of the list.
    std::size_t alone = 0; ///< Descriptors without any connection.
};

TEST_F(SlowReaders, OfAnAnswerAreEndedWhenTheyTakeNothing) {
    fill(40, 200'000);
    TcpPeer reader = askAndReadNothing();
    EXPECT_TRUE(isEndedByTheService(options.idleTimeout));
    reader.readToEnd();
    EXPECT_LT(reader.received().size(), whole);
}

TEST_F(SlowReaders, OfAChannelAreEndedWhenTheyTakeNothing) {
    fill(40, 200'000);
    TcpPeer reader = subscribeAndReadNothing();
    EXPECT_TRUE(isEndedByTheService(options.stallTimeout));
    reader.readToEnd();
    EXPECT_LT(reader.received().size(), whole);
}

TEST_F(SlowReaders, ThatGoOnGetTheListAsItWasWhenTheyAsked) {
    fill(3'000, 1'000);
    TcpPeer reader = askAndReadNothing("?fields=recordBody");
    TcpPeer other = askAndReadNothing();
    const auto latest = boost::json::parse(client->get(std::string(configPath) + "?limit=1").body).as_array();
    const auto first = latest.at(0).as_object();
    client->request("DELETE", text(first.at("uri")));
    make(configPath, R"({"id":"later"})");
    for (TcpPeer* each : {&reader, &other}) {
        const auto head = each->takeUntil("\r\n\r\n");
        ASSERT_TRUE(head);
        const auto body = each->take(std::stoul(cdxtest::headerValue(*head, "Content-Length")));
        ASSERT_TRUE(body);
        const auto list = boost::json::parse(*body).as_array();
        ASSERT_EQ(list.size(), 3'000u);
        EXPECT_EQ(list[0].at("id"), first.at("id"));
        EXPECT_EQ(list[0].at("recordBody").as_string().size(), 1'000u);
        each->send("GET /health HTTP/1.1\r\n" + host() + "\r\n");
        EXPECT_TRUE(each->takeUntil(R"({"status":"ok"})")) << "and the connection goes on";
    }
}

TEST_F(SlowReaders, ManyOfAListHoldLittleAndHarmNobody) {
    fill(3'000, 1'000);
    const long before = residentKib();
    std::vector<TcpPeer> readers;
    for (int i = 0; i < 100; ++i) {
        readers.push_back(askAndReadNothing(i % 2 == 0 ? "" : "?fields=recordBody"));
    }
    const long grown = residentKib() - before;
    std::cout << "100 readers of a list of " << whole / 1024 << " KiB who take nothing: grown by " << grown << " KiB\n";
    RecordProperty("grown_kib", static_cast<int>(grown));
    EXPECT_TRUE(grown < 32 * 1024 || !memoryTells) << "not 100 times the list";
    EXPECT_EQ(client->get(configPath).body.size(), whole);
}

class HeldMemory : public SlowReaders {
protected:
    static constexpr std::size_t mebibyte = 1'048'576;

    HeldMemory() {
        options.maxHeldBytes = 2 * mebibyte;
        options.log = [this](const std::string& line) {
            if (line.find("held memory") != std::string::npos) {
                ++relieved;
            }
        };
    }
    ~HeldMemory() override { server.reset(); }

    /// Moves the clock on, and returns once the service has looked at what is held: the end of a message's time is told
    /// after that.
    void advance(std::chrono::seconds by) {
        make(dataPath, R"({"timestamp":)" + std::to_string(clock->sinceEpoch().count()) + R"(,"timeToLive":)" +
                           std::to_string(by.count()) + "}");
        cdxtest::WebSocketPeer witness = channel();
        witness.text(R"({"op":"subscribe","sub":1,"resource":"cdxData"})");
        while (text(message(witness).at("op")) != "current") {
        }
        clock->advance(by);
        EXPECT_TRUE(message(witness).contains("removed"));
    }

    std::atomic<int> relieved = 0;
};

TEST_F(HeldMemory, IsTakenFromThoseWhoMoveNothingForLongest) {
    fill(3'000, 1'000);
    const long before = residentKib();
    std::vector<TcpPeer> readers;
    const auto deadline = std::chrono::steady_clock::now() + cdxtest::patience;
    while (relieved == 0 && std::chrono::steady_clock::now() < deadline) {
        readers.push_back(askAndReadNothing());
        clock->advance(std::chrono::milliseconds(1));
    }
    EXPECT_TRUE(residentKib() - before < 32 * 1024 || !memoryTells);
    readers.front().readToEnd();
    EXPECT_LT(readers.front().received().size(), whole) << "the first to stand still";
    TcpPeer& last = readers.back();
    ASSERT_TRUE(last.takeUntil("\r\n\r\n"));
    EXPECT_TRUE(last.take(whole)) << "the last one is served on";
}

TEST_F(HeldMemory, IsLeftForAWhileToThoseWhoHaveJustMoved) {
    fill(3'000, 1'000);
    std::vector<TcpPeer> readers;
    for (int i = 0; i < 40; ++i) {
        readers.push_back(askAndReadNothing());
        clock->advance(std::chrono::milliseconds(1));
    }
    client->patch(text(boost::json::parse(client->get(std::string(configPath) + "?limit=1").body).at(0).at("uri")),
                  R"({"recordId":"r"})");
    advance(std::chrono::seconds(1));
    EXPECT_EQ(relieved, 0) << "beyond the bound, but nobody is still yet";
    advance(std::chrono::seconds(5));
    EXPECT_GT(relieved, 0);
    TcpPeer& last = readers.back();
    ASSERT_TRUE(last.takeUntil("\r\n\r\n"));
    EXPECT_TRUE(last.take(whole)) << "only so many end as must";
}

TEST_F(HeldMemory, OfAnEventThatAllShareIsNoReasonToEndAnyChannel) {
    std::vector<TcpPeer> channels;
    for (int i = 0; i < 20; ++i) {
        channels.push_back(subscribeAndReadNothing());
    }
    make(configPath, R"({"recordBody":")" + std::string(900'000, 'x') + "\"}");
    advance(std::chrono::seconds(10));
    EXPECT_EQ(relieved, 0);
}

TEST_F(HeldMemory, OfBodiesThatNeverEndIsBounded) {
    const std::string begin = "POST " + std::string(configPath) + " HTTP/1.1\r\n" + host() + jsonType +
                              "Content-Length: 1000000\r\n\r\n" + std::string(999'999, ' ');
    const long before = residentKib();
    std::vector<TcpPeer> writers;
    for (int i = 0; i < 100; ++i) {
        writers.push_back(TcpPeer::connect(server->port()));
        writers.back().send(begin);
    }
    const auto deadline = std::chrono::steady_clock::now() + cdxtest::patience;
    do {
        EXPECT_EQ(client->get("/health").status, 200);
    } while (relieved == 0 && std::chrono::steady_clock::now() < deadline);
    const long grown = residentKib() - before;
    std::cout << "100 bodies of a MiB that never end: grown by " << grown << " KiB\n";
    EXPECT_GT(relieved, 0);
    EXPECT_TRUE(grown < 48 * 1024 || !memoryTells) << "four times the bound, and buffers that were doubled";
    EXPECT_EQ(client->post(configPath, "{}").status, 201) << "whoever holds nothing is not ended";
}

TEST_F(HeldMemory, IsGivenBackOnceItsConnectionIsQuiet) {
    std::vector<cdxtest::HttpTestClient> quiet;
    for (int i = 0; i < 20; ++i) {
        quiet.emplace_back(server->port());
        EXPECT_EQ(quiet.back().post(configPath, R"({"none":")" + std::string(400'000, 'x') + "\"}").status, 422);
    }
    fill(100, 1'000);
    std::vector<cdxtest::WebSocketPeer> channels;
    for (int i = 0; i < 80; ++i) {
        channels.push_back(channel());
        channels.back().text(R"({"op":"subscribe","sub":1,"resource":"cdxConfig"})");
        while (text(message(channels.back()).at("op")) != "current") {
        }
        channels.back().text(R"({"op":"unsubscribe","sub":1,")" + std::string(60'000, ' ') + "\":1}");
        EXPECT_EQ(message(channels.back()).at("status"), 400);
    }
    advance(std::chrono::seconds(10));
    EXPECT_EQ(relieved, 0);
    for (cdxtest::HttpTestClient& each : quiet) {
        EXPECT_EQ(each.get("/health").status, 200);
    }
}

class HeldStates : public HeldMemory {
protected:
    /// Elements that take some 16 MB, more than the system holds of a list on its way.
    void fillWithin(std::size_t maxHeldBytes) {
        options.maxHeldBytes = maxHeldBytes;
        startService();
        fill(40, 200'000);
    }
    void addReaders(int count) {
        for (int i = 0; i < count; ++i) {
            readers.push_back(askAndReadNothing());
        }
    }
    void replaceAll() {
        const auto list = boost::json::parse(client->get(std::string(configPath) + "?fields=id").body);
        const std::string body = R"({"recordBody":")" + std::string(200'001 + replaced, 'x') + "\"}";
        for (const auto& element : list.as_array()) {
            EXPECT_EQ(client->patch(text(element.at("uri")), body).status, 200);
        }
        ++replaced;
    }

    std::vector<TcpPeer> readers;
    std::size_t replaced = 0;
};

TEST_F(HeldStates, AreNobodysWhileTheyAreCurrent) {
    fillWithin(4 * mebibyte);
    addReaders(8);
    advance(std::chrono::seconds(6));
    EXPECT_EQ(relieved, 0);
    replaceAll();
    advance(std::chrono::seconds(6));
    EXPECT_GT(relieved, 0) << "now only the readers hold them";
}

TEST_F(HeldStates, ThatWereReplacedAreSharedByTheirReaders) {
    fillWithin(24 * mebibyte);
    addReaders(8);
    replaceAll();
    advance(std::chrono::seconds(6));
    EXPECT_EQ(relieved, 0) << "eight hold the same ones";
    for (int generation = 0; generation < 4; ++generation) {
        addReaders(1);
        replaceAll();
    }
    advance(std::chrono::seconds(6));
    EXPECT_GT(relieved, 0);
}

TEST_F(HeldMemory, IsNotTakenFromThoseWhoKeepToTheirShare) {
    options.maxConnections = 64; // a share is 128 KiB
    startService();
    fill(1, 60'000);
    cdxtest::WebSocketPeer quiet = channel();
    for (int sub = 1; sub <= 200; ++sub) {
        quiet.text(R"({"op":"subscribe","sub":)" + std::to_string(sub) + R"(,"resource":"cdxTrigger"})");
        EXPECT_EQ(message(quiet).at("op"), "subscribed");
        EXPECT_EQ(message(quiet).at("op"), "current");
    }
    cdxtest::HttpTestClient begun(server->port());
    begun.send("POST " + std::string(configPath) + " HTTP/1.1\r\n" + host() + jsonType +
               "Content-Length: 50000\r\n\r\n" + std::string(49'998, ' '));
    advance(std::chrono::seconds(30));
    std::vector<TcpPeer> writers;
    const auto deadline = std::chrono::steady_clock::now() + cdxtest::patience;
    while (relieved == 0 && std::chrono::steady_clock::now() < deadline) {
        if (writers.size() == 40) {
            EXPECT_EQ(client->get("/health").status, 200);
            continue;
        }
        writers.push_back(TcpPeer::connect(server->port()));
        writers.back().send("POST " + std::string(configPath) + " HTTP/1.1\r\n" + host() + jsonType +
                            "Content-Length: 1000000\r\n\r\n" + std::string(999'999, ' '));
        EXPECT_EQ(client->get("/health").status, 200);
    }
    EXPECT_GT(relieved, 0);
    begun.send("{}");
    EXPECT_EQ(begun.read().status, 201) << "though it was still for longest";
    make("/CarDataExchange/cdxTrigger", "{}");
    EXPECT_EQ(message(quiet).at("op"), "event");
}

TEST_F(HeldMemory, OfAListThatIsLargerIsNoReasonToEndItsReader) {
    fill(60, 200'000);
    EXPECT_GT(whole, options.maxHeldBytes);
    EXPECT_EQ(client->get(configPath).body.size(), whole);
    EXPECT_EQ(relieved, 0);
}

} // namespace
} // namespace cdxservice
