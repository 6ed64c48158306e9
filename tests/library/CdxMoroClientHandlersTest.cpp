#include "HandlersFixture.h"

#include <functional>
#include <stdexcept>

namespace {

using cdxtest::element;
using cdxtest::state;
using cdxtest::stateDocument;
using testing::ElementsAre;
using testing::IsEmpty;
using zepclient::CdxClientStateObject;

class CdxMoroClientHandlersTest : public cdxtest::HandlersFixture {};

// Client states

TEST_F(CdxMoroClientHandlersTest, TheFirstStateOfANameIsAnnouncedAndTheSecondGoesToTheClientsHandler) {
    client->xalHandleCdxClientState(state("A"));
    client->setCdxClientStateRecieveHandler(
        [this](oru::Json::Value document) { calls.push_back("state " + document["name"].asString()); }, "A");
    client->xalHandleCdxClientState(state("A"));

    EXPECT_THAT(calls, ElementsAre("new A", "state A"));
}

TEST_F(CdxMoroClientHandlersTest, ANewClientIsLoggedByItsCanonicalName) {
    client->xalHandleCdxClientState(state("A"));

    EXPECT_THAT(log.outlines(),
                ElementsAre("7 CdxMoroClient::xalHandleCdxClientState: ",
                            "7 CdxMoroClient::xalHandleCdxClientState: MORO CLIENT UUID = 7",
                            "5 CdxMoroClient::xalHandleCdxClientState Creating a new Service with service Name = canon",
                            "7 MoroClientCallback::MoroClientCallback: "));
}

TEST_F(CdxMoroClientHandlersTest, AKnownClientsStateIsTraced) {
    announce("A");

    client->xalHandleCdxClientState(state("A"));

    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxMoroClient::xalHandleCdxClientState: ",
                                            "7 CdxMoroClient::xalHandleCdxClientState: MORO CLIENT UUID = 7",
                                            "7 MoroClientCallback::executeCdxClientHandler: "));
}

TEST_F(CdxMoroClientHandlersTest, TheClientStateDocumentHasEveryField) {
    oru::Json::Value told;
    client->setMsgProcessorCallback([&](oru::Json::Value document) { told = document; });

    client->xalHandleCdxClientState(state("A"));

    EXPECT_EQ(stateDocument("A"), told);
}

TEST_F(CdxMoroClientHandlersTest, AKnownClientsDocumentIsTheSame) {
    announce("A");
    oru::Json::Value told;
    client->setCdxClientStateRecieveHandler([&](oru::Json::Value document) { told = document; }, "A");

    client->xalHandleCdxClientState(state("A"));

    EXPECT_EQ(stateDocument("A"), told);
}

TEST_F(CdxMoroClientHandlersTest, AStateWithoutAnIdIsInvalidInTheLogAndInTheDocument) {
    oru::Json::Value told;
    client->setMsgProcessorCallback([&](oru::Json::Value document) { told = document; });
    oru::Json::Value json = stateDocument("A");
    json.removeMember("id");

    client->xalHandleCdxClientState(element<CdxClientStateObject>(cdxtest::textOf(json)));

    EXPECT_EQ("invalid", told["id"].asString());
    EXPECT_NO_THROW(log.line("MORO CLIENT UUID = invalid"));
}

TEST_F(CdxMoroClientHandlersTest, AnEmptyListOfOfferedDataTypesIsNull) {
    oru::Json::Value told;
    client->setMsgProcessorCallback([&](oru::Json::Value document) { told = document; });
    oru::Json::Value json = stateDocument("A");
    json["offeredDataType"] = oru::Json::Value(oru::Json::arrayValue);

    client->xalHandleCdxClientState(element<CdxClientStateObject>(cdxtest::textOf(json)));

    EXPECT_TRUE(told.isMember("offeredDataType"));
    EXPECT_TRUE(told["offeredDataType"].isNull());
}

TEST_F(CdxMoroClientHandlersTest, AStateThatLacksAMandatoryFieldThrowsAndCreatesNoEntry) {
    for (const char* key : {"canonicalName", "name", "elementId", "isNewConfigRequested", "isShutdownRequested", "uri",
                            "offeredDataType"}) {
        oru::Json::Value json = stateDocument("A");
        json.removeMember(key);
        try {
            client->xalHandleCdxClientState(element<CdxClientStateObject>(cdxtest::textOf(json)));
            ADD_FAILURE() << "nothing was thrown without " << key;
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ("getValue called on uninitialized Optional", error.what());
        }
    }
    EXPECT_THAT(calls, IsEmpty());
    client->xalHandleCdxClientState(state("A"));
    EXPECT_THAT(calls, ElementsAre("new A"));
}

