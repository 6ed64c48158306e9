#include "Program.h"
#include "ServiceFixture.h"
#include "TemporaryFile.h"

#include <support/ComesTrue.h>
#include <support/P99.h>
#include <support/ProcessState.h>
#include <support/WebSocketPeer.h>

#include <algorithm>
#include <sys/resource.h>
#include <vector>

namespace cdxservice {
namespace {

using cdxtest::HttpTestClient;
using cdxtest::memoryTells;
using cdxtest::TcpPeer;
using cdxtest::timeTells;
using std::chrono::steady_clock;

/// What one hostile client sends, and the status that it gets; 0: none yet.
struct Hostility {
    const char* name;
    std::string bytes;
    int status;
    std::string slowly = {}; ///< Sent behind it, a byte a second.
    bool tokenIsNeeded = false;
};

std::ostream& operator<<(std::ostream& out, const Hostility& hostility) {
    return out << hostility.name;
}

std::string get(const std::string& target, const std::string& lines = "") {
    return "GET " + target + " HTTP/1.1\r\nHost: localhost\r\n" + lines + "\r\n";
}

std::string post(const std::string& lines, const std::string& body = "{}") {
    return "POST " + std::string(configPath) + " HTTP/1.1\r\nHost: localhost\r\n" + jsonType + lines + "\r\n" + body;
}

/// What 99 of 100 of a client's reads of the element "a" are faster than.
std::chrono::microseconds slowestRead(HttpTestClient& good, const std::string& headers = "") {
    std::vector<steady_clock::duration> times;
    for (int i = 0; i < 200; ++i) {
        const auto begin = steady_clock::now();
        EXPECT_EQ(good.get(std::string(configPath) + "/a", headers).status, 200);
        times.push_back(steady_clock::now() - begin);
    }
    return cdxtest::p99(std::move(times));
}

/// Hostile clients of a service, beside a good one whose requests are timed.
class Hostile : public ServiceFixture, public ::testing::WithParamInterface<Hostility> {
protected:
    void SetUp() override {
        if (GetParam().tokenIsNeeded) {
            options.tokenFile = tokenFile.path();
        }
        ServiceFixture::SetUp();
        EXPECT_EQ(client->request("POST", configPath, R"({"id":"a"})", jsonType + bearer).status, 201);
    }

    /// A hundred at a time, until all are gone. Returns how long the good client's reads took meanwhile.
    std::chrono::microseconds round() {
        const std::size_t descriptors = cdxtest::openDescriptors().size();
        std::vector<HttpTestClient> hostile;
        for (int i = 0; i < 100; ++i) {
            hostile.emplace_back(server->port());
            hostile.back().send(GetParam().bytes);
        }
        for (const char byte : GetParam().slowly) {
            clock->advance(std::chrono::seconds(1));
            for (HttpTestClient& each : hostile) {
                EXPECT_TRUE(each.send({&byte, 1}));
            }
        }
        const auto took = slowestRead(*client, bearer);
        for (HttpTestClient& each : hostile) {
            if (GetParam().status != 0) {
                EXPECT_EQ(each.read().status, GetParam().status);
            }
        }
        hostile.clear();
        EXPECT_TRUE(cdxtest::comesTrue([&] { return cdxtest::openDescriptors().size() <= descriptors; }));
        EXPECT_EQ(client->get("/health").status, 200) << "and the service is done with their ends";
        return took;
    }

