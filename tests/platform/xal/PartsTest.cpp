#include "RecordingConnection.h"

#include <support/PrivateMember.h>
#include <xal/Transport.h>

#include <gmock/gmock.h>

#include <Backoff.h>
#include <ChannelMessages.h>
#include <Inbox.h>
#include <ReadingClock.h>
#include <RequestHeaders.h>
#include <Uri.h>
#include <WebsocketManagers.h>
#include <deque>

using Managers = std::multimap<std::string, std::weak_ptr<xal::WebsocketManagers::Manager>>;
CDX_REVEAL(ManagersByService, xal::WebsocketManagers, m_managers, Managers);

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(Backoff, DrawsFromTheUpperHalfOfDoublingCapsUpToFiveSeconds) {
    xal::Backoff lowest([] { return 0.0; });
    xal::Backoff highest([] { return 0.999999; });
    for (const int cap : {200, 400, 800, 1600, 3200, 5000, 5000, 5000}) {
        EXPECT_EQ(lowest.next(), milliseconds(cap) / 2);
        const auto high = highest.next();
        EXPECT_LE(high, milliseconds(cap));
        EXPECT_GT(high, milliseconds(cap) - milliseconds(1));
    }
}

TEST(Backoff, DrawsEvenly) {
    int lower = 0;
    constexpr int draws = 2000;
    for (int i = 0; i < draws; ++i)
        lower += xal::Backoff().next() < milliseconds(150) ? 1 : 0;
    EXPECT_GT(lower, draws * 2 / 5);
    EXPECT_LT(lower, draws * 3 / 5);
}

TEST(Backoff, CountsAnewOnlyAfterAConnectionThatLasted) {
    xal::Backoff backoff([] { return 0.0; });
    backoff.next();
    backoff.next();
    backoff.noteConnection(milliseconds(4999));
    EXPECT_EQ(backoff.next(), milliseconds(400));
    backoff.noteConnection(seconds(5));
    EXPECT_EQ(backoff.next(), milliseconds(100));
}

TEST(WebsocketManagers, DoNotGrowWithAttemptsAndConnections) {
    const xal::DefaultWebsocketManagerFactory factory;
    xal::WebsocketManagers& managers = *factory.getManagers();
    int ended = 0;
    const auto manager = std::make_shared<xal::WebsocketManagers::Manager>([&ended] { ++ended; });
    for (int attempt = 0; attempt < 100; ++attempt) {
        managers.add("service", manager);
        managers.add("service", std::make_shared<xal::WebsocketManagers::Manager>([] {})); // of a link that has gone
    }
    EXPECT_LE((managers.*reveal(cdxtest::ManagersByService())).size(), 2u);
    managers.remove("service");
    EXPECT_EQ(ended, 1);
}

TEST(Uri, TakesWhatAServiceCanBeReachedBy) {
    const auto plain = xal::Uri::parse("http://127.0.0.1:8080/api");
    EXPECT_EQ(plain.host, "127.0.0.1");
    EXPECT_EQ(plain.port, 8080);
    EXPECT_EQ(plain.path, "/api");
    EXPECT_FALSE(plain.isSecure);
    EXPECT_EQ(plain.httpOrigin(), "http://127.0.0.1:8080");
    EXPECT_EQ(xal::Uri::parse("WSS://Host").httpOrigin(), "https://Host");
    EXPECT_EQ(xal::Uri::parse("https://host:443/").authority(), "host");
    EXPECT_EQ(xal::Uri::parse("ws://[::1]:9").authority(), "[::1]:9");
    EXPECT_EQ(xal::Uri::parse("http://host:").port, 80);
}

TEST(Uri, RefusesEverythingElse) {
    for (const auto* const text :
         {"", "host", "ftp://host", "http://", "http://:80", "http://host:0", "http://host:65536", "http://host:x",
          "http://user@host", "http://[::1", "http://[::1]x", "http://ho st", "http://host/?q", "http://host/a b",
          "http://host\r\n", "http://host:99999999999999999999"})
        EXPECT_THROW(xal::Uri::parse(text), std::invalid_argument) << text;
}

