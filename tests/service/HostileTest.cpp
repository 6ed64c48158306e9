#include "Program.h"
#include "ServiceFixture.h"

#include <support/ComesTrue.h>
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

/// Hostile clients of the program, beside a good one whose requests are timed.
class Hostile : public ::testing::TestWithParam<Hostility> {
protected:
    Hostile() : port(program.port()), good(port) { EXPECT_EQ(good.post(configPath, R"({"id":"a"})").status, 201); }

    /// What 99 of 100 of the good client's requests are faster than: reads, or writes, each of which is a change.
    std::chrono::microseconds slowest(bool ofWrites = false) {
        std::vector<steady_clock::duration> times;
        for (int i = 0; i < 200; ++i) {
            const auto begin = steady_clock::now();
            const auto answer = ofWrites ? good.post(configPath, "{}") : good.get(std::string(configPath) + "/a");
            EXPECT_EQ(answer.status, ofWrites ? 201 : 200);
            times.push_back(steady_clock::now() - begin);
        }
        std::sort(times.begin(), times.end());
        return std::chrono::duration_cast<std::chrono::microseconds>(times[times.size() * 99 / 100]);
    }

    /// Waits until the service has no more descriptors than that.
    bool comesDownTo(std::size_t descriptors) {
        return cdxtest::comesTrue([&] { return program.descriptors() <= descriptors; });
    }

    Program program{{"--port", "0", "--max-connections", "10100"}};
    std::uint16_t port;
    HttpTestClient good;
};

TEST_P(Hostile, ClientsAreRefusedHarmNobodyAndLeaveNothing) {
    const auto alone = slowest();
    const std::size_t descriptors = program.descriptors();
    long first = 0;
    long last = 0;
    std::chrono::microseconds beside{0};
    for (int round = 0; round < 4; ++round) {
        std::vector<HttpTestClient> hostile;
        for (int i = 0; i < 100; ++i) {
            hostile.emplace_back(port);
            hostile.back().send(GetParam().bytes);
        }
        beside = std::max(beside, slowest());
        for (HttpTestClient& each : hostile) {
            if (GetParam().status != 0) {
                EXPECT_EQ(each.read().status, GetParam().status);
            }
        }
        hostile.clear();
        EXPECT_TRUE(comesDownTo(descriptors));
        last = program.residentKib();
        first = round == 0 ? last : first;
    }
    std::cout << "p99 " << alone.count() << " us alone, " << beside.count() << " us beside 100; grown by "
              << last - first << " KiB in three more rounds\n";
    EXPECT_TRUE(beside < std::chrono::seconds(1) || !timeTells);
    // How many of their buffers live at a time differs from round to round; buffers that are leaked would be 19 MiB.
    EXPECT_TRUE(last - first < 12 * 1024 || !memoryTells);
    EXPECT_NE(good.get(configPath).body.find(R"([{"id":"a","uri")"), std::string::npos) << "nothing of it was done";
    EXPECT_EQ(good.get("/CarDataExchange").body.find(R"("cdxConfig":{"elements":2)"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    Sending, Hostile,
    ::testing::Values(
        Hostility{"Nothing", "", 0}, Hostility{"HalfAHead", "GET /CarDataExchange HTTP/1.1\r\nHo", 0},
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

class ManyConnections : public Hostile {};

TEST_F(ManyConnections, TenThousandIdleOnesHarmNobodyAndLeaveNothing) {
    constexpr rlim_t needed = 10'200;
    rlimit limit = {};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max < needed) {
        GTEST_SKIP() << "a process may have " << limit.rlim_max << " descriptors here; " << needed << " are needed";
    }
    limit.rlim_cur = std::max(limit.rlim_cur, needed);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    const auto alone = slowest();
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
    const auto beside = slowest();
    std::cout << "p99 " << alone.count() << " us alone, " << beside.count() << " us beside 10,000 idle connections of "
              << each << " bytes each\n";
    EXPECT_TRUE(beside < std::chrono::seconds(1) || !timeTells);
    EXPECT_TRUE(each < 16'384 || !memoryTells);
    idle.clear();
    EXPECT_TRUE(comesDownTo(descriptors));
    EXPECT_TRUE(slowest() < std::chrono::seconds(1) || !timeTells);
}

class ManySubscriptions : public Hostile {};

TEST_F(ManySubscriptions, OfClientsWhoPingAndChangesHarmNobody) {
    const auto alone = slowest();
    constexpr int each = 10'000;
    constexpr int atATime = 500;
    std::vector<cdxtest::WebSocketPeer> hostile;
    for (int i = 0; i < 5; ++i) {
        hostile.push_back(cdxtest::WebSocketPeer::connect(port));
        for (int sub = 1; sub <= each; ++sub) {
            hostile.back().text(R"({"op":"subscribe","sub":)" + std::to_string(sub) +
                                R"(,"resource":"cdxConfig","id":"other"})");
            for (int told = 0; sub % atATime == 0 && told < 2 * atATime; ++told) {
                ASSERT_TRUE(hostile.back().readText()) << "subscribed, and current";
            }
        }
    }
    for (cdxtest::WebSocketPeer& client : hostile) {
        for (int ping = 0; ping < 1'000; ++ping) {
            client.ping();
        }
    }
    const auto besidePings = slowest();
    const auto ofChanges = slowest(true);
    std::cout << "p99 " << alone.count() << " us alone, " << besidePings.count() << " us beside pings of clients with "
              << each << " subscriptions, " << ofChanges.count() << " us for changes\n";
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
