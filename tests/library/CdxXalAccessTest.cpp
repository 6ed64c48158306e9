#include "AccessFixture.h"
#include "Elements.h"

#include <stdexcept>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using zepclient::CdxXalAccess;

class CdxXalAccessTest : public cdxtest::AccessFixture {};

// Start, availability

TEST_F(CdxXalAccessTest, ConstructionRegistersAndLogsNothing) {
    EXPECT_THAT(journal(), IsEmpty());
    EXPECT_THAT(log.outlines(), IsEmpty());
    EXPECT_FALSE(access->isServiceConnected());
}

TEST_F(CdxXalAccessTest, StartOfTheFrameworksClientRegistersTheListener) {
    access->start();

    EXPECT_THAT(journal(), ElementsAre("listen CarDataExchange"));
    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxXalAccess::start: "));
}

TEST_F(CdxXalAccessTest, ItsOwnStartAndStopAndTheCallbacksAssignmentDoNothingAndLogNothing) {
    access->Start();
    access->Stop();
    access->AssignCallback(callback);

    EXPECT_THAT(journal(), IsEmpty());
    EXPECT_THAT(log.outlines(), IsEmpty());
    EXPECT_THAT(callback->calls, IsEmpty());
}

TEST_F(CdxXalAccessTest, AConnectSubscribesToTheClientStatesAndThenReportsTheServiceAsAvailable) {
    access->AssignCallback(callback);
    access->start();
    clearRecords();

    registry->connect();

    EXPECT_THAT(journal(), ElementsAre("subscribe cdxClientStates"));
    EXPECT_THAT(callback->calls, ElementsAre("CdxClientStateAvailablity 1"));
    EXPECT_THAT(log.outlines(),
                ElementsAre("5 CdxXalAccess::start[] OruLog: CardataExchange MORO service is available",
                            "7 CdxXalAccess::CdxServiceConnected: ", "7 CdxXalAccess::SubscribeClientStateObject: ",
                            "5 CdxXalAccess::SubscribeClientStateObject Subscribing for the CDX Client State Object"));
    EXPECT_TRUE(access->isServiceConnected());
}

TEST_F(CdxXalAccessTest, AConnectBeforeACallbackIsAssignedSubscribesAndReportsNothing) {
    access->start();
    clearRecords();

    registry->connect();
    access->AssignCallback(callback);

    EXPECT_THAT(journal(), IsEmpty());
    EXPECT_THAT(callback->calls, IsEmpty());
    EXPECT_TRUE(access->SubscribeClientStateObject());
    EXPECT_THAT(journal(), ElementsAre("subscribe cdxClientStates"));
}

TEST_F(CdxXalAccessTest, ALaterConnectTakesTheNewServiceAndReleasesTheOldSubscriptionWithoutUnsubscribing) {
    connect();

    const auto second = registry->connect();

    EXPECT_THAT(journal(), ElementsAre("subscribe cdxClientStates", "release cdxClientStates"));
    second->tellChange("cdxClientStates", R"({"id":"1"})");
    EXPECT_THAT(callback->calls, ElementsAre("CdxClientStateAvailablity 1", "CdxClientStateObjectNotification 1"));
}

TEST_F(CdxXalAccessTest, WhatASubscribeThrowsAtAConnectPassesToTheFramework) {
    access->start();
    access->AssignCallback(callback);
    const auto refusing = registry->makeConnection();
    refusing->refuseSubscriptions("no more");

    EXPECT_THROW(access->CdxServiceConnected(std::make_shared<xalobjects_GX2::CardataexchangeService>(refusing)),
                 std::runtime_error);
    EXPECT_THAT(callback->calls, IsEmpty());
}

TEST_F(CdxXalAccessTest, AFailureToListenIsLoggedWithTheTextOfTheBaseException) {
    access->start();
    clearRecords();

    registry->fail(std::runtime_error("lost with the derived class"));

    const std::string text = std::exception().what();
    EXPECT_THAT(log.outlines(),
                ElementsAre("3 CdxXalAccess::start[]: Failed to listen to CdxService: error is " + text));
}

