#include "AccessFixture.h"
#include "BootstrapFixture.h"
#include "CdxXalInterface.h"

#include <CdxMoroClient.h>
#include <oru/Log.h>
#include <support/PrivateMember.h>

#include <json/json.h>

#include <algorithm>

using Client = zepclient::CdxMoroClient;
using Registry = std::map<std::string, std::shared_ptr<zepclient::MoroClientCallback>>;
CDX_REVEAL(ClientFacade, Client, m_xalInterface, std::shared_ptr<zepclient::CdxXalInterface>);
CDX_REVEAL(ClientCallback, Client, m_xalCallback, std::shared_ptr<zepclient::CdxXalCallback>);
CDX_REVEAL(ClientIsRunning, Client, m_isRunning, bool);
CDX_REVEAL(ClientRegistry, Client, m_clientCallbacks, Registry);
CDX_REVEAL(ClientMsgProcessor, Client, m_msgProcessorCallback, zepclient::cdxEventHandler);
CDX_REVEAL(ClientMsgProcessorDelete, Client, m_msgProcessorDeleteCallback, zepclient::cdxEventDeleteHandler);
CDX_REVEAL(ClientReserved1, Client, m_reservedJson1, oru::Json::Value);
CDX_REVEAL(ClientReserved2, Client, m_reservedJson2, oru::Json::Value);
CDX_REVEAL(ClientMutex, Client, m_mutex, oru::Mutex);
CDX_REVEAL(ClientCondition, Client, m_condition, oru::ThreadCondition);

namespace {

using cdxtest::documentOf;
using testing::ElementsAre;
using testing::IsEmpty;

const char stateA[] = R"({"id":"1","name":"A","canonicalName":"A","uri":"/u","elementId":3,)"
                      R"("isNewConfigRequested":true,"isShutdownRequested":false,"offeredDataType":[]})";

class CdxMoroClientTest : public cdxtest::BootstrapFixture {
protected:
    CdxMoroClientTest() { log.clear(); }
    ~CdxMoroClientTest() override { release(); }

    void release() {
        client.reset();
        Client::ReleaseCdxMoroClientThread();
    }
    void start() {
        client->StartCdxMoroClient(registryDocument, serviceDocument);
        clearRecords();
    }
    void connect() {
        connection = framework().connect();
        clearRecords();
    }

