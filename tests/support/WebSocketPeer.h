#ifndef CDXTESTS_SUPPORT_WEBSOCKETPEER_H
#define CDXTESTS_SUPPORT_WEBSOCKETPEER_H

#include <support/Tcp.h>
#include <support/WebSocketFrames.h>

#include <cstddef>
#include <optional>
#include <string>

namespace cdxtest {

/// One end of a WebSocket connection in a test's hands, written from RFC 6455: any frame goes out in any slices, and
/// nothing happens of itself, not even the answer to a ping or a close.
///
/// Belongs to one thread at a time.
class WebSocketPeer {
public:
    /// As the client of a service: asks for the upgrade with `headers` (lines with their ends) besides what is needed.
    /// Throws std::runtime_error with the answer when it is not 101.
    static WebSocketPeer connect(std::uint16_t port, const std::string& target = "/CarDataExchange",
                                 const std::string& headers = {});
    /// As the server of a client that has connected: reads its request and accepts it. Throws std::runtime_error when
    /// no upgrade is asked for.
    static WebSocketPeer accept(TcpPeer connection);

    /// What the other side sent for the upgrade, up to the empty line.
    const std::string& head() const { return m_head; }
    bool isClient() const { return m_isClient; }
    TcpPeer& tcp() { return m_tcp; }

    /// Sends in pieces of `slice` bytes (0: at once). False when the other side is gone.
    bool send(const Frame& frame, std::size_t slice = 0);
    bool text(const std::string& payload) { return send({Opcode::text, payload}); }
    bool ping(const std::string& payload = {}) { return send({Opcode::ping, payload}); }
    bool close(unsigned code = 1000) { return send({Opcode::close, closePayload(code)}); }

    /// The next frame; empty when the connection ended, or the deadline came, before it.
    std::optional<Frame> read(std::chrono::milliseconds within = patience);
    /// The next frame that is text; passes over others, but not over a close.
    std::optional<std::string> readText(std::chrono::milliseconds within = patience);
    /// Passes over everything up to the other side's close frame, and gives its code; empty when none came.
    std::optional<unsigned> readClose(std::chrono::milliseconds within = patience);

private:
    WebSocketPeer(TcpPeer tcp, bool isClient, std::string head);

    TcpPeer m_tcp;
    bool m_isClient;
    std::string m_head;
};

/// The value of a header in a request's or answer's head; empty where there is none.
std::string headerValue(const std::string& head, const std::string& name);

} // namespace cdxtest

#endif
