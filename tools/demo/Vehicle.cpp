#include "Vehicle.h"

#include "Documents.h"
#include "Exchanges.h"
#include "HttpClient.h"
#include "Timeline.h"

#include <chrono>
#include <stdexcept>
#include <utility>

namespace cdxtools {

namespace {

oru::Json::Int64 millisecondsSince1970() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

} // namespace

std::string eventIdOf(const std::string& client, int number) {
    return client + "-event-" + std::to_string(number);
}

Vehicle::Vehicle(Timeline& timeline, Exchanges& exchanges, std::vector<std::string> clients)
    : m_timeline(timeline), m_exchanges(exchanges), m_clients(std::move(clients)) {}

std::string Vehicle::request(const std::string& method, const std::string& target, const std::string& body,
                             int expected) {
    const HttpAnswer answer = httpRequest(m_port, method, "/CarDataExchange/" + target, body);
    if (answer.status != expected)
        throw std::runtime_error(method + " " + target + ": expected " + std::to_string(expected) +
                                 ", the service answered " + std::to_string(answer.status) + " " + answer.body);
    return answer.body;
}

oru::Json::Value Vehicle::elements(const std::string& client, const std::string& resource) {
    const std::string target = resource + "?name=" + client;
    return parseDocument(request("GET", target, {}, 200), target);
}

void Vehicle::announce(const std::string& client) {
    oru::Json::Value state;
    state["name"] = client;
    state["canonicalName"] = client;
    state["isNewConfigRequested"] = false;
    state["isShutdownRequested"] = false;
    state["offeredDataType"].append("telemetry");
    state["offeredDataType"].append("diagnosis");
    m_timeline.event(client, "announces itself", compact(state));
    request("POST", "cdxClientStates", compact(state), 201);
}

void Vehicle::requestNewConfig(const std::string& client) {
    const oru::Json::Value states = elements(client, "cdxClientStates");
    m_timeline.event(client, "asks for a new configuration", R"({"isNewConfigRequested":true})");
    request("PATCH", "cdxClientStates/" + states[0]["id"].asString(), R"({"isNewConfigRequested":true})", 200);
}

void Vehicle::postData(const std::string& client, int number) {
    oru::Json::Value message;
    message["name"] = client;
    message["eventId"] = eventIdOf(client, number);
    message["messageId"] = client + "-message-" + std::to_string(number);
    message["version"] = "1.0";
    message["deliveryMode"] = "atLeastOnce";
    message["timestamp"] = millisecondsSince1970();
    message["timeToLive"] = 600;
    message["cdxClientDataReport"].append("odometer=48213;");
    message["cdxClientDataReport"].append("speed=" + std::to_string(40 + number));
    m_timeline.event(client, "posts data message " + std::to_string(number), compact(message));
    request("POST", "cdxData", compact(message), 201);
}

void Vehicle::lookUp(const std::string& client, const std::string& resource) {
    const oru::Json::Value found = elements(client, resource);
    if (found.empty())
        return;
    m_timeline.event(client, "finds its element in " + resource, compact(found[0]));
    m_exchanges.arrived(client + " finds its element in " + resource);
}

void Vehicle::settled(const std::string& client, const std::string& eventId, const std::string& result) {
    m_timeline.event(client, "is told what became of its message", eventId + ": " + result);
    m_exchanges.arrived(client + " is told what became of its message");
}

} // namespace cdxtools
