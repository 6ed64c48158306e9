#ifndef CDXTESTS_SERVICE_SERVICEFIXTURE_H
#define CDXTESTS_SERVICE_SERVICEFIXTURE_H

#include "ManualClock.h"

#include <cdxservice/Server.h>
#include <support/HttpTestClient.h>
#include <support/WebSocketPeer.h>

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace cdxservice {

constexpr const char* dataPath = "/CarDataExchange/cdxData";
constexpr const char* configPath = "/CarDataExchange/cdxConfig";
constexpr const char* statePath = "/CarDataExchange/cdxClientStates";
constexpr const char* controlPath = "/CarDataExchange/cdxMasterControls";
constexpr const char* jsonType = "Content-Type: application/json\r\n";

inline boost::json::object object(std::string_view text) {
    return boost::json::parse(boost::json::string_view(text.data(), text.size())).as_object();
}

inline std::string text(const boost::json::value& value) {
    const auto& string = value.as_string();
    return std::string(string.data(), string.size());
}

/// A running service with clocks in the test's hand, and a client of it.
class ServiceFixture : public ::testing::Test {
protected:
    ServiceFixture() : clock(std::make_shared<ManualClock>()) { options.clock = clock; }

    void SetUp() override { startService(); }

    /// With the options as they are now.
    void startService() {
        server = std::make_unique<Server>(options);
        server->start();
        client = std::make_unique<cdxtest::HttpTestClient>(server->port());
    }

    /// The "Host" line that every request needs.
    std::string host() const { return "Host: 127.0.0.1:" + std::to_string(server->port()) + "\r\n"; }

    /// The id of a new element.
    std::string make(std::string_view path, std::string_view json) {
        const auto answer = client->post(path, json);
        EXPECT_EQ(answer.status, 201) << answer.body;
        return answer.status == 201 ? text(object(answer.body).at("id")) : std::string();
    }

    cdxtest::WebSocketPeer channel() { return cdxtest::WebSocketPeer::connect(server->port()); }

    ServerOptions options;
    std::shared_ptr<ManualClock> clock;
    std::unique_ptr<Server> server;
    std::unique_ptr<cdxtest::HttpTestClient> client;
};

/// The next message of a channel; an empty object when there is none.
inline boost::json::object message(cdxtest::WebSocketPeer& peer) {
    const auto payload = peer.readText();
    return payload ? object(*payload) : boost::json::object();
}

} // namespace cdxservice

#endif