    const std::string bearer = "Authorization: Bearer s3cret\r\n";

private:
    TemporaryFile tokenFile{"s3cret"};
};

TEST_P(Hostile, ClientsAreRefusedHarmNobodyAndLeaveNothing) {
    const auto alone = slowestRead(*client, bearer);
    auto beside = round();
    const long first = cdxtest::allocatedBytes();
    constexpr int rounds = 3;
    for (int i = 0; i < rounds; ++i) {
        beside = std::max(beside, round());
    }
    const long grown = cdxtest::allocatedBytes() - first;
    std::cout << "p99 " << alone.count() << " us alone, " << beside.count() << " us beside 100; grown by " << grown
              << " bytes in three more rounds\n";
    EXPECT_TRUE(beside < std::chrono::seconds(1) || !timeTells);
    EXPECT_TRUE(grown < rounds * 100 * 64 || !memoryTells) << "for a client less than any object would take";
    EXPECT_NE(client->get(configPath, bearer).body.find(R"([{"id":"a","uri")"), std::string::npos)
        << "nothing of it was done";
    EXPECT_EQ(client->get("/CarDataExchange", bearer).body.find(R"("cdxConfig":{"elements":2)"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    Sending, Hostile,
    ::testing::Values(
        Hostility{"Nothing", "", 0}, Hostility{"HalfAHead", "GET /CarDataExchange HTTP/1.1\r\nHo", 0},
        Hostility{"AByteASecond", "GET /CarDataExchange HTTP/1.1\r\nHost: ", 0, "localhost\r\n"},
        Hostility{"ABodyOfAByteASecond", post("Content-Length: 100000\r\n", "{"), 0, "          "},
        Hostility{"NoToken", get("/CarDataExchange"), 401, "", true},
        Hostility{"AWrongToken", get("/CarDataExchange", "Authorization: Bearer s3creT\r\n"), 401, "", true},
        Hostility{"HalfABody", post("Content-Length: 100000\r\n", std::string(50'000, ' ')), 0},
        Hostility{"AHeaderOfOneMebibyte", get("/health", "A: " + std::string(1'048'576, 'a') + "\r\n"), 431},
        Hostility{"ABodyOverTheLimit", post("Content-Length: 2000000\r\n", std::string(2'000'000, ' ')), 413},
        Hostility{"AChunkOverTheLimit", post("Transfer-Encoding: chunked\r\n", "1000000\r\n"), 413},
        Hostility{"BothLengths", post("Content-Length: 2\r\nTransfer-Encoding: chunked\r\n"), 400},
        Hostility{"AFoldedHeader", get("/health", "A: b\r\n c\r\n"), 400},
        Hostility{"ABareCarriageReturn", get("/health", "A: b\rC: d\r\n"), 400},
        Hostility{"ATraversal", get("/CarDataExchange/../../../etc/passwd"), 404},
        Hostility{"AnEncodedTraversal", get("/CarDataExchange/%2e%2e%2f%2e%2e%2fetc%2fpasswd"), 404},
        Hostility{"EncodedSlashes", get("/CarDataExchange%2FcdxConfig%2Fa"), 404},
        Hostility{"AForeignHost", "GET /CarDataExchange HTTP/1.1\r\nHost: evil\r\n\r\n", 421},
        Hostility{"AForeignOrigin", post("Origin: http://evil\r\nContent-Length: 2\r\n"), 403},
        Hostility{"DeepNesting", post("Content-Length: 100000\r\n", std::string(100'000, '[')), 400}),
    [](const auto& instance) { return std::string(instance.param.name); });

class Pipelines : public ServiceFixture {};

TEST_F(Pipelines, OfCostlyRequestsLeaveTheOthersTheirTurn) {
    for (int i = 0; i < 2'000; ++i) {
        make(configPath, "{}");
    }
    constexpr int count = 30; // as many as are read at once
    std::string costly;
    for (int i = 0; i < count; ++i) {
        costly += get(std::string(configPath) + "?sort=-elementId&limit=1");
    }
    const std::string last = R"({"id":"last"})";
    TcpPeer hostile = TcpPeer::connect(server->port());
    hostile.send(costly + post("Content-Length: " + std::to_string(last.size()) + "\r\n", last));
    EXPECT_TRUE(hostile.takeUntil("HTTP/1.1 200"));
    EXPECT_EQ(client->get(std::string(configPath) + "/last").status, 404) << "the others still wait for their answers";
    for (int i = 1; i < count; ++i) {
        EXPECT_TRUE(hostile.takeUntil("HTTP/1.1 200"));
    }
    EXPECT_TRUE(hostile.takeUntil("HTTP/1.1 201")) << "and none is forgotten";
}

/// The program, whose descriptors, memory and processor time are its own.
class HostileToTheProgram : public ::testing::Test {
protected:
    HostileToTheProgram() : port(program.port()), good(port) {
        EXPECT_EQ(good.post(configPath, R"({"id":"a"})").status, 201);
    }

    Program program{{"--port", "0", "--max-connections", "10100"}};
    std::uint16_t port;
    HttpTestClient good;
};

class ManyConnections : public HostileToTheProgram {};

TEST_F(ManyConnections, TenThousandIdleOnesHarmNobodyAndLeaveNothing) {
    constexpr rlim_t needed = 10'200;
    rlimit limit = {};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max < needed) {
        GTEST_SKIP() << "a process may have " << limit.rlim_max << " descriptors here; " << needed << " are needed";
    }
    limit.rlim_cur = std::max(limit.rlim_cur, needed);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    const auto alone = slowestRead(good);
    const std::size_t descriptors = program.descriptors();
    const long before = program.residentKib();
    std::vector<TcpPeer> idle;
    for (int i = 0; i < 10'000; ++i) {
        idle.push_back(TcpPeer::connect(port));
    }
    idle.back().send(get("/health"));
    EXPECT_TRUE(idle.back().takeUntil("HTTP/1.1 200")) << "the last is accepted like the first";
    EXPECT_GE(program.descriptors(), descriptors + 10'000);
    const long each = (program.residentKib() - before) / 10;
    const auto beside = slowestRead(good);
    std::cout << "p99 " << alone.count() << " us alone, " << beside.count() << " us beside 10,000 idle connections of "
              << each << " bytes each\n";
    EXPECT_TRUE(beside < std::chrono::seconds(1) || !timeTells);
    EXPECT_TRUE(each < 16'384 || !memoryTells);
    idle.clear();
    EXPECT_TRUE(cdxtest::comesTrue([&] { return program.descriptors() <= descriptors; }));
    EXPECT_TRUE(slowestRead(good) < std::chrono::seconds(1) || !timeTells);
}

class ManySubscriptions : public HostileToTheProgram {
protected:
    /// A channel with so many subscriptions, each told that it is current.
    cdxtest::WebSocketPeer subscribed(int count) {
        constexpr int atATime = 500;
        auto peer = cdxtest::WebSocketPeer::connect(port);
        int told = 0;
        for (int sub = 1; sub <= count; ++sub) {
            peer.text(R"({"op":"subscribe","sub":)" + std::to_string(sub) + R"(,"resource":"cdxConfig","id":"other"})");
            while ((sub % atATime == 0 || sub == count) && told < 2 * sub && peer.readText()) {
                ++told;
            }
        }
        EXPECT_EQ(told, 2 * count) << "subscribed, and current";
        return peer;
    }
    /// The processor time that the service takes for a hundred pings of the channel.
    std::chrono::nanoseconds timeOfPings(cdxtest::WebSocketPeer& peer) const {
        const auto before = program.processorTime();
        for (int i = 0; i < 100; ++i) {
            peer.ping();
            const auto pong = peer.read();
            EXPECT_TRUE(pong && pong->opcode == cdxtest::Opcode::pong) << "and nothing else is told";
        }
        return program.processorTime() - before;
    }
};

TEST_F(ManySubscriptions, CostNothingWhileNothingChanges) {
    auto one = subscribed(1);
    auto many = subscribed(10'000);
    const auto ofOne = timeOfPings(one);
    const auto ofMany = timeOfPings(many);
    std::cout << ofMany.count() / 100'000 << " us of processor time for a ping of a client with 10,000 subscriptions, "
              << ofOne.count() / 100'000 << " us for one with one\n";
    EXPECT_LT(ofMany, 5 * ofOne) << "to look at each of them costs some hundred times as much";
}

TEST_F(ManySubscriptions, OfClientsWhoPingAndChangesHarmNobody) {
    const auto alone = slowestRead(good);
    std::vector<cdxtest::WebSocketPeer> hostile;
    for (int i = 0; i < 5; ++i) {
        hostile.push_back(subscribed(10'000));
    }
    for (cdxtest::WebSocketPeer& client : hostile) {
        for (int ping = 0; ping < 1'000; ++ping) {
            client.ping();
        }
    }
    const auto besidePings = slowestRead(good);
    std::vector<steady_clock::duration> times;
    for (int change = 0; change < 200; ++change) {
        const auto begin = steady_clock::now();
        EXPECT_EQ(good.post(configPath, "{}").status, 201);
        times.push_back(steady_clock::now() - begin);
    }
    const auto ofChanges = cdxtest::p99(std::move(times));
    std::cout << "p99 " << alone.count() << " us alone, " << besidePings.count()
              << " us beside pings of clients with 10,000 subscriptions, " << ofChanges.count() << " us for changes\n";
    EXPECT_TRUE(std::max(besidePings, ofChanges) < std::chrono::seconds(1) || !timeTells);
    for (cdxtest::WebSocketPeer& client : hostile) {
        client.ping("last");
        std::optional<cdxtest::Frame> frame = client.read();
        while (frame && frame->payload != "last") {
            EXPECT_EQ(frame->opcode, cdxtest::Opcode::pong) << "and nothing else is told";
            frame = client.read();
        }
        EXPECT_TRUE(frame);
    }
}

} // namespace
} // namespace cdxservice