TEST(Paths, JoinWithExactlyOneSlash) {
    EXPECT_EQ(xal::joinPath("", "/"), "");
    EXPECT_EQ(xal::joinPath("/", "a"), "/a");
    EXPECT_EQ(xal::joinPath("/a/", "/b/"), "/a/b/");
    EXPECT_EQ(xal::joinPath("/a", "b"), "/a/b");
    EXPECT_EQ(xal::joinPath("/a//", ""), "/a");
}

TEST(PercentEncoding, LeavesOnlyWhatMeansNothing) {
    EXPECT_EQ(xal::percentEncode("aZ09-._~"), "aZ09-._~");
    EXPECT_EQ(xal::percentEncode("a b+/?&=%\xc3\xa4"), "a%20b%2B%2F%3F%26%3D%25%C3%A4");
}

TEST(ElementIds, AreLettersDigitsUnderscoresAndHyphens) {
    EXPECT_TRUE(xal::isElementId("aZ09_-"));
    EXPECT_TRUE(xal::isElementId(std::string(128, 'a')));
    for (const auto& id : {std::string(), std::string("a b"), std::string("a/b"), std::string("."),
                           std::string(129, 'a'), std::string("a\0b", 3), std::string("\xc3\xa4")})
        EXPECT_FALSE(xal::isElementId(id)) << id;
}

TEST(ChannelMessages, NameThePositionWhereThereIsOne) {
    xal::SubscribeRequest request;
    request.resourceName = "r\"";
    EXPECT_EQ(xal::encodeSubscribe(request, 3, std::nullopt), R"({"op":"subscribe","sub":3,"resource":"r\""})");
    EXPECT_EQ(xal::encodeSubscribe(request, 3, xal::Position{"ab", 7}),
              R"({"op":"subscribe","sub":3,"resource":"r\"","since":{"epoch":"ab","rev":7}})");
    EXPECT_EQ(xal::encodeUnsubscribe(3), R"({"op":"unsubscribe","sub":3})");
}

TEST(ChannelMessages, TakeNumbersUpToWhatAllImplementationsKeep) {
    const auto parser = xalutil::JsonFactory::createJsonParser();
    const auto message =
        xal::decodeMessage(*parser, R"({"op":"current","sub":9007199254740991,"prev":0,"rev":9007199254740991})");
    EXPECT_EQ(message.number, 9007199254740991);
    EXPECT_THROW(xal::decodeMessage(*parser, R"({"op":"current","sub":9007199254740992,"prev":0,"rev":0})"),
                 std::exception);
}

TEST(ChannelMessages, AnErrorMayBeOfNoSubscription) {
    const auto parser = xalutil::JsonFactory::createJsonParser();
    const auto message = xal::decodeMessage(*parser, R"({"op":"error","status":400,"title":"Bad","detail":"worse"})");
    EXPECT_FALSE(message.number);
    EXPECT_EQ(message.status, 400);
    EXPECT_EQ(message.text, "Bad: worse");
}

class Headers : public testing::Test {
protected:
    std::vector<std::string> collect() {
        std::vector<std::string> lines;
        for (const auto& [name, value] : headers.collect(log))
            lines.push_back(name + ": " + value);
        return lines;
    }
    void set(const std::string& name, const std::string& value) {
        (*map)[name] = std::make_shared<std::string>(value);
        headers.set(map);
    }

    std::shared_ptr<xal::RequestHeaders::Map> map = std::make_shared<xal::RequestHeaders::Map>();
    xaltest::RecordingConnection::Log log;
    xal::RequestHeaders headers{"client"};
};

TEST_F(Headers, NameTheClient) {
    EXPECT_THAT(collect(), ElementsAre("User-Agent: client"));
    set("user-agent", "other");
    EXPECT_THAT(collect(), ElementsAre("user-agent: other"));
}

TEST_F(Headers, LeaveOutWhatWouldEndTheHeaderOrContradictTheFraming) {
    for (const auto* const name : {"a b", "", "a:b", "Host", "content-length", "Transfer-Encoding", "Connection",
                                   "Upgrade", "Sec-WebSocket-Protocol"})
        set(name, "x");
    set("X-Value", "a\r\nb");
    set("X-Nul", std::string("a\0b", 3));
    EXPECT_THAT(collect(), ElementsAre("User-Agent: client"));
    EXPECT_EQ(log.lines.size(), 11u);
}

