#ifndef CDXTOOLS_DEMO_HTTPCLIENT_H
#define CDXTOOLS_DEMO_HTTPCLIENT_H

#include <cstdint>
#include <string>

namespace cdxtools {

struct HttpAnswer {
    int status = 0;
    std::string body;
};

/// One HTTP request to a service on loopback over a connection of its own, answered before it returns: enough for a
/// simulated application. Throws std::runtime_error, naming the request and the reason, when no whole answer comes
/// within five seconds.
HttpAnswer httpRequest(std::uint16_t port, const std::string& method, const std::string& target,
                       const std::string& jsonBody = {});

} // namespace cdxtools

#endif
