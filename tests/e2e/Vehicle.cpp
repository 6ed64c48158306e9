#include "Vehicle.h"

#include <support/Tcp.h>

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

namespace cdxtest {

namespace {

std::string compact(const oru::Json::Value& document) {
    oru::Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return oru::Json::writeString(builder, document);
}

} // namespace

oru::Json::Value json(const std::string& text) {
    oru::Json::Value document;
    std::string errors;
    const std::unique_ptr<oru::Json::CharReader> reader(oru::Json::CharReaderBuilder().newCharReader());
    if (!reader->parse(text.data(), text.data() + text.size(), &document, &errors))
        throw std::runtime_error("no JSON: " + errors + " in " + text);
    return document;
}

oru::Json::Value Vehicle::request(const std::string& method, const std::string& target, const std::string& body) const {
    TcpPeer connection = TcpPeer::connect(m_port);
    connection.send(
        method + " /CarDataExchange/" + target +
        " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\nContent-Type: application/json\r\nContent-Length: " +
        std::to_string(body.size()) + "\r\n\r\n" + body);
    connection.readToEnd();
    const std::string& answer = connection.received();
    if (answer.compare(0, 10, "HTTP/1.1 2") != 0) {
        ADD_FAILURE() << method << ' ' << target << ' ' << body << "\nwas answered: " << answer;
        return {};
    }
    const std::string content = answer.substr(answer.find("\r\n\r\n") + 4);
    return content.empty() ? oru::Json::Value() : json(content);
}

oru::Json::Value Vehicle::post(const std::string& resource, const oru::Json::Value& element) const {
    return request("POST", resource, compact(element));
}

oru::Json::Value Vehicle::patch(const std::string& resource, const std::string& id,
                                const oru::Json::Value& changes) const {
    return request("PATCH", resource + "/" + id, compact(changes));
}

void Vehicle::remove(const std::string& resource, const std::string& id) const {
    request("DELETE", resource + "/" + id, {});
}

oru::Json::Value Vehicle::list(const std::string& resource) const {
    return request("GET", resource, {});
}

oru::Json::Value Vehicle::announce(const std::string& client) const {
    oru::Json::Value state = json(R"({"isNewConfigRequested":false,"isShutdownRequested":false,
                                      "offeredDataType":["telemetry","diagnosis"]})");
    state["name"] = client;
    state["canonicalName"] = client;
    return post("cdxClientStates", state);
}

oru::Json::Value Vehicle::postData(const std::string& client, const std::string& eventId) const {
    oru::Json::Value message = json(R"({"messageId":"m","version":"1.0","deliveryMode":"atLeastOnce","timezone":60,
                                        "cdxClientDataReport":["a","b"],"isMixinOfVinRequested":true})");
    message["name"] = client;
    message["eventId"] = eventId;
    return post("cdxData", message);
}

} // namespace cdxtest
