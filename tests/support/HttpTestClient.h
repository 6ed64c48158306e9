#ifndef CDXTESTS_SUPPORT_HTTPTESTCLIENT_H
#define CDXTESTS_SUPPORT_HTTPTESTCLIENT_H

#include <support/Tcp.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace cdxtest {

/// An answer as it came over the wire.
struct HttpAnswer {
    int status = 0;   ///< 0: the connection ended, or the deadline came, before a whole answer did.
    std::string head; ///< Status line and header fields, up to the empty line.
    std::string body;

    /// A header field's value; empty where there is none.
    std::string header(const std::string& name) const;
};

/// A blocking HTTP client that sends what it is told to, right or wrong, to a port of loopback.
///
/// Belongs to one thread at a time. Throws std::system_error when it cannot connect.
class HttpTestClient {
public:
    explicit HttpTestClient(std::uint16_t port) : m_port(port) {}

    /// Sends a request and reads its answer. "Host", and the length of a body, are added; `headers` are whole lines
    /// with their ends. Keeps the connection while the service does.
    HttpAnswer request(std::string_view method, std::string_view target, std::string_view body = {},
                       std::string_view headers = {});
    /// With a body of "application/json".
    HttpAnswer post(std::string_view target, std::string_view json);
    HttpAnswer patch(std::string_view target, std::string_view json);
    HttpAnswer get(std::string_view target, std::string_view headers = {}) {
        return request("GET", target, {}, headers);
    }

    /// Sends bytes as they stand. False when the other side is gone.
    bool send(std::string_view bytes);
    /// The next answer. `toHead`: to a HEAD, whose answer has no body.
    HttpAnswer read(bool toHead = false, std::chrono::milliseconds within = patience);
    /// Sends bytes as they stand on a new connection and reads one answer.
    HttpAnswer exchange(std::string_view bytes);
    /// Whether the other side ends the connection by then; what it still sends is read.
    bool isEnded(std::chrono::milliseconds within = patience);

    void close() { m_tcp.close(); }
    TcpPeer& tcp();

private:
    std::uint16_t m_port;
    TcpPeer m_tcp;
};

} // namespace cdxtest

#endif
