#include "WebSocketPeer.h"

#include <stdexcept>
#include <strings.h>

namespace cdxtest {

namespace {

constexpr const char* endOfHead = "\r\n\r\n";

std::chrono::milliseconds leftUntil(std::chrono::steady_clock::time_point deadline) {
    return std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
}

} // namespace

std::string headerValue(const std::string& head, const std::string& name) {
    std::size_t line = head.find("\r\n");
    while (line != std::string::npos && line + 2 < head.size()) {
        const std::size_t begin = line + 2;
        line = head.find("\r\n", begin);
        const std::size_t colon = head.find(':', begin);
        if (colon == std::string::npos || line == std::string::npos || colon > line)
            continue;
        if (colon - begin != name.size() || ::strncasecmp(head.data() + begin, name.data(), name.size()) != 0)
            continue;
        const std::size_t from = head.find_first_not_of(" \t", colon + 1);
        return from >= line ? std::string() : head.substr(from, line - from);
    }
    return {};
}

WebSocketPeer::WebSocketPeer(TcpPeer tcp, bool isClient, std::string head)
    : m_tcp(std::move(tcp)), m_isClient(isClient), m_head(std::move(head)) {}

WebSocketPeer WebSocketPeer::connect(std::uint16_t port, const std::string& target, const std::string& headers) {
    TcpPeer tcp = TcpPeer::connect(port);
    tcp.send("GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
             "\r\nConnection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
             "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Protocol: cdx.v1\r\n" +
             headers + "\r\n");
    std::string head = tcp.takeUntil(endOfHead).value_or("no answer");
    if (head.rfind("HTTP/1.1 101 ", 0) != 0)
        throw std::runtime_error("the upgrade was not accepted: " + head);
    if (headerValue(head, "Sec-WebSocket-Accept") != webSocketAccept("dGhlIHNhbXBsZSBub25jZQ=="))
        throw std::runtime_error("the upgrade was accepted with a wrong key: " + head);
    return WebSocketPeer(std::move(tcp), true, std::move(head));
}

WebSocketPeer WebSocketPeer::accept(TcpPeer connection) {
    std::string head = connection.takeUntil(endOfHead).value_or("");
    const std::string key = headerValue(head, "Sec-WebSocket-Key");
    if (key.empty())
        throw std::runtime_error("no upgrade was asked for: " + head);
    connection.send("HTTP/1.1 101 Switching Protocols\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n"
                    "Sec-WebSocket-Protocol: cdx.v1\r\nSec-WebSocket-Accept: " +
                    webSocketAccept(key) + endOfHead);
    return WebSocketPeer(std::move(connection), false, std::move(head));
}

bool WebSocketPeer::send(const Frame& frame, std::size_t slice) {
    return m_tcp.send(encode(frame, m_isClient), slice);
}

std::optional<Frame> WebSocketPeer::read(std::chrono::milliseconds within) {
    const auto deadline = std::chrono::steady_clock::now() + within;
    for (;;) {
        if (std::optional<Frame> frame = takeFrame(m_tcp.received()))
            return frame;
        if (m_tcp.read(leftUntil(deadline)) != TcpPeer::Read::Bytes)
            return std::nullopt;
    }
}

std::optional<std::string> WebSocketPeer::readText(std::chrono::milliseconds within) {
    const auto deadline = std::chrono::steady_clock::now() + within;
    for (;;) {
        const std::optional<Frame> frame = read(leftUntil(deadline));
        if (!frame || frame->opcode == Opcode::close)
            return std::nullopt;
        if (frame->opcode == Opcode::text)
            return frame->payload;
    }
}

std::optional<unsigned> WebSocketPeer::readClose(std::chrono::milliseconds within) {
    const auto deadline = std::chrono::steady_clock::now() + within;
    for (;;) {
        const std::optional<Frame> frame = read(leftUntil(deadline));
        if (!frame)
            return std::nullopt;
        if (frame->opcode == Opcode::close)
            return closeCode(*frame);
    }
}

} // namespace cdxtest