TEST_F(CdxXalAccessTest, ADisconnectBeforeAnyClientStateOnlyLogs) {
    connect();

    registry->disconnect();

    EXPECT_THAT(journal(), IsEmpty());
    EXPECT_THAT(callback->calls, IsEmpty());
    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxXalAccess::CdxServiceDisconnected: ",
                                            "5 CdxXalAccess::CdxServiceDisconnected Cdx Service is disconnected"));
}

TEST_F(CdxXalAccessTest, ADisconnectReportsTheLastCanonicalNameAndThenResetsTheSubscriptions) {
    connect();
    connection->tellChange("cdxClientStates", R"({"id":"1","canonicalName":"A"})");
    clearRecords();

    registry->disconnect();

    EXPECT_THAT(callback->calls, ElementsAre("CDXClientDisconnected A"));
    EXPECT_THAT(journal(), ElementsAre("unsubscribe cdxClientStates", "release cdxClientStates"));
    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxXalAccess::CdxServiceDisconnected: ",
                                            "5 CdxXalAccess::CdxServiceDisconnected Cdx Service is disconnected",
                                            "7 CdxXalAccess::ResetsSubscriptions: "));
}

TEST_F(CdxXalAccessTest, ADisconnectForgetsNeitherTheServiceNorTheCanonicalName) {
    connect();
    connection->tellChange("cdxClientStates", R"({"id":"1","canonicalName":"A"})");
    registry->disconnect();
    clearRecords();

    EXPECT_TRUE(access->isServiceConnected());
    EXPECT_TRUE(access->SubscribeCdxDataObject());
    registry->disconnect();
    EXPECT_THAT(callback->calls, ElementsAre("CDXClientDisconnected A"));
}

// Client states

TEST_F(CdxXalAccessTest, WithoutAServiceTheClientStatesCannotBeSubscribedToAndAnErrorSaysSo) {
    EXPECT_FALSE(access->SubscribeClientStateObject());

    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxXalAccess::SubscribeClientStateObject: ",
                                            "3 CdxXalAccess::SubscribeClientStateObject: "
                                            "m_cdxXalService is NULL ptr so can not go ahead"));
}

TEST_F(CdxXalAccessTest, WithoutAServiceTheOtherSubscriptionsFailSilently) {
    EXPECT_FALSE(access->SubscribeClientStateObject("1"));
    EXPECT_FALSE(access->SubscribeCdxDataObject());
    EXPECT_FALSE(access->SubscribeCdxDataObject("1"));

    EXPECT_THAT(log.outlines(),
                ElementsAre("7 CdxXalAccess::SubscribeClientStateObject: ", "7 CdxXalAccess::SubscribeCdxDataObject: ",
                            "7 CdxXalAccess::SubscribeCdxDataObject: "));
}

TEST_F(CdxXalAccessTest, AClientStateNotificationPassesAllElementsOn) {
    connect();
    connection->tellChange("cdxClientStates", R"({"id":"1","canonicalName":"A"})");
    clearRecords();

    connection->tellChange("cdxClientStates", R"({"id":"2","canonicalName":"B"})");

    EXPECT_THAT(callback->calls, ElementsAre("CdxClientStateObjectNotification 2 1"));
    EXPECT_THAT(log.outlines(),
                ElementsAre("7 CdxXalAccess::SubscribeClientStateObject[]: "
                            "Got the callback for CDX CLIENT STATE OBJECT UPDATE",
                            "5 CdxXalAccess::SubscribeClientStateObject[] SIZE OF CDXCLIENT STATE OBJ = 2",
                            "5 CdxXalAccess::SubscribeClientStateObject[] Connected Service name = A"));
}

TEST_F(CdxXalAccessTest, AnEmptyClientStateNotificationIsPassedOnAndKeepsTheLastName) {
    connect();
    connection->tellChange("cdxClientStates", R"({"id":"1","canonicalName":"A"})");
    clearRecords();

    connection->tellRemoval("cdxClientStates", "1");

    EXPECT_THAT(callback->calls, ElementsAre("CdxClientStateObjectNotification"));
    EXPECT_THAT(log.outlines(5),
                ElementsAre("5 CdxXalAccess::SubscribeClientStateObject[] SIZE OF CDXCLIENT STATE OBJ = 0",
                            "5 CdxXalAccess::SubscribeClientStateObject[] Connected Service name = A"));
}

