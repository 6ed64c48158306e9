#include "Application.h"

#include "Documents.h"
#include "Exchanges.h"
#include "Timeline.h"

#include <chrono>
#include <utility>

namespace cdxtools {

namespace {

const char* const applicationName = "application";

oru::Json::Int64 millisecondsSince1970(std::chrono::hours later) {
    const auto then = std::chrono::system_clock::now().time_since_epoch() + later;
    return std::chrono::duration_cast<std::chrono::milliseconds>(then).count();
}

oru::Json::Value configRecord(const std::string& client) {
    oru::Json::Value record;
    record["name"] = client;
    record["recordId"] = client + "-record";
    record["recordBody"] = "samplingPeriod=1000";
    record["spApplication"] = "demo";
    record["receiveTime"] = millisecondsSince1970(std::chrono::hours(0));
    record["expiryTime"] = millisecondsSince1970(std::chrono::hours(24));
    return record;
}

oru::Json::Value triggerMessage(const std::string& client) {
    oru::Json::Value trigger;
    trigger["name"] = client;
    trigger["messageId"] = client + "-trigger";
    trigger["messageType"] = "upload";
    trigger["messageContent"] = "now";
    trigger["isTechnicalReceiptRequested"] = true;
    return trigger;
}

oru::Json::Value masterControl(const std::string& client, const std::string& eventTicket) {
    oru::Json::Value control;
    control["name"] = client;
    control["eventTicket"] = eventTicket;
    control["dataDeliveryResult"] = 0;
    control["backendChannelControl"] = 0;
    control["permittedDataType"].append("telemetry");
    return control;
}

} // namespace

Application::Application(Timeline& timeline, Exchanges& exchanges)
    : m_timeline(timeline), m_exchanges(exchanges), m_client(zepclient::CdxMoroClient::getInstance()) {}

Application::~Application() = default;

void Application::start(oru::Json::Value registryDocument, oru::Json::Value serviceDocument) {
    m_client->setMsgProcessorCallback([this](oru::Json::Value state) { clientAnnounced(state); });
    m_client->setMsgProcessorDeleteCallback([this](std::string client) {
        m_timeline.event(applicationName, "lost the service, last heard of " + client);
        m_subscribedToData = false;
        m_exchanges.arrived("application is told that the service is gone");
    });
    m_client->StartCdxMoroClient(registryDocument, serviceDocument);
    m_client->start();
}

void Application::stop() {
    m_client->StopCdxMoroClient();
    m_client->stopMoroClient();
    m_client->join();
    m_client.reset();
    zepclient::CdxMoroClient::ReleaseCdxMoroClientThread();
    m_timeline.event(applicationName, "stopped");
}

void Application::clientAnnounced(const oru::Json::Value& state) {
    const std::string client = state["name"].asString();
    registerHandlers(client);
    if (!m_subscribedToData.exchange(true))
        m_client->SubscribeToCdxDataObject();
    received(client, "announced", state);
}

void Application::registerHandlers(const std::string& client) {
    using oru::Json::Value;
    m_client->setCdxClientStateRecieveHandler(
        [this, client](Value state) {
            if (!m_subscribedToData.exchange(true)) {
                m_client->SubscribeToCdxDataObject();
            }
            received(client, state["isNewConfigRequested"].asBool() ? "asks for a new configuration" : "state", state);
        },
        client);
    m_client->setCdxDataStateSubsRecieveHandler(
        [this, client](Value message) {
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                m_lastMessageId = message["id"].asString();
            }
            received(client, "data " + message["eventId"].asString(), message);
        },
        client);
    m_client->setCdxDataStateUpdateRecieveHandler(
        [this](Value message) { received(message["name"].asString(), "followed message", message); }, client);
    m_client->setCdxConfigCreateRecieveHandler(
        [this, client](bool success, Value result) { created(client, "cdxConfig", success, result["id"].asString()); },
        client);
    m_client->setCdxConfigUpdateRecieveHandler([this, client](bool success) { updated(client, "cdxConfig", success); },
                                               client);
    m_client->setCdxTriggerCreateRecieveHandler(
        [this, client](bool success, Value result) { created(client, "cdxTrigger", success, result["id"].asString()); },
        client);
    m_client->setCdxTriggerUpdateRecieveHandler(
        [this, client](bool success) { updated(client, "cdxTrigger", success); }, client);
    m_client->setCdxMasterControlCreateRecieveHandler(
        [this, client](bool success, std::string id) { created(client, "cdxMasterControls", success, id); }, client);
    m_client->setCdxMasterControlUpdateHandler(
        [this, client](bool success) { updated(client, "cdxMasterControls", success); }, client);
}

void Application::received(const std::string& client, const std::string& what, const oru::Json::Value& document) {
    m_timeline.event(applicationName, client + ": " + what, compact(document));
    m_exchanges.arrived("application receives " + client + ": " + what);
}

void Application::created(const std::string& client, const std::string& kind, bool success, const std::string& id) {
    m_timeline.event(applicationName, client + ": " + kind + (success ? " created" : " not created"), id);
    if (!success)
        return;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_ids[client + "/" + kind] = id;
    }
    m_exchanges.arrived("application creates " + kind + " of " + client);
}

void Application::updated(const std::string& client, const std::string& kind, bool success) {
    m_timeline.event(applicationName, client + ": " + kind + (success ? " updated" : " not updated"));
    if (success)
        m_exchanges.arrived("application updates " + kind + " of " + client);
}

std::string Application::idOf(const std::string& client, const std::string& kind) {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_ids[client + "/" + kind];
}

void Application::createElements(const std::string& client) {
    oru::Json::Value control = masterControl(client, "none");
    m_client->CreateCdxConfigElement(configRecord(client));
    m_client->CreateCdxTriggerElement(triggerMessage(client));
    m_client->CreateCdxMasterControlElement(control);
}

void Application::updateElements(const std::string& client) {
    oru::Json::Value record = configRecord(client);
    record["id"] = idOf(client, "cdxConfig");
    record["recordBody"] = "samplingPeriod=200";
    m_client->UpdateCdxConfigElement(record);

    oru::Json::Value trigger = triggerMessage(client);
    trigger["id"] = idOf(client, "cdxTrigger");
    trigger["messageContent"] = "tonight";
    m_client->UpdateCdxTriggerElement(trigger);
}

void Application::settle(const std::string& client, const std::string& eventId) {
    oru::Json::Value control = masterControl(client, eventId);
    control["id"] = idOf(client, "cdxMasterControls");
    m_timeline.event(applicationName, client + ": confirms " + eventId, compact(control));
    m_client->UpdateCdxMasterControlElement(control);
}

void Application::followLastMessage() {
    std::string id;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        id = m_lastMessageId;
    }
    m_client->SubscribeToCdxDataObject(id);
}

} // namespace cdxtools
