#include "Vehicle.h"

#include <support/HttpTestClient.h>

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
    const HttpAnswer answer = HttpTestClient(m_port).request(method, "/CarDataExchange/" + target, body,
                                                             "Content-Type: application/json\r\n");
    EXPECT_EQ(answer.status / 100, 2) << method << ' ' << target << ' ' << body << "\nwas answered: " << answer.head
                                      << answer.body;
    return answer.status / 100 != 2 || answer.body.empty() ? oru::Json::Value() : json(answer.body);
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