TEST_F(CdxMoroClientHandlersTest, WithoutAMessageProcessorANewClientThrowsAfterItsEntryWasCreated) {
    client->setMsgProcessorCallback(nullptr);

    EXPECT_THROW(client->xalHandleCdxClientState(state("A")), std::bad_function_call);

    EXPECT_NO_THROW(client->xalHandleCdxClientState(state("A")));
}

TEST_F(CdxMoroClientHandlersTest, NamesAreComparedBytewise) {
    announce("A");

    client->xalHandleCdxClientState(state("a"));

    EXPECT_THAT(calls, ElementsAre("new a"));
}

// Disconnects and cleaning up

TEST_F(CdxMoroClientHandlersTest, ADisconnectOfAKnownClientCallsTheDeleteHandlerAndKeepsTheEntry) {
    announce("A");
    client->setMsgProcessorDeleteCallback([this](std::string name) { calls.push_back("gone " + name); });

    client->xalHandleCdxClientDisconnectState("A");
    client->xalHandleCdxClientState(state("A"));

    EXPECT_THAT(calls, ElementsAre("gone A")) << "a second announcement would mean that the entry was lost";
}

TEST_F(CdxMoroClientHandlersTest, LibraryWideSettersTrace) {
    client->setMsgProcessorCallback(nullptr);
    client->setMsgProcessorDeleteCallback(nullptr);

    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxMoroClient::setMsgProcessorCallback: ",
                                            "7 CdxMoroClient::setMsgProcessorDeleteCallback: "));
}

TEST_F(CdxMoroClientHandlersTest, CleaningUpAClientForgetsItsHandlersAndLetsItBeAnnouncedAgain) {
    announce("A");
    auto held = std::make_shared<int>(1);
    const std::weak_ptr<int> observer = held;
    client->setCdxConfigUpdateRecieveHandler([held = std::move(held)](bool) {}, "A");
    log.clear();

    client->cleanUpService("A");

    EXPECT_TRUE(observer.expired());
    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxMoroClient::cleanUpService: ",
                                            "5 CdxMoroClient::cleanUpService Resetting the service A"));
    client->xalHandleCdxClientState(state("A"));
    EXPECT_THAT(calls, ElementsAre("new A"));
}

TEST_F(CdxMoroClientHandlersTest, CleaningUpAnUnknownClientOnlyTraces) {
    announce("A");

    client->cleanUpService("B");

    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxMoroClient::cleanUpService: "));
}

TEST_F(CdxMoroClientHandlersTest, AHandlerMayCleanUpItsOwnClientWhileItRuns) {
    announce("A");
    const std::string longText(100, 'x');
    client->setCdxConfigUpdateRecieveHandler(
        [this, longText](bool) {
            client->cleanUpService("A");
            calls.push_back(longText);
        },
        "A");

    client->xalHandleConfigUpdateElement(true, "A");

    EXPECT_THAT(calls, ElementsAre(longText));
    client->xalHandleConfigUpdateElement(true, "A");
    EXPECT_EQ(1U, log.outlines(3).size()) << "the client is gone";
}

TEST_F(CdxMoroClientHandlersTest, TheDeleteHandlerMayCleanUpTheClientAndReplaceItself) {
    announce("A");
    const std::string longText(100, 'x');
    client->setMsgProcessorDeleteCallback([this, longText](std::string name) {
        client->setMsgProcessorDeleteCallback(nullptr);
        client->cleanUpService(name);
        calls.push_back(longText);
    });

    client->xalHandleCdxClientDisconnectState("A");

    EXPECT_THAT(calls, ElementsAre(longText));
}

TEST_F(CdxMoroClientHandlersTest, HandlersMayBeRegisteredFromInsideTheAnnouncement) {
    const std::string longText(100, 'x');
    client->setMsgProcessorCallback([this, longText](oru::Json::Value document) {
        client->setMsgProcessorCallback(nullptr);
        client->setCdxConfigUpdateRecieveHandler([this](bool) { calls.push_back("updated"); },
                                                 document["name"].asString());
        calls.push_back(longText);
    });

    client->xalHandleCdxClientState(state("A"));
    client->xalHandleConfigUpdateElement(true, "A");

    EXPECT_THAT(calls, ElementsAre(longText, "updated"));
}

TEST_F(CdxMoroClientHandlersTest, WhatAHandlerThrowsPassesToTheCaller) {
    announce("A");
    client->setCdxConfigUpdateRecieveHandler([](bool) { throw std::domain_error("from the handler"); }, "A");

    EXPECT_THROW(client->xalHandleConfigUpdateElement(true, "A"), std::domain_error);
}

} // namespace
