// A gateway between the vehicle's clients and a backend, which standard error plays: data messages go out and are
// confirmed, configuration records and trigger messages come in. Takes the registry and the service document's paths.

#include "Plumbing.h"

#include <CdxMoroClient.h>

#include <map>
#include <string>
#include <vector>

using oru::Json::Value;
using plumbing::print;
using Client = zepclient::CdxMoroClient;

class Gateway {
public:
    Gateway(Value registry, Value service) {
        m_client->setMsgProcessorCallback([this](Value state) { announced(state); });
        m_client->setMsgProcessorDeleteCallback([this](std::string) { m_subscribedToData = false; });
        m_client->StartCdxMoroClient(registry, service);
    }

    ~Gateway() {
        m_jobs.finish(); // first, since jobs use the client
        m_client->StopCdxMoroClient();
        m_client.reset();
        Client::ReleaseCdxMoroClientThread();
    }

private:
    // Handlers, on the framework's thread: they register and subscribe, and leave all else to the jobs.

    void announced(const Value& state) {
        const std::string name = state["name"].asString();
        const auto created = [=](const std::string& element) {
            return [=](bool success, Value result) {
                print(name + element + (success ? ": created" : ": refused"));
                m_jobs.post([=] { m_ids[name + element] = result["id"].asString(); });
            };
        };
        const auto updated = [=](const std::string& element) {
            return [=](bool success) { print(name + element + (success ? ": updated" : ": refused")); };
        };
        m_client->setCdxClientStateRecieveHandler([=](Value changed) { toldState(changed); }, name);
        m_client->setCdxDataStateSubsRecieveHandler(
            [=](Value message) { m_jobs.post([=] { forward(name, message); }); }, name);
        m_client->setCdxMasterControlCreateRecieveHandler(
            [=](bool, std::string id) { m_jobs.post([=] { confirm(name, id); }); }, name);
        m_client->setCdxMasterControlUpdateHandler(updated("/control"), name);
        m_client->setCdxConfigCreateRecieveHandler(created("/record"), name);
        m_client->setCdxConfigUpdateRecieveHandler(updated("/record"), name);
        m_client->setCdxTriggerCreateRecieveHandler(created("/trigger"), name);
        m_client->setCdxTriggerUpdateRecieveHandler(updated("/trigger"), name);
        toldState(state);
    }

    void toldState(const Value& state) {
        if (!m_subscribedToData) { // not yet, or not since the service was lost
            m_subscribedToData = true;
            m_client->SubscribeToCdxDataObject();
        }
        m_jobs.post([=] { serve(state["name"].asString(), state["isNewConfigRequested"].asBool()); });
    }

    // Jobs, on the gateway's own thread: nothing else uses m_ids and m_unconfirmed.

    void serve(const std::string& name, bool isRecordWanted) {
        Value element;
        element["name"] = name;
        m_client->CreateCdxMasterControlElement(element); // there is one for each client: a second create changes it
        element["recordBody"] = "samplingPeriod=1000";
        if (isRecordWanted)
            put(element, m_ids[name + "/record"], &Client::CreateCdxConfigElement, &Client::UpdateCdxConfigElement);
    }

    void forward(const std::string& name, const Value& message) {
        print(name + ": data " + plumbing::compact(message));
        m_unconfirmed[name].push_back(message["eventId"].asString());
        confirm(name, m_ids[name + "/control"]);
        Value element;
        element["name"] = name;
        element["messageType"] = "upload";
        if (message["isCallbackAbilityRequested"].asBool())
            put(element, m_ids[name + "/trigger"], &Client::CreateCdxTriggerElement, &Client::UpdateCdxTriggerElement);
    }

    // Tells the service which messages the backend has; they wait until the control's id is known.
    void confirm(const std::string& name, const std::string& controlId) {
        m_ids[name + "/control"] = controlId;
        if (controlId.empty())
            return;
        Value control;
        control["name"] = name;
        control["id"] = controlId;
        control["dataDeliveryResult"] = 0;    // delivered
        control["backendChannelControl"] = 0; // talk on
        for (const std::string& eventId : std::exchange(m_unconfirmed[name], {})) {
            control["eventTicket"] = eventId;
            m_client->UpdateCdxMasterControlElement(control);
        }
    }

    // Creates an element, or updates the one that has the id.
    void put(Value element, const std::string& id, void (Client::*create)(Value), void (Client::*update)(Value)) {
        element["id"] = id;
        ((*m_client).*(id.empty() ? create : update))(element);
    }

    std::shared_ptr<Client> m_client = Client::getInstance();
    plumbing::Jobs m_jobs;
    bool m_subscribedToData = false;
    std::map<std::string, std::string> m_ids;
    std::map<std::string, std::vector<std::string>> m_unconfirmed;
};

int main(int argc, char** argv) {
    return plumbing::runUntilSignalled<Gateway>(argc, argv);
}
