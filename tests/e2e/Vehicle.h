#ifndef CDXTESTS_E2E_VEHICLE_H
#define CDXTESTS_E2E_VEHICLE_H

#include <oru/Json.h>

#include <cstdint>
#include <string>

namespace cdxtest {

/// The service's other users in a test: whoever posts, changes and reads elements over HTTP. Every operation fails the
/// test when the service does not answer as a write or read that succeeds.
class Vehicle {
public:
    explicit Vehicle(std::uint16_t port) : m_port(port) {}

    /// Gives the new element, or the one that was replaced.
    oru::Json::Value post(const std::string& resource, const oru::Json::Value& element) const;
    oru::Json::Value patch(const std::string& resource, const std::string& id, const oru::Json::Value& changes) const;
    void remove(const std::string& resource, const std::string& id) const;
    oru::Json::Value list(const std::string& resource) const;

    /// A complete client state of `client`.
    oru::Json::Value announce(const std::string& client) const;
    /// A complete data message of `client`, whose "eventId" is `eventId`.
    oru::Json::Value postData(const std::string& client, const std::string& eventId) const;

private:
    oru::Json::Value request(const std::string& method, const std::string& target, const std::string& body) const;

    std::uint16_t m_port;
};

oru::Json::Value json(const std::string& text);

} // namespace cdxtest

#endif
