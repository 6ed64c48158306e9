#include "ServiceFixture.h"

namespace cdxservice {
namespace {

class Restart : public ServiceFixture {
protected:
    std::string epoch() { return text(object(client->get("/CarDataExchange").body).at("epoch")); }
};

TEST_F(Restart, KeepsThePortAndWhatIsStored) {
    const std::string path = std::string(configPath) + "/" + make(configPath, R"({"recordId":"r"})");
    const auto before = client->get(path);
    const auto port = server->port();
    server->stop();
    EXPECT_THROW(cdxtest::TcpPeer::connect(port), std::system_error);
    server->start();
    EXPECT_EQ(server->port(), port);
    client->close();
    const auto after = client->get(path);
    EXPECT_EQ(after.body, before.body);
    EXPECT_EQ(after.header("ETag"), before.header("ETag"));
}

TEST_F(Restart, LetsSubscribersResume) {
    make(configPath, R"({"id":"a"})");
    const std::string known = epoch();
    server->stop();
    server->start();
    client->close();
    make(configPath, R"({"id":"b"})");
    cdxtest::WebSocketPeer peer = channel();
    peer.text(R"({"op":"subscribe","sub":1,"resource":"cdxConfig","since":{"epoch":")" + known + R"(","rev":1}})");
    EXPECT_TRUE(message(peer).at("resumed").as_bool());
    EXPECT_EQ(text(message(peer).at("element").at("id")), "b");
}

TEST_F(Restart, ForgetsDataWhoseTimeIsOverMeanwhile) {
    options.store = std::make_shared<Store>();
    startService();
    const std::string path =
        std::string(dataPath) + "/" +
        make(dataPath, R"({"timeToLive":5,"timestamp":)" + std::to_string(clock->sinceEpoch().count()) + "}");
    server->stop();
    clock->advance(std::chrono::seconds(5));
    startService();
    EXPECT_EQ(client->get(path).status, 404);
}

TEST_F(Restart, WithAStoreOfItsOwnIsAnotherService) {
    const std::string before = epoch();
    make(configPath, "{}");
    startService();
    EXPECT_NE(epoch(), before);
    EXPECT_EQ(client->get(configPath).body, "[]");
}

TEST_F(Restart, OfTwoServersOneUsesAStore) {
    options.store = std::make_shared<Store>();
    startService();
    Server second(options);
    EXPECT_THROW(second.start(), std::runtime_error);
    server->stop();
    EXPECT_NO_THROW(second.start());
}

TEST_F(Restart, OnATakenPortSaysSo) {
    options.port = server->port();
    Server second(options);
    try {
        second.start();
        FAIL() << "two servers listen on one port";
    } catch (const std::runtime_error& failure) {
        EXPECT_NE(std::string(failure.what()).find(std::to_string(options.port)), std::string::npos) << failure.what();
    }
    options.port = 0;
}

TEST_F(Restart, WorksManyTimesOver) {
    for (int i = 0; i < 50; ++i) {
        cdxtest::HttpTestClient each(server->port());
        ASSERT_EQ(each.get("/health").status, 200);
        server->stop();
        server->stop();
        server->start();
        server->start();
    }
}

TEST_F(Restart, EndsHttpConnectionsAtOnce) {
    ASSERT_EQ(client->get("/health").status, 200);
    ASSERT_TRUE(client->send("GET /health HTTP/1.1\r\n"));
    server->stop();
    EXPECT_TRUE(client->isEnded());
}

} // namespace
} // namespace cdxservice
