#ifndef XALUTIL_HTTPCONNECTION_H
#define XALUTIL_HTTPCONNECTION_H

#include "Interruption.h"

#include <xalutil/HttpSession.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace xalutil {

/// Whom a session speaks with.
struct HttpServer {
    bool isSecure = false;
    std::string host; ///< a name or an address, without brackets
    std::uint16_t port = 0;

    /// Throws std::invalid_argument, naming the URI.
    static HttpServer fromUri(const std::string& uri);
    /// As the "Host" header has it: the port only where it is not the scheme's own.
    std::string authority() const;
};

/// The server ended the connection, or the network did.
class HttpConnectionLost : public HttpError {
public:
    using HttpError::HttpError;
};

/// How certificates are judged; shared by a session's connections. Empty for plain HTTP.
class HttpTrust;
std::shared_ptr<HttpTrust> makeTrust(const HttpServer& server);

/// One connection, kept by a Poco session over a socket that never blocks. All waiting is done here, so that the
/// deadline is one for the whole exchange and a cancel ends it at once.
class HttpConnection {
public:
    /// Resolves, connects and, for HTTPS, shakes hands. Throws HttpError.
    HttpConnection(const HttpServer& server, const std::shared_ptr<HttpTrust>& trust, const Interruption& interruption,
                   Interruption::Deadline deadline);
    ~HttpConnection();
    HttpConnection(const HttpConnection&) = delete;
    HttpConnection& operator=(const HttpConnection&) = delete;

    /// Takes what there is without waiting: the number of bytes, 0 at the connection's end, nothing if there is nothing
    /// yet. Throws HttpConnectionLost.
    std::optional<std::size_t> receive(char* buffer, std::size_t room);
    /// Gives away as much as goes without waiting. Throws HttpConnectionLost.
    std::size_t send(std::string_view bytes);
    /// Waits until the call that gave nothing may give something, or, when asked so, there is something to receive.
    void await(bool alsoToReceive, const Interruption& interruption, Interruption::Deadline deadline) const;

private:
    struct Session;
    std::unique_ptr<Session> m_session;
};

} // namespace xalutil

#endif