/// Runs tasks when the test says so.
class ManualExecutor : public xalutil::ITaskExecutor {
public:
    void execute(std::function<void()> task) override {
        if (!isStopped)
            tasks.push_back(std::move(task));
    }
    void stop() override {
        isStopped = true;
        tasks.clear();
    }
    /// What the tasks threw, one a line.
    void runAll() {
        while (!tasks.empty()) {
            const auto task = std::move(tasks.front());
            tasks.pop_front();
            try {
                task();
            } catch (const std::exception& e) {
                thrown.emplace_back(e.what());
            }
        }
    }

    std::deque<std::function<void()>> tasks;
    std::vector<std::string> thrown;
    bool isStopped = false;
};

class InboxTest : public testing::Test {
protected:
    static xal::Inbox::Limits limits() {
        xal::Inbox::Limits limits;
        limits.entries = 4;
        limits.bytes = 100;
        limits.turn = seconds(10);
        return limits;
    }
    bool push(const std::string& id, std::size_t bytes = 1) {
        xal::Event event;
        event.id = id;
        return inbox->push(subscription, event, bytes);
    }

    std::shared_ptr<ManualExecutor> executor = std::make_shared<ManualExecutor>();
    std::vector<std::string> told;
    int roomAgain = 0;
    std::shared_ptr<xal::ActiveSubscription> subscription = std::make_shared<xal::ActiveSubscription>(
        [] {
            xal::SubscribeRequest request;
            request.resourceName = "r";
            return request;
        }(),
        [this](const xal::Event& event) {
            told.push_back(event.id);
            if (event.id == "bad")
                throw std::runtime_error("no");
        });
    std::shared_ptr<xal::Inbox> inbox = std::make_shared<xal::Inbox>(
        std::make_shared<xal::Tasks>(executor), "S", [this] { ++roomAgain; }, limits());
};

TEST_F(InboxTest, HandsOverAllThatWaitsInOneTask) {
    push("1");
    push("2");
    inbox->push("connected", [this] { told.push_back("connected"); });
    EXPECT_EQ(executor->tasks.size(), 1u);
    executor->runAll();
    EXPECT_THAT(told, ElementsAre("1", "2", "connected"));
}

TEST_F(InboxTest, SaysWhenItIsFullAndWhenThereIsRoomAgain) {
    EXPECT_TRUE(push("1"));
    EXPECT_TRUE(push("2"));
    EXPECT_TRUE(push("3"));
    EXPECT_FALSE(push("4"));
    EXPECT_EQ(roomAgain, 0);
    executor->runAll();
    EXPECT_EQ(roomAgain, 1);
    EXPECT_EQ(told.size(), 4u);
}

TEST_F(InboxTest, IsFullOfBytesToo) {
    EXPECT_TRUE(push("1", 99));
    EXPECT_FALSE(push("2", 1));
    executor->runAll();
    EXPECT_EQ(roomAgain, 1);
}

TEST_F(InboxTest, LetsTheExecutorHaveWhatAHandlerThrowsAndGoesOn) {
    push("bad");
    push("good");
    executor->runAll();
    EXPECT_THAT(told, ElementsAre("bad", "good"));
    EXPECT_THAT(executor->thrown, ElementsAre("S/r: handler threw: no"));
}

TEST_F(InboxTest, TellsNothingOnceItIsShut) {
    push("1");
    inbox->shut();
    push("2");
    executor->runAll();
    EXPECT_TRUE(told.empty());
}

TEST_F(InboxTest, LetsGoOfWhatAStoppedExecutorDrops) {
    push("1");
    push("2");
    push("3");
    EXPECT_FALSE(push("4"));
    executor->stop();
    EXPECT_EQ(roomAgain, 1);
    EXPECT_TRUE(push("5"));
    EXPECT_TRUE(told.empty());
}

} // namespace
