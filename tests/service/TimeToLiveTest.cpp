#include "ScriptedBackend.h"
#include "ServiceFixture.h"

namespace cdxservice {
namespace {

class TimeToLive : public ServiceFixture {
protected:
    std::string fields(std::int64_t secondsLeft) {
        return R"("timeToLive":)" + std::to_string(secondsLeft) + R"(,"timestamp":)" +
               std::to_string(clock->sinceEpoch().count()) + "}";
    }
};

TEST_F(TimeToLive, OverItsEndAnElementIsNowhere) {
    const std::string path = std::string(dataPath) + "/" + make(dataPath, "{" + fields(10));
    clock->advance(std::chrono::milliseconds(9'999));
    EXPECT_EQ(client->get(path).status, 200);
    clock->advance(std::chrono::milliseconds(1));
    EXPECT_EQ(client->get(path).status, 404);
    EXPECT_EQ(client->get(dataPath).body, "[]");
    EXPECT_NE(client->get("/CarDataExchange").body.find(R"("cdxData":{"elements":0,"revision":2})"), std::string::npos);
}

TEST_F(TimeToLive, ItsEndIsToldToSubscribersOfItself) {
    const std::string id = make(dataPath, "{" + fields(10));
    cdxtest::WebSocketPeer peer = channel();
    peer.text(R"({"op":"subscribe","sub":1,"resource":"cdxData"})");
    for (int i = 0; i < 3; ++i) {
        message(peer);
    }
    clock->advance(std::chrono::seconds(10));
    EXPECT_EQ(text(message(peer).at("removed")), id);
}

TEST_F(TimeToLive, AnElementThatComesTooLateIsAnsweredAndGone) {
    const auto answer = client->post(dataPath, R"({"id":"late","timeToLive":1,"timestamp":1})");
    EXPECT_EQ(answer.status, 201);
    EXPECT_EQ(client->get(std::string(dataPath) + "/late").status, 404);
    EXPECT_EQ(client->post(dataPath, R"({"id":"late"})").status, 201) << "its id is free";
}

TEST_F(TimeToLive, AChangeCanPutItsEndOff) {
    const std::string path = std::string(dataPath) + "/" + make(dataPath, "{" + fields(10));
    EXPECT_EQ(client->patch(path, R"({"timeToLive":20})").status, 200);
    clock->advance(std::chrono::seconds(10));
    EXPECT_EQ(client->get(path).status, 200);
    EXPECT_EQ(client->patch(path, R"({"timestamp":null})").status, 200);
    clock->advance(std::chrono::seconds(100));
    client->close();
    EXPECT_EQ(client->get(path).status, 200);
}

TEST_F(TimeToLive, AClockThatIsSetBackBringsNothingBack) {
    const std::string path = std::string(dataPath) + "/" + make(dataPath, "{" + fields(10));
    const auto before = clock->sinceEpoch();
    clock->advance(std::chrono::seconds(10));
    EXPECT_EQ(client->get(path).status, 404);
    clock->setCalendar(before.count());
    EXPECT_EQ(client->get(path).status, 404);
}

TEST_F(TimeToLive, ItsEndHoldsWhileTheStoreIsAwayAndIsToldOnceItIsBack) {
    ScriptedBackend::Kept kept;
    options.store = std::make_shared<Store>(std::make_unique<ScriptedBackend>(kept));
    startService();
    const std::string path = std::string(dataPath) + "/" + make(dataPath, R"({"id":"a",)" + fields(10));
    cdxtest::WebSocketPeer early = channel();
    early.text(R"({"op":"subscribe","sub":1,"resource":"cdxData"})");
    for (int i = 0; i < 3; ++i) {
        message(early);
    }
    kept.next = StoreBackend::Outcome::Away;
    clock->advance(std::chrono::seconds(10));
    EXPECT_EQ(client->get(path).status, 404);
    EXPECT_EQ(client->request("DELETE", path).status, 404);
    EXPECT_EQ(client->get(dataPath).body, "[]");
    EXPECT_NE(client->get("/CarDataExchange").body.find(R"("cdxData":{"elements":0,"revision":1})"), std::string::npos);
    EXPECT_EQ(client->get("/health").status, 503);
    cdxtest::WebSocketPeer late = channel();
    late.text(R"({"op":"subscribe","sub":1,"resource":"cdxData"})");
    EXPECT_EQ(text(message(late).at("op")), "subscribed");
    EXPECT_EQ(text(message(late).at("op")), "current");
    kept.next = StoreBackend::Outcome::Stored;
    EXPECT_EQ(text(message(early).at("removed")), "a");
    EXPECT_EQ(text(message(late).at("removed")), "a");
    server.reset();
}

TEST_F(TimeToLive, BelongsToDataOnly) {
    EXPECT_EQ(client->post(configPath, R"({"timeToLive":1})").status, 422);
    const std::string path = std::string(configPath) + "/" + make(configPath, R"({"expiryTime":1})");
    EXPECT_EQ(client->get(path).status, 200);
}

} // namespace
} // namespace cdxservice