TEST_F(CdxXalAccessTest, AClientStateWithoutACanonicalNameIsKnownAsInvalid) {
    connect();
    connection->tellChange("cdxClientStates", R"({"id":"1"})");
    clearRecords();

    registry->disconnect();

    EXPECT_THAT(callback->calls, ElementsAre("CDXClientDisconnected invalid"));
}

TEST_F(CdxXalAccessTest, WithoutACallbackNotificationsAreOnlyLogged) {
    connect();
    access->SubscribeClientStateObject("1");
    access->SubscribeCdxDataObject();
    access->SubscribeCdxDataObject("2");
    access->AssignCallback(nullptr);
    clearRecords();

    connection->tellChange("cdxClientStates", R"({"id":"1","canonicalName":"A"})");
    connection->tellChange("cdxClientStates/1", R"({"id":"1","canonicalName":"A"})");
    connection->tellChange("cdxData", R"({"id":"2"})");
    connection->tellChange("cdxData/2", R"({"id":"2"})");

    EXPECT_THAT(callback->calls, IsEmpty());
    EXPECT_EQ(5U, log.outlines(5).size());
}

TEST_F(CdxXalAccessTest, OneClientStateIsFollowedByItsId) {
    connect();

    EXPECT_TRUE(access->SubscribeClientStateObject("1"));
    EXPECT_THAT(journal(), ElementsAre("subscribe cdxClientStates/1"));
    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxXalAccess::SubscribeClientStateObject: ",
                                            "5 CdxXalAccess::SubscribeClientStateObject SUUBSCRIBING FOR UUID = 1"));
    clearRecords();

    connection->tellChange("cdxClientStates/1", R"({"id":"1","canonicalName":"A"})");
    EXPECT_THAT(callback->calls, ElementsAre("CdxClientStateUpdateNotification 1"));
    EXPECT_THAT(log.outlines(), ElementsAre("5 CdxXalAccess::SubscribeClientStateObject[] "
                                            "Changed CDX ClientElement CANONICAL NAME = A"));
}

TEST_F(CdxXalAccessTest, AFollowedClientStateWithoutACanonicalNameIsLoggedAsInvalid) {
    connect();
    access->SubscribeClientStateObject("1");
    clearRecords();

    connection->tellChange("cdxClientStates/1", R"({"id":"1"})");

    EXPECT_THAT(log.outlines(), ElementsAre("5 CdxXalAccess::SubscribeClientStateObject[] "
                                            "Changed CDX ClientElement CANONICAL NAME = invalid"));
}

TEST_F(CdxXalAccessTest, TheRemovalOfAFollowedElementIsIgnoredWithoutALog) {
    connect();
    access->SubscribeClientStateObject("1");
    access->SubscribeCdxDataObject("2");
    connection->tellChange("cdxClientStates/1", R"({"id":"1"})");
    connection->tellChange("cdxData/2", R"({"id":"2"})");
    clearRecords();

    connection->tellRemoval("cdxClientStates/1", "1");
    connection->tellRemoval("cdxData/2", "2");

    EXPECT_THAT(callback->calls, IsEmpty());
    EXPECT_THAT(log.outlines(), IsEmpty());
}

// Data

TEST_F(CdxXalAccessTest, ADataNotificationPassesAllElementsOn) {
    connect();

    EXPECT_TRUE(access->SubscribeCdxDataObject());
    EXPECT_THAT(journal(), ElementsAre("subscribe cdxData"));
    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxXalAccess::SubscribeCdxDataObject: ",
                                            "5 CdxXalAccess::SubscribeCdxDataObject Subscribing for the CDX Data"));
    connection->tellChange("cdxData", R"({"id":"1"})");
    clearRecords();

    connection->tellChange("cdxData", R"({"id":"2"})");
    EXPECT_THAT(callback->calls, ElementsAre("CdxDataObjectNotification 2 1"));
    EXPECT_THAT(log.outlines(),
                ElementsAre("5 CdxXalAccess::SubscribeCdxDataObject[] "
                            "Got the callback for CDX DATA resource And SIZE OF CDX DATA Element OBJ = 2"));
}

