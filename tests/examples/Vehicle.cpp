#include "Vehicle.h"

#include <support/HttpTestClient.h>

#include <gtest/gtest.h>

namespace cdxtest {

void Vehicle::announce(const std::string& client, bool isNewConfigRequested) const {
    request("POST", "cdxClientStates",
            R"({"isShutdownRequested":false,"offeredDataType":["telemetry"],"isNewConfigRequested":)" +
                std::string(isNewConfigRequested ? "true" : "false") + R"(,"canonicalName":")" + client +
                R"(","name":")" + client + R"("})");
}

void Vehicle::postData(const std::string& client, const std::string& eventId, bool isCallbackAbilityRequested) const {
    request("POST", "cdxData",
            R"({"isCallbackAbilityRequested":)" + std::string(isCallbackAbilityRequested ? "true" : "false") +
                R"(,"eventId":")" + eventId + R"(","name":")" + client + R"("})");
}

void Vehicle::change(const std::string& resource, const std::string& client, const std::string& changes) const {
    const std::string elements = request("GET", resource + "?name=" + client, {});
    const std::string mark = R"("id":")";
    const std::size_t begin = elements.find(mark);
    ASSERT_NE(begin, std::string::npos) << elements;
    const std::size_t id = begin + mark.size();
    request("PATCH", resource + "/" + elements.substr(id, elements.find('"', id) - id), changes);
}

std::string Vehicle::list(const std::string& resource) const {
    return request("GET", resource, {});
}

std::string Vehicle::request(const std::string& method, const std::string& target, const std::string& body) const {
    const std::string headers = (body.empty() ? "" : "Content-Type: application/json\r\n") +
                                (m_token.empty() ? "" : "Authorization: Bearer " + m_token + "\r\n");
    const HttpAnswer answer = HttpTestClient(m_port).request(method, "/CarDataExchange/" + target, body, headers);
    EXPECT_EQ(answer.status / 100, 2) << method << " " << target << ": " << answer.status << " " << answer.body;
    return answer.body;
}

} // namespace cdxtest
