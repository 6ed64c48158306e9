#include "CdxBaseXalClient.h"

#include "BootstrapFixture.h"
#include "ConfigurationManager.h"

#include <oru/Log.h>
#include <support/PrivateMember.h>

#include <json/json.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

using BaseClient = zepclient::CdxBaseXalClient;
using HeaderMap = std::map<std::string, std::shared_ptr<std::string>>;
CDX_REVEAL(BaseLoggerFactory, BaseClient, m_loggerFactory, std::shared_ptr<zepclient::CdxMoRoLoggerFactory>);
CDX_REVEAL(BaseWebsockets, BaseClient, m_websocketManagerFactory, std::shared_ptr<xal::DefaultWebsocketManagerFactory>);
CDX_REVEAL(BaseHttpAccess, BaseClient, m_httpAccessFactory, std::shared_ptr<xal::HttpAccessFactory>);
CDX_REVEAL(BaseConfigManager, BaseClient, m_configManager, std::shared_ptr<zepclient::CdxXalConfigManager>);
CDX_REVEAL(BaseFirstExecutor, BaseClient, m_firstExecutor, std::shared_ptr<xalutil::SingleThreadAsyncTaskExecutor>);
CDX_REVEAL(BaseSecondExecutor, BaseClient, m_secondExecutor, std::shared_ptr<xalutil::SingleThreadAsyncTaskExecutor>);
CDX_REVEAL(BaseServiceRegistry, BaseClient, m_serviceRegistry, std::shared_ptr<xal::XalServiceRegistry>);
CDX_REVEAL(BaseElementRegistry, BaseClient, m_elementRegistry, std::shared_ptr<xal::ElementRegistry>);
CDX_REVEAL(BaseRequestHeaders, BaseClient, m_requestHeaders, std::shared_ptr<HeaderMap>);