TEST_F(CdxXalAccessTest, AnEmptyDataResourceIsPassedOn) {
    connect();
    access->SubscribeCdxDataObject();

    connection->tellCurrent("cdxData");

    EXPECT_THAT(callback->calls, ElementsAre("CdxDataObjectNotification"));
}

TEST_F(CdxXalAccessTest, OneDataElementIsFollowedByItsIdAndPassedOnWithoutACopy) {
    connect();

    EXPECT_TRUE(access->SubscribeCdxDataObject("1"));
    EXPECT_THAT(journal(), ElementsAre("subscribe cdxData/1"));
    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxXalAccess::SubscribeCdxDataObject: ",
                                            "7 CdxXalAccess::SubscribeCdxDataObject: SUUBSCRIBING FOR UUID = 1",
                                            "7 CdxXalAccess::SubscribeCdxDataObject: JUST BEFORE UPDATE SUBS"));
    clearRecords();

    connection->tellChange("cdxData/1", R"({"id":"1"})");
    EXPECT_THAT(callback->calls, ElementsAre("CdxDataUpdateNotification 1"));
    EXPECT_THAT(log.outlines(), ElementsAre("5 CdxXalAccess::SubscribeCdxDataObject[] Changed CDX Data"));
    EXPECT_GT(callback->lastData.use_count(), 1) << "the framework's own element, not a copy of it";
}

TEST_F(CdxXalAccessTest, FollowingAnotherElementReleasesTheFirstWithoutUnsubscribing) {
    connect();
    access->SubscribeCdxDataObject("1");
    access->SubscribeClientStateObject("1");
    clearRecords();

    access->SubscribeCdxDataObject("2");
    access->SubscribeClientStateObject("2");

    EXPECT_THAT(journal(), ElementsAre("subscribe cdxData/2", "release cdxData/1", "subscribe cdxClientStates/2",
                                       "release cdxClientStates/1"));
}

TEST_F(CdxXalAccessTest, SubscribingToAResourceAgainReleasesTheFirstWithoutUnsubscribing) {
    connect();
    access->SubscribeCdxDataObject();
    clearRecords();

    access->SubscribeCdxDataObject();

    EXPECT_THAT(journal(), ElementsAre("subscribe cdxData", "release cdxData"));
}

/// Lets go of itself while it is called.
struct ReplacingCallback : cdxtest::RecordingCallback {
    ReplacingCallback(CdxXalAccess& user, std::vector<std::string>& events) : m_user(user), m_events(events) {}
    ~ReplacingCallback() override { m_events.push_back("gone"); }
    void CdxClientStateObjectNotification(std::vector<zepclient::CdxClientStateObject>) override {
        m_user.AssignCallback(nullptr);
        m_events.push_back("still there");
    }

private:
    CdxXalAccess& m_user;
    std::vector<std::string>& m_events;
};

TEST_F(CdxXalAccessTest, TheCallbackOutlivesItsReplacementWhileItIsCalled) {
    connect();
    std::vector<std::string> events;
    access->AssignCallback(std::make_shared<ReplacingCallback>(*access, events));

    connection->tellChange("cdxClientStates", R"({"id":"1"})");

    EXPECT_THAT(events, ElementsAre("still there", "gone"));
}

TEST_F(CdxXalAccessTest, WithLoggingOffNothingIsLogged) {
    log.setLevel(-1);

    connect();
    access->SubscribeCdxDataObject("1");
    connection->tellChange("cdxClientStates", R"({"id":"1","canonicalName":"A"})");
    registry->disconnect();

    EXPECT_THAT(callback->calls, ElementsAre("CdxClientStateObjectNotification 1", "CDXClientDisconnected A"));
    EXPECT_THAT(log.outlines(), IsEmpty());
}

} // namespace
