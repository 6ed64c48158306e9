#ifndef CDXTESTS_EXAMPLES_VEHICLE_H
#define CDXTESTS_EXAMPLES_VEHICLE_H

#include <cstdint>
#include <string>

namespace cdxtest {

/// The vehicle's side: client applications that speak to the service over HTTP. Every operation fails the test when
/// the service does not answer with success.
class Vehicle {
public:
    explicit Vehicle(std::uint16_t port) : m_port(port) {}

    /// What every request presents from now on.
    void setToken(const std::string& token) { m_token = token; }

    void announce(const std::string& client, bool isNewConfigRequested = false) const;
    void postData(const std::string& client, const std::string& eventId, bool isCallbackAbilityRequested = false) const;
    /// Changes the client's one element of the resource.
    void change(const std::string& resource, const std::string& client, const std::string& changes) const;
    /// The resource's elements, as JSON text.
    std::string list(const std::string& resource) const;

private:
    std::string request(const std::string& method, const std::string& target, const std::string& body) const;

    std::uint16_t m_port;
    std::string m_token;
};

} // namespace cdxtest

#endif
