#include "EndToEnd.h"

#include <support/ComesTrue.h>
#include <support/Event.h>
#include <support/ProcessState.h>

#include <atomic>
#include <functional>
#include <ostream>

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

using Client = zepclient::CdxMoroClient;
using Act = std::function<void()>;

/// A kind of handler.
struct HandlerKind {
    const char* name;
    /// Before the start: lets `act` be what the handler does, the library's own or that of "navigation".
    std::function<void(Application&, const Act&)> take;
    /// Once "navigation" is announced: makes the client call the handler.
    std::function<void(Client&, cdxservice::Server&)> cause;
};

std::ostream& operator<<(std::ostream& out, const HandlerKind& kind) {
    return out << kind.name;
}

template <class Handler>
auto handlerOfItsClient(void (Client::*set)(Handler, std::string)) {
    return [set](Application& application, const Act& act) {
        application.onAnnounced = [&application, set, act](const Value&) {
            (application.client().*set)([act](const auto&...) { act(); }, "navigation");
        };
    };
}

/// What the client itself writes: a document of "navigation", of an element that does not exist.
template <class Document>
auto write(void (Client::*operation)(Document)) {
    return [operation](Client& client, cdxservice::Server&) {
        Value document = json(R"({"name":"navigation","id":"nobody"})");
        (client.*operation)(document);
    };
}

void patchState(Client&, cdxservice::Server& service) {
    const Vehicle vehicle(service.port());
    vehicle.patch("cdxClientStates", vehicle.list("cdxClientStates")[0]["id"].asString(),
                  json(R"({"isShutdownRequested":true})"));
}

void followState(Client& client, cdxservice::Server& service) {
    client.SubscribeToCdxClientObject(Vehicle(service.port()).list("cdxClientStates")[0]["id"].asString());
}

void postData(Client& client, cdxservice::Server& service) {
    client.SubscribeToCdxDataObject();
    Vehicle(service.port()).postData("navigation", "event-1");
}

void followData(Client& client, cdxservice::Server& service) {
    client.SubscribeToCdxDataObject(Vehicle(service.port()).postData("navigation", "event-1")["id"].asString());
}

/// A client that is stopped inside a handler.
class StopInsideAHandler : public EndToEnd, public testing::WithParamInterface<HandlerKind> {
protected:
    ~StopInsideAHandler() override { m_application.stop(); }

    /// What the handler does: it asks for a write, whose result nobody may be told any more, and stops.
    void act() {
        if (m_calls++ != 0)
            return;
        client().CreateCdxTriggerElement(json(R"({"name":"navigation"})"));
        m_application.stop();
        m_stopped.set();
    }

    Event m_stopped;
    std::atomic<int> m_calls{0};
};

TEST_P(StopInsideAHandler, ReturnsAndNothingIsToldUntilTheNextStart) {
    GetParam().take(m_application, [this] { act(); });
    startWith("navigation");
    GetParam().cause(client(), m_service);
    ASSERT_TRUE(m_stopped.await());
    EXPECT_TRUE(comesTrue([] { return !hasThread("cdxXalExecutor"); })) << "on which all handlers run";
    EXPECT_EQ(m_calls, 1);
    EXPECT_EQ(timesTold("trigger created", "navigation"), 0U);
    m_service.stop();
    m_service.start();
    vehicle().announce("charging");
    startApplication();
    told("announced", "charging");
}

INSTANTIATE_TEST_SUITE_P(
    OfEveryKind, StopInsideAHandler,
    testing::Values(
        HandlerKind{
            "Announced",
            [](Application& application, const Act& act) { application.onAnnounced = [act](const Value&) { act(); }; },
            [](Client&, cdxservice::Server&) {}},
        HandlerKind{
            "Gone",
            [](Application& application, const Act& act) { application.onGone = [act](const std::string&) { act(); }; },
            [](Client&, cdxservice::Server& service) { service.stop(); }},
        HandlerKind{"State", handlerOfItsClient(&Client::setCdxClientStateRecieveHandler), patchState},
        HandlerKind{"FollowedState", handlerOfItsClient(&Client::setCdxClientStateRecieveHandler), followState},
        HandlerKind{"Data", handlerOfItsClient(&Client::setCdxDataStateSubsRecieveHandler), postData},
        HandlerKind{"FollowedData", handlerOfItsClient(&Client::setCdxDataStateUpdateRecieveHandler), followData},
        HandlerKind{"ControlCreated", handlerOfItsClient(&Client::setCdxMasterControlCreateRecieveHandler),
                    write(&Client::CreateCdxMasterControlElement)},
        HandlerKind{"ControlUpdated", handlerOfItsClient(&Client::setCdxMasterControlUpdateHandler),
                    write(&Client::UpdateCdxMasterControlElement)},
        HandlerKind{"ConfigCreated", handlerOfItsClient(&Client::setCdxConfigCreateRecieveHandler),
                    write(&Client::CreateCdxConfigElement)},
        HandlerKind{"ConfigUpdated", handlerOfItsClient(&Client::setCdxConfigUpdateRecieveHandler),
                    write(&Client::UpdateCdxConfigElement)},
        HandlerKind{"TriggerCreated", handlerOfItsClient(&Client::setCdxTriggerCreateRecieveHandler),
                    write(&Client::CreateCdxTriggerElement)},
        HandlerKind{"TriggerUpdated", handlerOfItsClient(&Client::setCdxTriggerUpdateRecieveHandler),
                    write(&Client::UpdateCdxTriggerElement)}),
    [](const auto& tested) { return tested.param.name; });

} // namespace
} // namespace cdxtest
