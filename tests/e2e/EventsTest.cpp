#include "EndToEnd.h"
#include "LogLines.h"

namespace cdxtest {
namespace {

using oru::Json::Value;

using Events = EndToEnd;

TEST_F(Events, AClientAnnouncedBeforeTheStartIsToldToTheMessageProcessor) {
    vehicle().announce("navigation");
    startApplication();
    const Told announced = told("announced", "navigation");
    EXPECT_EQ(announced.document["canonicalName"].asString(), "navigation");
    EXPECT_EQ(announced.document["offeredDataType"][0].asString(), "telemetry");
    EXPECT_FALSE(announced.document["isShutdownRequested"].asBool());
}

TEST_F(Events, AClientAnnouncedAfterTheStartIsToldToTheMessageProcessor) {
    startWith("navigation");
    vehicle().announce("charging");
    told("announced", "charging");
    EXPECT_EQ(timesTold("announced", "navigation"), 1U);
}

TEST_F(Events, EveryClientThatIsThereAtTheStartIsAnnounced) {
    for (const char* name : {"navigation", "charging", "climate"})
        vehicle().announce(name);
    startApplication();
    for (const char* name : {"navigation", "charging", "climate"})
        told("announced", name);
}

TEST_F(Events, TheSecondNotificationOfAClientGoesToItsOwnHandlerOnly) {
    const std::string id = vehicle().announce("navigation")["id"].asString();
    startApplication();
    told("announced", "navigation");
    vehicle().patch("cdxClientStates", id, json(R"({"isShutdownRequested":true})"));
    EXPECT_TRUE(told("state", "navigation").document["isShutdownRequested"].asBool());
    EXPECT_EQ(timesTold("announced", "navigation"), 1U);
}

TEST_F(Events, ASetterForAClientNotYetAnnouncedStoresNothing) {
    client().setCdxClientStateRecieveHandler([](Value) { FAIL() << "a handler set too early was called"; }, "charging");
    startWith("navigation");
    const std::string id = vehicle().announce("charging")["id"].asString();
    told("announced", "charging");
    vehicle().patch("cdxClientStates", id, json(R"({"isShutdownRequested":true})"));
    told("state", "charging");
}

TEST_F(Events, ACleanedUpClientIsAnnouncedAnewByItsNextState) {
    const std::string id = vehicle().announce("navigation")["id"].asString();
    startApplication();
    told("announced", "navigation");
    client().cleanUpService("navigation");
    vehicle().patch("cdxClientStates", id, json(R"({"isNewConfigRequested":true})"));
    EXPECT_TRUE(told("announced", "navigation", 2).document["isNewConfigRequested"].asBool());
    EXPECT_EQ(timesTold("state", "navigation"), 0U);
}

TEST_F(Events, ADataMessageReachesTheHandlerOfItsClient) {
    vehicle().announce("charging");
    startWith("navigation");
    told("announced", "charging");
    client().SubscribeToCdxDataObject();
    vehicle().postData("charging", "event-1");
    const Told data = told("data", "charging");
    EXPECT_EQ(data.document["eventId"].asString(), "event-1");
    EXPECT_EQ(data.document["cdxClientDataReport"].asString(), "ab");
    EXPECT_EQ(data.document["elementId"].asInt(), 1);
    EXPECT_EQ(data.document["deliveryMode"].asInt(), 1);
    EXPECT_EQ(timesTold("data", "navigation"), 0U);
}

TEST_F(Events, EveryMessageOfABurstReachesTheHandlerInOrder) {
    startWith("navigation");
    client().SubscribeToCdxDataObject();
    constexpr int burst = 50;
    for (int i = 0; i < burst; ++i)
        vehicle().postData("navigation", "event-" + std::to_string(i));
    told("data", "navigation", burst);
    int next = 0;
    for (const Told& record : m_application.recorder().all()) {
        if (record.what == "data") {
            EXPECT_EQ(record.document["eventId"].asString(), "event-" + std::to_string(next++));
        }
    }
    EXPECT_EQ(next, burst);
}

TEST_F(Events, DataThatIsThereBeforeTheSubscriptionIsToldOldestFirst) {
    for (int i = 0; i < 5; ++i)
        vehicle().postData("navigation", "event-" + std::to_string(i));
    startWith("navigation");
    client().SubscribeToCdxDataObject();
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(told("data", "navigation", static_cast<std::size_t>(i) + 1).document["eventId"].asString(),
                  "event-" + std::to_string(i));
}

TEST_F(Events, DataOfAnUnknownClientIsDropped) {
    startWith("navigation");
    client().SubscribeToCdxDataObject();
    vehicle().postData("stranger", "event-1");
    vehicle().postData("navigation", "event-2");
    EXPECT_EQ(told("data", "navigation").document["eventId"].asString(), "event-2");
    EXPECT_EQ(timesTold("data", "stranger"), 0U);
}

TEST_F(Events, AFollowedDataElementTellsItsStateAndEachChange) {
    const std::string id = vehicle().postData("navigation", "event-1")["id"].asString();
    startWith("navigation");
    client().SubscribeToCdxDataObject(id);
    EXPECT_EQ(told("followed data", "navigation").document["eventId"].asString(), "event-1");
    vehicle().patch("cdxData", id, json(R"({"version":"2.0"})"));
    EXPECT_EQ(told("followed data", "navigation", 2).document["version"].asString(), "2.0");
}

TEST_F(Events, AFollowedClientStateTellsEachChange) {
    const std::string id = vehicle().announce("navigation")["id"].asString();
    startApplication();
    told("announced", "navigation");
    client().SubscribeToCdxClientObject(id);
    told("state", "navigation");
}

TEST_F(Events, AnExpiredMessageIsNotTold) {
    Value late = json(R"({"name":"navigation","eventId":"late","timestamp":1000,"timeToLive":1})");
    vehicle().post("cdxData", late);
    startWith("navigation");
    client().SubscribeToCdxDataObject();
    vehicle().postData("navigation", "in time");
    EXPECT_EQ(told("data", "navigation").document["eventId"].asString(), "in time");
}

TEST_F(Events, ALostServiceIsToldWithTheNameOfTheClientHeardOfLast) {
    vehicle().announce("charging");
    vehicle().announce("navigation");
    startApplication();
    told("announced", "charging");
    told("announced", "navigation");
    m_service.stop();
    const Told gone = m_application.recorder().waitFor([](const Told& record) { return record.what == "gone"; });
    EXPECT_TRUE(gone.client == "navigation" || gone.client == "charging") << gone;
}

TEST_F(Events, AReturnedServiceTellsTheStatesAgainAndExchangeGoesOn) {
    startWith("navigation");
    m_service.stop();
    told("gone", "navigation");
    m_service.start();
    told("state", "navigation");
    client().SubscribeToCdxDataObject();
    vehicle().postData("navigation", "after the return");
    EXPECT_EQ(told("data", "navigation").document["eventId"].asString(), "after the return");
}

TEST_F(Events, AServiceThatComesLateIsConnectedTo) {
    const std::uint16_t port = m_service.port();
    m_service.stop();
    m_application.start(port);
    m_service.start();
    vehicle().announce("navigation");
    told("announced", "navigation");
}

TEST_F(Events, TheLossOfAServiceWhoseClientWasCleanedUpIsNotToldToTheApplication) {
    startWith("navigation");
    client().cleanUpService("navigation");
    LogLines log(3);
    m_service.stop();
    log.waitForLine("Didn't find the service navigation  in the callback map.");
    m_service.start();
    told("announced", "navigation", 2);
    EXPECT_EQ(timesTold("gone", "navigation"), 0U);
}

} // namespace
} // namespace cdxtest
