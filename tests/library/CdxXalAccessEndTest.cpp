#include "AccessFixture.h"

#include <support/PrivateMember.h>

#include <map>
#include <stdexcept>
#include <thread>

using SubscriptionMap = std::map<std::string, std::shared_ptr<xal::Subscription>>;
CDX_REVEAL(SubscriptionMapOfAccess, zepclient::CdxXalAccess, m_clientStateSubscriptions, SubscriptionMap);
CDX_REVEAL(SpareSubscriptionOfAccess, zepclient::CdxXalAccess, m_spareSubscription, std::shared_ptr<xal::Subscription>);

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

/// How subscriptions end: by a reset, by pruning, and with the access object.
class CdxXalAccessEndTest : public cdxtest::AccessFixture {};

TEST_F(CdxXalAccessEndTest, AResetUnsubscribesAllBeforeItReleasesAnyAndKeepsTheClientStateElement) {
    connect();
    access->SubscribeClientStateObject("1");
    access->SubscribeCdxDataObject("2");
    access->SubscribeCdxDataObject();
    clearRecords();

    access->ResetsSubscriptions();

    EXPECT_THAT(journal(), ElementsAre("unsubscribe cdxClientStates", "unsubscribe cdxData", "unsubscribe cdxData/2",
                                       "release cdxClientStates", "release cdxData", "release cdxData/2"));
    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxXalAccess::ResetsSubscriptions: "));
    connection->tellChange("cdxClientStates/1", R"({"id":"1"})");
    EXPECT_THAT(callback->calls, ElementsAre("CdxClientStateUpdateNotification 1"));
}

TEST_F(CdxXalAccessEndTest, AResetWithoutSubscriptionsOnlyTraces) {
    access->ResetsSubscriptions();

    EXPECT_THAT(journal(), IsEmpty());
    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxXalAccess::ResetsSubscriptions: "));
}

class SubscriptionMapTest : public CdxXalAccessEndTest {
protected:
    /// Fills the map as nothing in the library does.
    void fillMap() {
        for (const char* key : {"a", "b", "c"}) {
            xal::SubscribeRequest request;
            request.resourceName = key;
            map()[key] = recorder->subscribe(request, [](const xal::Event&) {});
        }
        clearRecords();
    }
    SubscriptionMap& map() { return (*access).*reveal(cdxtest::SubscriptionMapOfAccess()); }

    std::shared_ptr<cdxtest::RecordingConnection> recorder = registry->makeConnection();
};

TEST_F(SubscriptionMapTest, PruningUnsubscribesAndThenErasesEveryKeyThatIsNotCurrent) {
    fillMap();
    std::map<std::string, std::string> current{{"b", "whatever"}};

    access->updateCdxClientStateSubscription(current);

    EXPECT_THAT(journal(), ElementsAre("unsubscribe a", "unsubscribe c", "release a", "release c"));
    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxXalAccess::updateCdxClientStateSubscription: ",
                                            "5 CdxXalAccess::updateCdxClientStateSubscription Size of MAP = 1"));
}

TEST_F(SubscriptionMapTest, PruningWithAnEmptyMapRemovesEveryEntry) {
    fillMap();
    std::map<std::string, std::string> current;

    access->updateCdxClientStateSubscription(current);

    EXPECT_THAT(map(), IsEmpty());
    EXPECT_THAT(log.outlines(5), ElementsAre("5 CdxXalAccess::updateCdxClientStateSubscription Size of MAP = 0"));
}

TEST_F(SubscriptionMapTest, AResetDropsTheMapsEntriesAndTheSpareWithoutUnsubscribing) {
    fillMap();
    xal::SubscribeRequest request;
    request.resourceName = "spare";
    (*access).*reveal(cdxtest::SpareSubscriptionOfAccess()) = recorder->subscribe(request, [](const xal::Event&) {});
    clearRecords();

    access->ResetsSubscriptions();

    EXPECT_THAT(journal(), testing::UnorderedElementsAre("release spare", "release a", "release b", "release c"));
}

TEST_F(CdxXalAccessEndTest, DestructionClosesTheRegistryBeforeItReleasesAnythingAndDoesNotUnsubscribe) {
    connect();
    access->SubscribeCdxDataObject();
    clearRecords();

    access.reset();

    EXPECT_THAT(journal(), ElementsAre("close", "release cdxData", "release cdxClientStates"));
    EXPECT_THAT(log.outlines(), IsEmpty());
}

TEST_F(CdxXalAccessEndTest, AResetMayMeetConnectsAndNotificationsOnAnotherThread) {
    access->AssignCallback(callback);
    access->start();
    constexpr int rounds = 300;

    std::thread framework([this] {
        for (int round = 0; round < rounds; ++round) {
            const auto made = registry->connect();
            try {
                made->tellChange("cdxClientStates", R"({"id":"1"})");
            } catch (const std::out_of_range&) {
                continue; // the reset was faster
            }
        }
    });
    for (int round = 0; round < rounds; ++round) {
        access->SubscribeCdxDataObject();
        access->ResetsSubscriptions();
    }
    framework.join();

    access->ResetsSubscriptions();
    EXPECT_THAT(journal(), Contains("subscribe cdxClientStates").Times(rounds));
    EXPECT_THAT(journal(), Contains("release cdxClientStates").Times(rounds));
}

} // namespace