    std::shared_ptr<Client> client = Client::getInstance();
    std::shared_ptr<cdxtest::RecordingConnection> connection;
    std::vector<std::string> calls;
};

// The singleton

TEST_F(CdxMoroClientTest, TheInstanceIsOneUntilItIsReleased) {
    EXPECT_EQ(client, Client::getInstance());
}

TEST_F(CdxMoroClientTest, CreationTracesOnceAndLeavesTheClientRunningAndEmpty) {
    release();
    log.clear();

    client = Client::getInstance();
    Client::getInstance();

    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxMoroClient::CdxMoroClient: "));
    EXPECT_TRUE((*client).*reveal(cdxtest::ClientIsRunning()));
    EXPECT_THAT((*client).*reveal(cdxtest::ClientRegistry()), IsEmpty());
    EXPECT_FALSE((*client).*reveal(cdxtest::ClientFacade()));
    EXPECT_FALSE((*client).*reveal(cdxtest::ClientCallback()));
    EXPECT_FALSE((*client).*reveal(cdxtest::ClientMsgProcessor()));
    EXPECT_FALSE((*client).*reveal(cdxtest::ClientMsgProcessorDelete()));
    EXPECT_TRUE(((*client).*reveal(cdxtest::ClientReserved1())).isNull());
    EXPECT_TRUE(((*client).*reveal(cdxtest::ClientReserved2())).isNull());
}

TEST_F(CdxMoroClientTest, ReleaseTracesAndTheNextInstanceIsNewWithAnEmptyRegistry) {
    client->setMsgProcessorCallback([](oru::Json::Value) {});
    client->xalHandleCdxClientState(zepclient::CdxClientStateObject(cdxtest::jsonObject(stateA)));
    const std::weak_ptr<Client> former = client;
    client.reset();
    log.clear();

    Client::ReleaseCdxMoroClientThread();

    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxMoroClient::ReleaseCdxMoroClientThread: "));
    EXPECT_TRUE(former.expired());
    client = Client::getInstance();
    EXPECT_THAT((*client).*reveal(cdxtest::ClientRegistry()), IsEmpty());
}

TEST_F(CdxMoroClientTest, ACopyKeepsTheReleasedClientAlive) {
    Client::ReleaseCdxMoroClientThread();

    EXPECT_EQ(1, client.use_count());
    EXPECT_NE(client, Client::getInstance());
}

// Start and stop

TEST_F(CdxMoroClientTest, StartAssignsTheCallbackBeforeItStartsTheFacade) {
    client->StartCdxMoroClient(registryDocument, serviceDocument);

    EXPECT_EQ("listen CarDataExchange", journal().back());
    EXPECT_THAT(log.outlinesOf("CdxMoroClient::StartCdxMoroClient"), IsEmpty());
    const auto lines = log.outlines();
    const std::vector<std::string> last(lines.end() - 3, lines.end());
    EXPECT_THAT(last, ElementsAre("7 CdxXalCallback::CdxXalCallback: ", "7 CdxXalInterfaceImpl::AssignCallback: ",
                                  "7 CdxXalAccess::start: "));
}

TEST_F(CdxMoroClientTest, StartBindsEverySlotToTheClient) {
    start();

    const zepclient::CdxXalCallback& callback = *((*client).*reveal(cdxtest::ClientCallback()));
    callback.clientDisconnectCallback("A");
    callback.masterCtlCreateCallback(true, documentOf("{}"));
    callback.masterCtlUpdateCallback(true, "A");
    callback.dataSubscriptionCallback(zepclient::CdxDataObject(cdxtest::jsonObject(R"({"name":"A"})")));
    callback.dataUpdateCallback(
        std::make_shared<const zepclient::CdxDataObject>(cdxtest::jsonObject(R"({"name":"A"})")));
    callback.configCreateCallback(true, documentOf("{}"));
    callback.configUpdateCallback(true, "A");
    callback.triggerCreateCallback(true, documentOf("{}"));
    callback.triggerUpdateCallback(true, "A");
    EXPECT_THROW(callback.clientStateCallback(zepclient::CdxClientStateObject(cdxtest::jsonObject(stateA))),
                 std::bad_function_call);

    std::vector<std::string> traces;
    for (const cdxtest::LogLine& line : log.lines()) {
        if (line.message.empty() && line.operation().find("xalHandle") != std::string::npos)
            traces.push_back(line.operation().substr(line.operation().rfind(':') + 1));
    }
    EXPECT_THAT(traces, ElementsAre("xalHandleCdxClientDisconnectState", "xalHandleCdxMasterCtlCreateElement",
                                    "xalHandleCdxMasterCtlUpdateElement", "xalHandleCdxDataSubscription",
                                    "xalHandleCdxDataUpdate", "xalHandleConfigCreateElement",
                                    "xalHandleConfigUpdateElement", "xalHandleTriggerCreateElement",
                                    "xalHandleTriggerUpdateElement", "xalHandleCdxClientState"));
}

TEST_F(CdxMoroClientTest, ADocumentThatCannotBeReadThrowsAndStartsNothing) {
    registryDocument = documentOf(R"({"mode":{}})");

    EXPECT_THROW(client->StartCdxMoroClient(registryDocument, serviceDocument), Json::Exception);

    EXPECT_FALSE((*client).*reveal(cdxtest::ClientFacade()));
    EXPECT_THAT(journal(), testing::Not(testing::Contains("listen CarDataExchange")));
}

TEST_F(CdxMoroClientTest, ASecondStartReplacesTheFacadeAndEndsItsConnection) {
    start();
    connect();

    client->StartCdxMoroClient(registryDocument, serviceDocument);

    const auto entries = journal();
    const auto closed = std::find(entries.begin(), entries.end(), "close");
    const auto listened = std::find(entries.begin(), entries.end(), "listen CarDataExchange");
    ASSERT_NE(entries.end(), closed);
    ASSERT_NE(entries.end(), listened);
    EXPECT_LT(closed, listened);
    EXPECT_THAT(entries, testing::Contains("release cdxClientStates"));
}

TEST_F(CdxMoroClientTest, WhatTheServiceReportsReachesTheHandlers) {
    client->setMsgProcessorCallback([this](oru::Json::Value document) {
        calls.push_back("new " + document["name"].asString());
        client->setCdxConfigCreateRecieveHandler(
            [this](bool isCreated, oru::Json::Value result) {
                calls.push_back((isCreated ? "created " : "refused ") + cdxtest::textOf(result));
            },
            "A");
    });
    start();
    connect();

    connection->tellChange("cdxClientStates", stateA);
    client->CreateCdxConfigElement(documentOf(R"({"name":"A"})"));
    connection->answer(201, R"({"id":"9","uri":"/9"})");

    EXPECT_THAT(calls, ElementsAre("new A", R"(created {"id":"9","name":"A","uri":"/9"})"));
}

TEST_F(CdxMoroClientTest, ADisconnectReachesTheDeleteHandler) {
    client->setMsgProcessorCallback([](oru::Json::Value) {});
    client->setMsgProcessorDeleteCallback([this](std::string name) { calls.push_back("gone " + name); });
    start();
    connect();
    connection->tellChange("cdxClientStates", stateA);

    framework().disconnected();

    EXPECT_THAT(calls, ElementsAre("gone A"));
}

TEST_F(CdxMoroClientTest, StopStopsTheFacadeAndEmptiesTheLibraryWideHandlersOnly) {
    client->setMsgProcessorCallback([](oru::Json::Value) {});
    client->setMsgProcessorDeleteCallback([](std::string) {});
    start();
    connect();
    connection->tellChange("cdxClientStates", stateA);
    client->setCdxConfigUpdateRecieveHandler([this](bool) { calls.push_back("updated"); }, "A");
    clearRecords();

    client->StopCdxMoroClient();

    EXPECT_EQ("7 CdxMoroClient::StopCdxMoroClient: ", log.outlines().at(0));
    EXPECT_EQ("7 CdxXalInterfaceImpl::Stop: ", log.outlines().at(1));
    EXPECT_FALSE((*client).*reveal(cdxtest::ClientMsgProcessor()));
    EXPECT_FALSE((*client).*reveal(cdxtest::ClientMsgProcessorDelete()));
    EXPECT_TRUE((*client).*reveal(cdxtest::ClientFacade()));
    EXPECT_TRUE((*client).*reveal(cdxtest::ClientCallback()));
    client->xalHandleConfigUpdateElement(true, "A");
    EXPECT_THAT(calls, ElementsAre("updated"));
}

TEST_F(CdxMoroClientTest, StopEmptiesTheDeleteHandlerBeforeTheMessageProcessor) {
    const auto noteEnd = [this](const char* name) {
        return std::shared_ptr<void>(nullptr, [this, name](void*) { calls.push_back(name); });
    };
    client->setMsgProcessorCallback([held = noteEnd("message processor")](oru::Json::Value) {});
    client->setMsgProcessorDeleteCallback([held = noteEnd("delete handler")](std::string) {});
    start();

    client->StopCdxMoroClient();

    EXPECT_THAT(calls, ElementsAre("delete handler", "message processor"));
}

TEST_F(CdxMoroClientTest, AStoppedClientCanBeStartedAgain) {
    start();
    client->StopCdxMoroClient();

    start();
    connect();

    EXPECT_TRUE(((*client).*reveal(cdxtest::ClientFacade()))->SubscribeCdxDataObject());
}

TEST_F(CdxMoroClientTest, TheEndOfTheClientEndsTheConnectionOfAFacadeThatWasNotStopped) {
    start();
    connect();

    release();

    EXPECT_THAT(journal(), ElementsAre("close", "release cdxClientStates"));
}

TEST_F(CdxMoroClientTest, TheClientMayBeReleasedFromInsideAHandler) {
    client->setMsgProcessorCallback([this](oru::Json::Value) {
        Client::ReleaseCdxMoroClientThread();
        calls.push_back("released");
    });
    start();
    connect();
    client.reset();

    connection->tellChange("cdxClientStates", stateA);

    EXPECT_THAT(calls, ElementsAre("released"));
    EXPECT_THAT(journal(), testing::Contains("close"));
}

TEST_F(CdxMoroClientTest, TheClientMayBeReleasedFromInsideTheDeleteHandler) {
    client->setMsgProcessorDeleteCallback([this](const std::string&) {
        Client::ReleaseCdxMoroClientThread();
        calls.push_back("released");
    });
    client->setMsgProcessorCallback([](oru::Json::Value) {});
    start();
    connect();
    connection->tellChange("cdxClientStates", stateA);
    client.reset();

    framework().disconnected();

    EXPECT_THAT(calls, ElementsAre("released"));
    EXPECT_THAT(journal(), testing::Contains("close"));
}

// Forwarding

struct Forward {
    std::string name;
    std::function<void(Client&)> call;
    std::string request;
    bool isTraced;
};

std::ostream& operator<<(std::ostream& stream, const Forward& forward) {
    return stream << forward.name;
}

oru::Json::Value document() {
    return documentOf(R"({"id":"7","name":"A","eventTicket":"e","dataDeliveryResult":0,"backendChannelControl":0})");
}

const Forward forwards[] = {
    {"SubscribeToCdxClientObject", [](Client& c) { c.SubscribeToCdxClientObject("1"); }, "subscribe cdxClientStates/1",
     true},
    {"SubscribeToCdxDataObject", [](Client& c) { c.SubscribeToCdxDataObject(); }, "subscribe cdxData", true},
    {"SubscribeToCdxDataObject", [](Client& c) { c.SubscribeToCdxDataObject("1"); }, "subscribe cdxData/1", true},
    {"CreateCdxMasterControlElement",
     [](Client& c) {
         auto given = document();
         c.CreateCdxMasterControlElement(given);
     },
     "create cdxMasterControls/7", true},
    {"UpdateCdxMasterControlElement",
     [](Client& c) {
         auto given = document();
         c.UpdateCdxMasterControlElement(given);
     },
     "update cdxMasterControls/7", true},
    {"CreateCdxConfigElement", [](Client& c) { c.CreateCdxConfigElement(document()); }, "create cdxConfig/7", false},
    {"UpdateCdxConfigElement", [](Client& c) { c.UpdateCdxConfigElement(document()); }, "update cdxConfig/7", false},
    {"DeleteCdxConfigElement", [](Client& c) { c.DeleteCdxConfigElement(document()); }, "remove cdxConfig/7", false},
    {"CreateCdxTriggerElement", [](Client& c) { c.CreateCdxTriggerElement(document()); }, "create cdxTrigger/7", false},
    {"UpdateCdxTriggerElement", [](Client& c) { c.UpdateCdxTriggerElement(document()); }, "update cdxTrigger/7", false},
};

class ForwardTest : public CdxMoroClientTest, public testing::WithParamInterface<Forward> {};

INSTANTIATE_TEST_SUITE_P(All, ForwardTest, testing::ValuesIn(forwards),
                         [](const auto& forward) { return forward.param.name + (forward.index == 2 ? "ById" : ""); });

TEST_P(ForwardTest, ReachesTheService) {
    start();
    connect();

    GetParam().call(*client);

    EXPECT_THAT(journal(), ElementsAre(GetParam().request));
    const std::vector<std::string> trace{"7 CdxMoroClient::" + GetParam().name + ": "};
    EXPECT_EQ(GetParam().isTraced ? trace : std::vector<std::string>{},
              log.outlinesOf("CdxMoroClient::" + GetParam().name));
}

TEST_F(CdxMoroClientTest, AMasterControlsDocumentStaysAsTheCallerGaveIt) {
    start();
    connect();
    auto given = documentOf(R"({"eventTicket":"e"})");
    log.setLevel(5);

    client->CreateCdxMasterControlElement(given);
    client->UpdateCdxMasterControlElement(given);

    EXPECT_EQ(documentOf(R"({"eventTicket":"e"})"), given);
}

TEST_F(CdxMoroClientTest, ADeleteWithoutAServiceTellsTheClientsConfigurationCreateHandlerOfAFailure) {
    client->setMsgProcessorCallback([](oru::Json::Value) {});
    client->xalHandleCdxClientState(zepclient::CdxClientStateObject(cdxtest::jsonObject(stateA)));
    client->setCdxConfigCreateRecieveHandler(
        [this](bool isCreated, oru::Json::Value result) {
            calls.push_back((isCreated ? "1 " : "0 ") + cdxtest::textOf(result));
        },
        "A");
    start();

    client->DeleteCdxConfigElement(documentOf(R"({"id":"7","name":"A"})"));

    EXPECT_THAT(calls, ElementsAre(R"(0 {"name":"A"})"));
}

// Layout

TEST_F(CdxMoroClientTest, MembersAreInTheirOrder) {
    const Client& object = *client;
    const std::vector<const void*> places{
        &(object.*reveal(cdxtest::ClientFacade())),       &(object.*reveal(cdxtest::ClientCallback())),
        &(object.*reveal(cdxtest::ClientIsRunning())),    &(object.*reveal(cdxtest::ClientRegistry())),
        &(object.*reveal(cdxtest::ClientMsgProcessor())), &(object.*reveal(cdxtest::ClientMsgProcessorDelete())),
        &(object.*reveal(cdxtest::ClientReserved1())),    &(object.*reveal(cdxtest::ClientReserved2())),
        &(object.*reveal(cdxtest::ClientMutex())),        &(object.*reveal(cdxtest::ClientCondition()))};

    EXPECT_TRUE(std::is_sorted(places.begin(), places.end()));
}

} // namespace