namespace {

using cdxtest::documentOf;
using testing::ElementsAre;
using testing::IsEmpty;
using zepclient::CdxXalClient;

class CdxBaseXalClientTest : public cdxtest::BootstrapFixture {
protected:
    std::shared_ptr<BaseClient> create() {
        return CdxXalClient::CreateCdxBaseRasiClient(registryDocument, serviceDocument);
    }
    /// The nine members in their order.
    static std::vector<const void*> objectsOf(const BaseClient& client) {
        return {(client.*reveal(cdxtest::BaseLoggerFactory())).get(),
                (client.*reveal(cdxtest::BaseWebsockets())).get(),
                (client.*reveal(cdxtest::BaseHttpAccess())).get(),
                (client.*reveal(cdxtest::BaseConfigManager())).get(),
                (client.*reveal(cdxtest::BaseFirstExecutor())).get(),
                (client.*reveal(cdxtest::BaseSecondExecutor())).get(),
                (client.*reveal(cdxtest::BaseServiceRegistry())).get(),
                (client.*reveal(cdxtest::BaseElementRegistry())).get(),
                (client.*reveal(cdxtest::BaseRequestHeaders())).get()};
    }
};

TEST_F(CdxBaseXalClientTest, CreationMakesTheFrameworksObjectsInTheirOrder) {
    create();

    EXPECT_THAT(journal(), ElementsAre("make websockets", "make sessions", "make access on sessions",
                                       "make executor cdxHTTPXalExecutor, INFO: CDX XAL HTTP Logger: ",
                                       "make executor cdxXalExecutor, INFO: CDX XAL TASK Logger: ",
                                       R"(make registry "registry" "http://r:1" "CdxMoroClient", INFO: its loggers: )",
                                       "execute on cdxXalExecutor", "the task executor comes first",
                                       "execute on cdxHTTPXalExecutor", "the HTTP executor comes second",
                                       "its service is at http://s:2",
                                       "make elements on a registry, INFO: CDX Element Registry: "));
}

TEST_F(CdxBaseXalClientTest, CreationLogsBeforeItMakesAnything) {
    create();

    EXPECT_THAT(log.outlines(),
                ElementsAre("7 CdxXalClient::CreateCdxBaseRasiClient: ",
                            "5 CdxXalClient::CreateCdxBaseRasiClient: Creating the Base XAL Client",
                            "7 CdxXalConfigManager::CdxXalConfigManager: ", "7 CdxXalConfigManager::load: ",
                            "5 CdxXalConfigManager::getServerBaseUri SERVER BASE URI = http://s:2"));
}

TEST_F(CdxBaseXalClientTest, TheConfigurationIsLoadedBetweenTheHttpAccessAndTheExecutors) {
    std::vector<std::string> madeBeforeLoad;
    const auto observation = log.observe([&](const cdxtest::LogLine& line) {
        if (line.operation() == "zepclient::CdxXalConfigManager::load")
            madeBeforeLoad = journal();
    });

    create();

    EXPECT_THAT(madeBeforeLoad, ElementsAre("make websockets", "make sessions", "make access on sessions"));
}

TEST_F(CdxBaseXalClientTest, TheServicesSettingsReachTheRegistry) {
    create();

    EXPECT_EQ(7, framework().serviceSettings.at("CarDataExchange").requestTimeout.getValue());
}

TEST_F(CdxBaseXalClientTest, EveryMemberIsFilled) {
    const auto client = create();

    EXPECT_THAT(objectsOf(*client), testing::Each(testing::NotNull()));
}

TEST_F(CdxBaseXalClientTest, MembersAreInTheirOrder) {
    const BaseClient& client = *create();
    const std::vector<const void*> places{
        &(client.*reveal(cdxtest::BaseLoggerFactory())),   &(client.*reveal(cdxtest::BaseWebsockets())),
        &(client.*reveal(cdxtest::BaseHttpAccess())),      &(client.*reveal(cdxtest::BaseConfigManager())),
        &(client.*reveal(cdxtest::BaseFirstExecutor())),   &(client.*reveal(cdxtest::BaseSecondExecutor())),
        &(client.*reveal(cdxtest::BaseServiceRegistry())), &(client.*reveal(cdxtest::BaseElementRegistry())),
        &(client.*reveal(cdxtest::BaseRequestHeaders()))};

    EXPECT_TRUE(std::is_sorted(places.begin(), places.end()));
    EXPECT_EQ(sizeof(void*) + places.size() * sizeof(std::shared_ptr<void>), sizeof(BaseClient));
}

TEST_F(CdxBaseXalClientTest, ASecondCreationReturnsTheSameClientWithNewObjectsEverywhere) {
    const auto first = create();
    const auto before = objectsOf(*first);
    // Held, so that no new object can have an old one's address.
    const auto heldRegistry = (*first).*reveal(cdxtest::BaseServiceRegistry());
    const auto heldElements = (*first).*reveal(cdxtest::BaseElementRegistry());
    const auto heldHeaders = (*first).*reveal(cdxtest::BaseRequestHeaders());

    const auto second = create();

    EXPECT_EQ(first, second);
    const auto after = objectsOf(*second);
    for (std::size_t member = 0; member < before.size(); ++member)
        EXPECT_NE(before[member], after[member]) << "member " << member;
}

TEST_F(CdxBaseXalClientTest, TheInstanceIsOne) {
    EXPECT_EQ(BaseClient::getInstance(), BaseClient::getInstance());
    EXPECT_EQ(BaseClient::getInstance(), create());
}

TEST_F(CdxBaseXalClientTest, ADocumentThatCannotBeReadThrowsBeforeAnyExecutorIsMade) {
    registryDocument = documentOf(R"({"mode":[]})");

    EXPECT_THROW(create(), Json::Exception);

    EXPECT_THAT(journal(), ElementsAre("make websockets", "make sessions", "make access on sessions"));
}

TEST_F(CdxBaseXalClientTest, WhatTheFrameworkThrowsPassesToTheCaller) {
    framework().onMakeExecutor = [] { throw std::domain_error("no thread"); };

    EXPECT_THROW(create(), std::domain_error);
}

TEST_F(CdxBaseXalClientTest, AnAccessorIsMadeOfTheBaseClientsObjects) {
    const auto client = create();

    const auto services = CdxXalClient::CreateCdxXalAccessor(*client, "CarDataExchange", "CDX XAL Access");

    EXPECT_EQ((*client).*reveal(cdxtest::BaseServiceRegistry()), services->getServiceRegistry());
    EXPECT_EQ((*client).*reveal(cdxtest::BaseLoggerFactory()), services->getLoggerFactory());
    EXPECT_EQ((*client).*reveal(cdxtest::BaseElementRegistry()), services->getElementRegistry());
    EXPECT_EQ("CDX XAL Access", services->getClientName());
    EXPECT_EQ((*client).*reveal(cdxtest::BaseRequestHeaders()), framework().requestHeaders);
}

TEST_F(CdxBaseXalClientTest, StopEndsEverythingAndThenReleasesItInItsOrder) {
    const auto client = create();
    clearRecords();

    client->Stop();

    EXPECT_THAT(journal(), ElementsAre("unsubscribe all", "stop cdxXalExecutor", "stop cdxHTTPXalExecutor", "close",
                                       "remove manager CarDataExchange", "destroy elements", "destroy registry",
                                       "destroy executor cdxHTTPXalExecutor", "destroy websockets", "destroy access",
                                       "destroy sessions", "destroy executor cdxXalExecutor"));
    EXPECT_THAT(objectsOf(*client), testing::Each(testing::IsNull()));
}

TEST_F(CdxBaseXalClientTest, StopsLinesStandBetweenItsSteps) {
    const auto client = create();
    clearRecords();
    std::vector<std::string> both;
    const auto observation = log.observe([&](const cdxtest::LogLine& line) {
        for (const std::string& entry : journal())
            both.push_back(entry);
        framework().journal->clear();
        both.push_back(line.outline());
    });

    client->Stop();

    EXPECT_THAT(both, ElementsAre("7 CdxBaseXalClient::Stop: ", "unsubscribe all", "stop cdxXalExecutor",
                                  "stop cdxHTTPXalExecutor", "close", "remove manager CarDataExchange",
                                  "5 CdxBaseXalClient::Stop Stopped and cleared XAL executor", "destroy elements",
                                  "destroy registry", "destroy executor cdxHTTPXalExecutor",
                                  "5 CdxBaseXalClient::Stop Going to clean WebSocket Manager factory",
                                  "destroy websockets", "destroy access", "destroy sessions",
                                  "5 CdxBaseXalClient::Stop Now going to reset the executor"));
    EXPECT_THAT(journal(), ElementsAre("destroy executor cdxXalExecutor"));
}

TEST_F(CdxBaseXalClientTest, StopOfAClientNeverFilledOnlyLogs) {
    BaseClient::getInstance()->Stop();

    EXPECT_THAT(journal(), IsEmpty());
    EXPECT_THAT(log.outlines(),
                ElementsAre("7 CdxBaseXalClient::Stop: ", "5 CdxBaseXalClient::Stop Stopped and cleared XAL executor",
                            "5 CdxBaseXalClient::Stop Going to clean WebSocket Manager factory",
                            "5 CdxBaseXalClient::Stop Now going to reset the executor"));
}

TEST_F(CdxBaseXalClientTest, AStoppedClientCanBeFilledAgain) {
    create()->Stop();

    EXPECT_THAT(objectsOf(*create()), testing::Each(testing::NotNull()));
}

TEST_F(CdxBaseXalClientTest, ThreeStopsRemoveTheManagerOnceForEachFilling) {
    create()->Stop();
    create()->Stop();
    BaseClient::getInstance()->Stop();

    EXPECT_THAT(journal(), testing::Contains("remove manager CarDataExchange").Times(2));
}

// In a process of its own, since the instance is made once and released at exit. The fixture would make it before.
TEST(CdxBaseXalClientDeathTest, TheInstanceTracesItsBeginningAndItsEndAtExitAndNothingElse) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            oru::Log::setReportingLevel(7);
            BaseClient::getInstance();
            std::exit(0);
        },
        testing::ExitedWithCode(0),
        "zepclient::CdxBaseXalClient::CdxBaseXalClient\\(\\):[0-9]+ \n"
        "[^\n]*zepclient::CdxBaseXalClient::~CdxBaseXalClient\\(\\):[0-9]+ \n$");
}

} // namespace
