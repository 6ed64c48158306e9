#include "HandlersFixture.h"

#include <functional>
#include <stdexcept>

namespace {

using cdxtest::documentOf;
using cdxtest::element;
using cdxtest::sharedElement;
using cdxtest::state;
using cdxtest::stateDocument;
using testing::ElementsAre;
using testing::IsEmpty;
using zepclient::CdxDataObject;
using zepclient::CdxMoroClient;

using Calls = std::vector<std::string>;

/// Whatever goes through a look-up by the client's name: the nine setters, and what the service reports.
class CdxMoroClientRegistryTest : public cdxtest::HandlersFixture {};

// Setters, one for each of the nine handlers

struct Setter {
    std::string name;
    std::function<void(CdxMoroClient&, Calls&, const std::string&)> set;
    /// Makes the service report something that reaches the handler of the client "A".
    std::function<void(CdxMoroClient&)> report;
    std::string call;
};

std::ostream& operator<<(std::ostream& stream, const Setter& setter) {
    return stream << setter.name;
}

template <class... Arguments>
auto with(void (CdxMoroClient::*setter)(std::function<void(Arguments...)>, std::string)) {
    return [setter](CdxMoroClient& client, Calls& calls, const std::string& name) {
        (client.*setter)(
            [&calls](Arguments... arguments) {
                oru::Json::Value all(oru::Json::arrayValue);
                (all.append(oru::Json::Value(arguments)), ...);
                calls.push_back(cdxtest::textOf(all));
            },
            name);
    };
}

const Setter setters[] = {
    {"setCdxClientStateRecieveHandler", with(&CdxMoroClient::setCdxClientStateRecieveHandler),
     [](CdxMoroClient& c) { c.xalHandleCdxClientState(state("A")); }, "[" + cdxtest::textOf(stateDocument("A")) + "]"},
    {"setCdxMasterControlCreateRecieveHandler", with(&CdxMoroClient::setCdxMasterControlCreateRecieveHandler),
     [](CdxMoroClient& c) { c.xalHandleCdxMasterCtlCreateElement(true, documentOf(R"({"name":"A","id":"7"})")); },
     R"([true,"7"])"},
    {"setCdxMasterControlUpdateHandler", with(&CdxMoroClient::setCdxMasterControlUpdateHandler),
     [](CdxMoroClient& c) { c.xalHandleCdxMasterCtlUpdateElement(true, "A"); }, "[true]"},
    {"setCdxDataStateSubsRecieveHandler", with(&CdxMoroClient::setCdxDataStateSubsRecieveHandler),
     [](CdxMoroClient& c) { c.xalHandleCdxDataSubscription(element<CdxDataObject>(R"({"name":"A","version":"1"})")); },
     R"([{"elementId":1,"name":"A","version":"1"}])"},
    {"setCdxDataStateUpdateRecieveHandler", with(&CdxMoroClient::setCdxDataStateUpdateRecieveHandler),
     [](CdxMoroClient& c) { c.xalHandleCdxDataUpdate(sharedElement<CdxDataObject>(R"({"name":"A","version":"1"})")); },
     R"([{"elementId":1,"name":"A","version":"1"}])"},
    {"setCdxConfigCreateRecieveHandler", with(&CdxMoroClient::setCdxConfigCreateRecieveHandler),
     [](CdxMoroClient& c) { c.xalHandleConfigCreateElement(true, documentOf(R"({"name":"A","id":"7"})")); },
     R"([true,{"id":"7","name":"A"}])"},
    {"setCdxConfigUpdateRecieveHandler", with(&CdxMoroClient::setCdxConfigUpdateRecieveHandler),
     [](CdxMoroClient& c) { c.xalHandleConfigUpdateElement(false, "A"); }, "[false]"},
    {"setCdxTriggerCreateRecieveHandler", with(&CdxMoroClient::setCdxTriggerCreateRecieveHandler),
     [](CdxMoroClient& c) { c.xalHandleTriggerCreateElement(false, documentOf(R"({"name":"A"})")); },
     R"([false,{"name":"A"}])"},
    {"setCdxTriggerUpdateRecieveHandler", with(&CdxMoroClient::setCdxTriggerUpdateRecieveHandler),
     [](CdxMoroClient& c) { c.xalHandleTriggerUpdateElement(true, "A"); }, "[true]"},
};

class SetterTest : public CdxMoroClientRegistryTest, public testing::WithParamInterface<Setter> {};

INSTANTIATE_TEST_SUITE_P(All, SetterTest, testing::ValuesIn(setters),
                         [](const auto& setter) { return setter.param.name; });

TEST_P(SetterTest, ForAnAnnouncedClientTakesTheHandlerThatTheServicesReportThenReaches) {
    announce("A");

    GetParam().set(*client, calls, "A");
    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxMoroClient::" + GetParam().name + ": "));

    GetParam().report(*client);
    EXPECT_THAT(calls, ElementsAre(GetParam().call));
}

TEST_P(SetterTest, ReplacesTheHandlerSetBefore) {
    announce("A");
    Calls replaced;
    GetParam().set(*client, replaced, "A");

    GetParam().set(*client, calls, "A");
    GetParam().report(*client);

    EXPECT_THAT(replaced, IsEmpty());
    EXPECT_THAT(calls, ElementsAre(GetParam().call));
}

TEST_P(SetterTest, ForAnUnknownClientLogsAnErrorAndDropsTheHandler) {
    GetParam().set(*client, calls, "A");

    EXPECT_THAT(log.outlines(),
                ElementsAre("7 CdxMoroClient::" + GetParam().name + ": ",
                            "3 CdxMoroClient::" + GetParam().name +
                                ": The service A  does not exists in map,. It may be that service would be lost or not "
                                "created."));
    announce("A");
    GetParam().report(*client);
    EXPECT_THAT(calls, IsEmpty());
}

TEST_P(SetterTest, ForOneClientDoesNotReachAnother) {
    announce("A");
    announce("B");

    GetParam().set(*client, calls, "B");
    GetParam().report(*client);

    EXPECT_THAT(calls, IsEmpty());
}

// Inbound, one for each of the nine that look the name up

struct Inbound {
    std::string name;
    std::function<void(CdxMoroClient&)> report; ///< for the client "A"
    std::vector<std::string> unknown;           ///< behind the head line: level, ":" or nothing, blank, message
};

std::ostream& operator<<(std::ostream& stream, const Inbound& inbound) {
    return stream << inbound.name;
}

const char notInMap[] =
    "3: The service A  does not exists in map,. It may be that service would be lost or not created.";
const char notFound[] = "3: The service Ais not found";

const Inbound inbounds[] = {
    {"xalHandleCdxClientDisconnectState",
     [](CdxMoroClient& c) { c.xalHandleCdxClientDisconnectState("A"); },
     {"3: Didn't find the service A  in the callback map."}},
    {"xalHandleCdxDataSubscription",
     [](CdxMoroClient& c) { c.xalHandleCdxDataSubscription(element<CdxDataObject>(R"({"name":"A"})")); },
     {notFound}},
    {"xalHandleCdxDataUpdate",
     [](CdxMoroClient& c) { c.xalHandleCdxDataUpdate(sharedElement<CdxDataObject>(R"({"name":"A"})")); },
     {notFound, "5 Now returning"}},
    {"xalHandleCdxMasterCtlCreateElement",
     [](CdxMoroClient& c) { c.xalHandleCdxMasterCtlCreateElement(true, documentOf(R"({"name":"A"})")); },
     {notInMap}},
    {"xalHandleCdxMasterCtlUpdateElement",
     [](CdxMoroClient& c) { c.xalHandleCdxMasterCtlUpdateElement(true, "A"); },
     {notInMap}},
    {"xalHandleConfigCreateElement",
     [](CdxMoroClient& c) { c.xalHandleConfigCreateElement(true, documentOf(R"({"name":"A"})")); },
     {notFound}},
    {"xalHandleConfigUpdateElement", [](CdxMoroClient& c) { c.xalHandleConfigUpdateElement(true, "A"); }, {notFound}},
    {"xalHandleTriggerCreateElement",
     [](CdxMoroClient& c) { c.xalHandleTriggerCreateElement(true, documentOf(R"({"name":"A"})")); },
     {"7: Trigger element is created, name = ", notFound}},
    {"xalHandleTriggerUpdateElement",
     [](CdxMoroClient& c) { c.xalHandleTriggerUpdateElement(true, "A"); },
     {"7: Trigger element is updated with status = 1", notFound}},
};

class InboundTest : public CdxMoroClientRegistryTest, public testing::WithParamInterface<Inbound> {
protected:
    std::string outline(const std::string& line) const {
        return line.substr(0, 1) + " CdxMoroClient::" + GetParam().name + line.substr(1);
    }
};

INSTANTIATE_TEST_SUITE_P(All, InboundTest, testing::ValuesIn(inbounds),
                         [](const auto& inbound) { return inbound.param.name; });

TEST_P(InboundTest, ForAnUnknownClientIsLoggedAndDropped) {
    client->setMsgProcessorDeleteCallback([this](std::string name) { calls.push_back(name); });
    announce("B");

    GetParam().report(*client);

    Calls expected{"7 CdxMoroClient::" + GetParam().name + ": "};
    for (const std::string& line : GetParam().unknown)
        expected.push_back(outline(line));
    EXPECT_EQ(expected, log.outlines());
    EXPECT_THAT(calls, IsEmpty());
}

TEST_P(InboundTest, ForAKnownClientWithoutAHandlerIsDroppedWithoutAnError) {
    announce("A");

    GetParam().report(*client);

    EXPECT_THAT(log.outlines(3), IsEmpty());
    EXPECT_EQ("7 CdxMoroClient::" + GetParam().name + ": ", log.outlines().front());
}

TEST_F(CdxMoroClientRegistryTest, ADataUpdateSaysThatItReturnsAlsoForAKnownClient) {
    announce("A");

    client->xalHandleCdxDataUpdate(sharedElement<CdxDataObject>(R"({"name":"A"})"));

    EXPECT_EQ("5 CdxMoroClient::xalHandleCdxDataUpdate Now returning", log.outlines().back());
}

TEST_F(CdxMoroClientRegistryTest, ATriggersUpdateIsLoggedWithItsFlag) {
    announce("A");

    client->xalHandleTriggerUpdateElement(false, "A");

    EXPECT_NO_THROW(log.line("Trigger element is updated with status = 0"));
}

TEST_F(CdxMoroClientRegistryTest, DataWithoutANameThrowsAndReachesNoHandler) {
    announce("");
    const auto called = [this](oru::Json::Value document) { calls.push_back(cdxtest::textOf(document)); };
    client->setCdxDataStateSubsRecieveHandler(called, "");
    client->setCdxDataStateUpdateRecieveHandler(called, "");

    EXPECT_THROW(client->xalHandleCdxDataSubscription(element<CdxDataObject>("{}")), std::runtime_error);
    EXPECT_THROW(client->xalHandleCdxDataUpdate(sharedElement<CdxDataObject>("{}")), std::runtime_error);

    EXPECT_THAT(calls, IsEmpty());
    EXPECT_EQ("7 CdxMoroClient::xalHandleCdxDataUpdate: ", log.outlines().back());
}

TEST_F(CdxMoroClientRegistryTest, ResultsWithoutANameAreLookedUpUnderTheEmptyName) {
    announce("");
    client->setCdxConfigCreateRecieveHandler(
        [this](bool, oru::Json::Value document) { calls.push_back(cdxtest::textOf(document)); }, "");

    client->xalHandleConfigCreateElement(false, documentOf(R"({"id":"7"})"));

    EXPECT_THAT(calls, ElementsAre(cdxtest::textOf(documentOf(R"({"id":"7"})"))));
}

TEST_F(CdxMoroClientRegistryTest, AFailedMasterControlCreateHasAnEmptyId) {
    announce("A");
    client->setCdxMasterControlCreateRecieveHandler(
        [this](bool isCreated, std::string id) { calls.push_back((isCreated ? "1 " : "0 ") + id); }, "A");

    client->xalHandleCdxMasterCtlCreateElement(false, documentOf(R"({"name":"A"})"));

    EXPECT_THAT(calls, ElementsAre("0 "));
}

} // namespace
