#include "EndToEnd.h"

#include <future>

namespace cdxtest {
namespace {

using oru::Json::Value;

/// Handlers that call the client while they run.
using Reentry = EndToEnd;

TEST_F(Reentry, AHandlerSubscribes) {
    vehicle().postData("navigation", "event-1");
    m_application.onAnnounced = [this](const Value&) { client().SubscribeToCdxDataObject(); };
    startWith("navigation");
    EXPECT_EQ(told("data", "navigation").document["eventId"].asString(), "event-1");
}

TEST_F(Reentry, AHandlerWrites) {
    m_application.onAnnounced = [this](const Value& state) {
        Value record;
        record["name"] = state["name"];
        client().CreateCdxConfigElement(record);
    };
    startWith("navigation");
    EXPECT_TRUE(told("config created", "navigation").success);
}

TEST_F(Reentry, AResultHandlerWritesAgain) {
    startWith("navigation");
    Value record;
    record["name"] = "navigation";
    client().setCdxConfigCreateRecieveHandler(
        [&](bool, Value result) {
            result["recordBody"] = "from inside";
            client().UpdateCdxConfigElement(result);
        },
        "navigation");
    client().CreateCdxConfigElement(record);
    EXPECT_TRUE(told("config updated", "navigation").success);
    EXPECT_EQ(vehicle().list("cdxConfig")[0]["recordBody"].asString(), "from inside");
}

TEST_F(Reentry, AHandlerReplacesItself) {
    startWith("navigation");
    client().SubscribeToCdxDataObject();
    auto kept = std::make_shared<std::string>("still alive after the replacement");
    client().setCdxDataStateSubsRecieveHandler(
        [this, kept](Value) {
            m_application.registerAll("navigation");
            EXPECT_EQ(*kept, "still alive after the replacement");
        },
        "navigation");
    vehicle().postData("navigation", "event-1");
    vehicle().postData("navigation", "event-2");
    EXPECT_EQ(told("data", "navigation").document["eventId"].asString(), "event-2");
}

TEST_F(Reentry, AHandlerCleansItsOwnClientUp) {
    const std::string id = vehicle().announce("navigation")["id"].asString();
    startApplication();
    told("announced", "navigation");
    client().setCdxClientStateRecieveHandler([this](Value) { client().cleanUpService("navigation"); }, "navigation");
    vehicle().patch("cdxClientStates", id, json(R"({"isShutdownRequested":true})"));
    vehicle().patch("cdxClientStates", id, json(R"({"isShutdownRequested":false})"));
    // States in between may merge: it is the return of the service that surely tells one more.
    m_service.stop();
    m_service.start();
    told("announced", "navigation", 2);
}

TEST_F(Reentry, TheDeleteHandlerCleansTheClientUp) {
    m_application.onGone = [this](const std::string& name) { client().cleanUpService(name); };
    startWith("navigation");
    m_service.stop();
    told("gone", "navigation");
    m_service.start();
    told("announced", "navigation", 2);
}

TEST_F(Reentry, AHandlerStopsTheClient) {
    std::promise<void> stopped;
    m_application.onAnnounced = [&](const Value&) {
        m_application.stop();
        stopped.set_value();
    };
    vehicle().announce("navigation");
    startApplication();
    ASSERT_EQ(stopped.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
    told("announced", "navigation");
}

} // namespace
} // namespace cdxtest
