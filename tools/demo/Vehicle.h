#ifndef CDXTOOLS_DEMO_VEHICLE_H
#define CDXTOOLS_DEMO_VEHICLE_H

#include <oru/Json.h>

#include <cstdint>
#include <string>
#include <vector>

namespace cdxtools {

class Exchanges;
class Timeline;

/// The vehicle's side of the demo: client applications that speak to the service over HTTP, as any program could.
/// Every operation throws std::runtime_error when the service refuses it, with what it said.
class Vehicle {
public:
    Vehicle(Timeline& timeline, Exchanges& exchanges, std::vector<std::string> clients);

    /// Where the service is from now on.
    void setServicePort(std::uint16_t port) { m_port = port; }

    const std::vector<std::string>& clients() const { return m_clients; }

    void announce(const std::string& client);
    void requestNewConfig(const std::string& client);
    void postData(const std::string& client, int number);
    /// Looks for the client's own element in `resource`, as a vehicle application does to read its configuration.
    void lookUp(const std::string& client, const std::string& resource);
    /// The service tells a client what became of its message.
    void settled(const std::string& client, const std::string& eventId, const std::string& result);

private:
    std::string request(const std::string& method, const std::string& target, const std::string& body, int expected);
    oru::Json::Value elements(const std::string& client, const std::string& resource);

    Timeline& m_timeline;
    Exchanges& m_exchanges;
    const std::vector<std::string> m_clients;
    std::uint16_t m_port = 0;
};

/// The event id of a client's n-th data message.
std::string eventIdOf(const std::string& client, int number);

} // namespace cdxtools

#endif
