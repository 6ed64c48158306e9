#include "ConfigurationManager.h"

#include "Documents.h"

#include <support/xal/LogCapture.h>

#include <gmock/gmock.h>
#include <json/json.h>

#include <fstream>
#include <sstream>

namespace {

using cdxtest::documentOf;
using testing::ElementsAre;
using testing::IsEmpty;
using zepclient::CdxXalConfigManager;

class ConfigurationManagerTest : public testing::Test {
protected:
    void load(const std::string& registryJson, const std::string& serviceJson) {
        registryDocument = documentOf(registryJson);
        serviceDocument = documentOf(serviceJson);
        manager.load(registryDocument, serviceDocument);
        log.clear();
    }
    const xal::XalServiceConfigurations::ServiceSetting& setting(const char* service) {
        return manager.getServiceSettings()->at(service);
    }

    cdxtest::LogCapture log;
    CdxXalConfigManager manager;
    oru::Json::Value registryDocument;
    oru::Json::Value serviceDocument;
};

TEST_F(ConfigurationManagerTest, BeforeLoadTheDefaultsHold) {
    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxXalConfigManager::CdxXalConfigManager: "));
    EXPECT_EQ("static", manager.getRegistrySettings().mode);
    EXPECT_EQ("http://[::1]:80", manager.getRegistrySettings().httpUri);
    EXPECT_THAT(*manager.getServiceSettings(), IsEmpty());
    EXPECT_FALSE(manager.isServiceConfigurationKnown("CarDataExchange"));
    EXPECT_EQ("", manager.getServerBaseUri("CarDataExchange"));
}

TEST_F(ConfigurationManagerTest, TheRecordsDefaultsAreTheLoopbackAddressAndPlainPaths) {
    const CdxXalConfigManager::ServiceSettings defaults;

    EXPECT_EQ("http://[::1]:80", defaults.serverBaseUri);
    EXPECT_EQ("/", defaults.serverBasePathWS);
    EXPECT_EQ("/", defaults.serverBasePathHTTP);
    EXPECT_EQ("/", defaults.separator);
    EXPECT_EQ(0, defaults.timeOut);
}

TEST_F(ConfigurationManagerTest, TheDemosDocumentsGiveTheirSettingsAndAreLeftAsTheyWere) {
    const auto textOfFile = [](const std::string& name) {
        std::ifstream file(CDX_DEMO_DOCUMENTS "/" + name);
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    };
    load(textOfFile("registry.json"), textOfFile("service.json"));

    EXPECT_EQ("static", manager.getRegistrySettings().mode);
    EXPECT_EQ("http://127.0.0.1:8080/registry", manager.getRegistrySettings().httpUri);
    EXPECT_EQ("http://127.0.0.1:8080", manager.getServerBaseUri("CarDataExchange"));
    EXPECT_EQ("/", manager.getServerBasePath("CarDataExchange"));
    EXPECT_EQ("", manager.getSeparatorAfterResource("CarDataExchange"));
    EXPECT_FALSE(setting("CarDataExchange").useSeparator.getValue());
    EXPECT_EQ(5000, setting("CarDataExchange").requestTimeout.getValue());
    EXPECT_EQ(5000, setting("CarDataExchange").subscribeTimeout.getValue());
    EXPECT_EQ(documentOf(textOfFile("registry.json")), registryDocument);
    EXPECT_EQ(documentOf(textOfFile("service.json")), serviceDocument);
}

TEST_F(ConfigurationManagerTest, LoadTracesOnce) {
    log.clear();
    manager.load(registryDocument, serviceDocument);

    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxXalConfigManager::load: "));
}

TEST_F(ConfigurationManagerTest, GettersReadTheServiceDocumentWhateverTheServicesName) {
    load("{}", R"({"serverBaseUri":"http://s:1","serverBasePathHTTP":"/h","separatorAfterResource":"/"})");

    EXPECT_EQ("http://s:1", manager.getServerBaseUri("CarDataExchange"));
    EXPECT_EQ("/h", manager.getServerBasePath("Other"));
    EXPECT_EQ("/", manager.getSeparatorAfterResource(""));
    EXPECT_THAT(log.outlines(), ElementsAre("5 CdxXalConfigManager::getServerBaseUri SERVER BASE URI = http://s:1",
                                            "5 CdxXalConfigManager::getServerBasePath SERVER BASE PATH HTTP = /h",
                                            "5 CdxXalConfigManager::getSeparatorAfterResource "
                                            "SEPARATOR AFTer RESOURCE = /"));
}

TEST_F(ConfigurationManagerTest, AGettersLineNeedsLevelFive) {
    load("{}", R"({"serverBaseUri":"http://s:1"})");
    log.setLevel(4);

    EXPECT_EQ("http://s:1", manager.getServerBaseUri("CarDataExchange"));

    EXPECT_THAT(log.outlines(), IsEmpty());
}

TEST_F(ConfigurationManagerTest, AnyMemberOfTheServiceDocumentMakesEveryServiceKnown) {
    load("{}", R"({"serverBaseUri":"http://s:1"})");

    EXPECT_TRUE(manager.isServiceConfigurationKnown("CarDataExchange"));
    EXPECT_TRUE(manager.isServiceConfigurationKnown("Other"));
    EXPECT_THAT(log.outlines(), IsEmpty());
}

TEST_F(ConfigurationManagerTest, AnEmptyServiceDocumentMakesNoServiceKnown) {
    for (const char* empty : {"{}", "null"}) {
        load("{}", empty);
        EXPECT_FALSE(manager.isServiceConfigurationKnown("CarDataExchange")) << empty;
        EXPECT_EQ("", manager.getServerBaseUri("CarDataExchange")) << empty;
    }
}

TEST_F(ConfigurationManagerTest, TheWatchdogsTimesAreConstant) {
    load("{}", R"({"timeOut":7,"watchdogPingInterval":8})");

    EXPECT_EQ(600, manager.getWatchdogPingInterval("CarDataExchange"));
    EXPECT_EQ(600, manager.getWatchdogPongTimeout("CarDataExchange"));
    EXPECT_THAT(log.outlines(), IsEmpty());
}

TEST_F(ConfigurationManagerTest, TheServiceConfigurationIsPutTogetherFromTheGetters) {
    load("{}", R"({"serverBaseUri":"http://s:1","serverBasePathHTTP":"/h","separatorAfterResource":"/"})");

    const auto configuration = manager.getServiceConfiguration("CarDataExchange");

    EXPECT_TRUE(configuration.known);
    EXPECT_EQ("http://s:1", configuration.serverBaseUri);
    EXPECT_EQ("/h", configuration.serverBasePath);
    EXPECT_EQ("/", configuration.separatorAfterResource);
    EXPECT_EQ(600, configuration.watchdogPingInterval);
    EXPECT_EQ(600, configuration.watchdogPongTimeout);
}

TEST_F(ConfigurationManagerTest, RegistrySettingsAreReadFromTheRegistryDocument) {
    load(R"({"mode":"registry","httpUri":"http://r:1"})", "{}");

    EXPECT_EQ("registry", manager.getRegistrySettings().mode);
    EXPECT_EQ("http://r:1", manager.getRegistrySettings().httpUri);
}

TEST_F(ConfigurationManagerTest, AbsentRegistryKeysReplaceTheDefaultsWithEmptyTexts) {
    load("{}", "{}");

    EXPECT_EQ("", manager.getRegistrySettings().mode);
    EXPECT_EQ("", manager.getRegistrySettings().httpUri);
}

TEST_F(ConfigurationManagerTest, AServicesSettingHasItsTimeOutTwice) {
    load(R"({"serviceSettings":[{"service":"A","useSeparator":true,"timeOut":1500}]})", "{}");

    EXPECT_TRUE(setting("A").useSeparator.getValue());
    EXPECT_EQ(1500, setting("A").requestTimeout.getValue());
    EXPECT_EQ(1500, setting("A").subscribeTimeout.getValue());
}

TEST_F(ConfigurationManagerTest, AbsentSettingKeysAreEmptyFalseAndZero) {
    load(R"({"serviceSettings":[{}]})", "{}");

    EXPECT_FALSE(setting("").useSeparator.getValue());
    EXPECT_EQ(0, setting("").requestTimeout.getValue());
    EXPECT_EQ(0, setting("").subscribeTimeout.getValue());
}

TEST_F(ConfigurationManagerTest, OfAServiceGivenTwiceTheFirstSettingHolds) {
    load(R"({"serviceSettings":[{"service":"A","useSeparator":true,"timeOut":1},)"
         R"({"service":"B","timeOut":2},{"service":"A","useSeparator":false,"timeOut":3}]})",
         "{}");

    EXPECT_EQ(2U, manager.getServiceSettings()->size());
    EXPECT_TRUE(setting("A").useSeparator.getValue());
    EXPECT_EQ(1, setting("A").requestTimeout.getValue());
}

TEST_F(ConfigurationManagerTest, SettingsThatAreNoArrayAreIgnored) {
    for (const char* settings : {R"({"service":"A"})", "null", R"("A")", "1"}) {
        load(R"({"serviceSettings":)" + std::string(settings) + "}", "{}");
        EXPECT_THAT(*manager.getServiceSettings(), IsEmpty()) << settings;
    }
}

TEST_F(ConfigurationManagerTest, TheSettingsMapIsOneForAllWhoAsk) {
    EXPECT_EQ(manager.getServiceSettings(), manager.getServiceSettings());
}

TEST_F(ConfigurationManagerTest, KeysThatAreReadAndAbsentBecomeNullMembersOfTheCallersDocuments) {
    load(R"({"serviceSettings":[{}]})", "{}");

    EXPECT_EQ(documentOf(R"({"mode":null,"httpUri":null,)"
                         R"("serviceSettings":[{"service":null,"useSeparator":null,"timeOut":null}]})"),
              registryDocument);
    EXPECT_EQ(documentOf(R"({"serverBaseUri":null,"serverBasePathHTTP":null,"serverBasePathWS":null,)"
                         R"("separator":null,"timeOut":null})"),
              serviceDocument);
}

TEST_F(ConfigurationManagerTest, AbsentSettingsAreNotAddedToTheCallersDocument) {
    load("{}", "{}");

    EXPECT_FALSE(registryDocument.isMember("serviceSettings"));
    EXPECT_FALSE(serviceDocument.isMember("separatorAfterResource"));
}

TEST_F(ConfigurationManagerTest, WhatReadingAddsDoesNotReachTheStoredCopies) {
    load("{}", "{}");

    EXPECT_FALSE(manager.isServiceConfigurationKnown("CarDataExchange"));
}

TEST_F(ConfigurationManagerTest, LaterChangesOfTheCallersDocumentHaveNoEffect) {
    load("{}", R"({"separatorAfterResource":"a"})");

    serviceDocument["separatorAfterResource"] = "b";

    EXPECT_EQ("a", manager.getSeparatorAfterResource("CarDataExchange"));
}

TEST_F(ConfigurationManagerTest, AValueThatCannotBeConvertedThrowsTheJsonLibrarysException) {
    EXPECT_THROW(load(R"({"mode":{}})", "{}"), Json::Exception);
    EXPECT_THROW(load("[]", "{}"), Json::Exception);
    EXPECT_THROW(load(R"("text")", "{}"), Json::Exception);
    EXPECT_THROW(load(R"({"serviceSettings":[1]})", "{}"), Json::Exception);
    EXPECT_THROW(load(R"({"serviceSettings":[{"timeOut":"1"}]})", "{}"), Json::Exception);
    EXPECT_THROW(load(R"({"serviceSettings":[{"useSeparator":"yes"}]})", "{}"), Json::Exception);
    EXPECT_THROW(load("{}", "[]"), Json::Exception);
    EXPECT_THROW(load("{}", R"({"serverBaseUri":[]})"), Json::Exception);
    EXPECT_THROW(load("{}", R"({"timeOut":2147483648})"), Json::Exception);
}

TEST_F(ConfigurationManagerTest, AValueThatCannotBeConvertedEndsTheReadingAtItsPlace) {
    EXPECT_THROW(load(R"({"httpUri":[]})", "{}"), Json::Exception);
    EXPECT_EQ(documentOf(R"({"mode":null,"httpUri":[]})"), registryDocument);
    EXPECT_TRUE(serviceDocument.empty());

    EXPECT_THROW(load("{}", R"({"serverBasePathWS":[]})"), Json::Exception);
    EXPECT_EQ(documentOf(R"({"serverBaseUri":null,"serverBasePathHTTP":null,"serverBasePathWS":[]})"), serviceDocument);

    EXPECT_THROW(load("{}", R"({"separator":[]})"), Json::Exception);
    EXPECT_FALSE(serviceDocument.isMember("timeOut"));
}

TEST_F(ConfigurationManagerTest, OtherTypesAreReadByTheJsonLibrarysRules) {
    load(R"({"mode":1,"httpUri":true,"serviceSettings":[{"service":2,"useSeparator":1,"timeOut":3.0}]})",
         R"({"serverBaseUri":4})");

    EXPECT_EQ("1", manager.getRegistrySettings().mode);
    EXPECT_EQ("true", manager.getRegistrySettings().httpUri);
    EXPECT_TRUE(setting("2").useSeparator.getValue());
    EXPECT_EQ(3, setting("2").requestTimeout.getValue());
    EXPECT_EQ("4", manager.getServerBaseUri("CarDataExchange"));
}

} // namespace
