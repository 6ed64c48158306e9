#include "UpgradeReader.h"

#include <boost/beast/core/string.hpp>
#include <boost/beast/http/rfc7230.hpp>
#include <boost/beast/websocket/error.hpp>

#include <algorithm>
#include <cstring>

namespace xal {
namespace {

namespace beast = boost::beast;
namespace net = boost::asio;
using xalutil::HttpError;
using xalutil::HttpResponse;

/// Kept free behind the bytes that are read, so that the answer's shortest form and what came behind the answer fit. A
/// WebSocket stream offers 1,536 bytes.
constexpr std::size_t roomForAnswer = 256;
constexpr std::size_t longestDigest = 64;
constexpr int switchingProtocols = 101;

bool listsUpgrade(const std::pair<std::string, std::string>& header) {
    return beast::iequals(header.first, "Connection") && beast::http::token_list(header.second).exists("upgrade");
}

} // namespace

class UpgradeReader::AnswerWaiter final : public Connection::Waiter {
public:
    AnswerWaiter(UpgradeReader& reader, net::mutable_buffer into, std::unique_ptr<Waiter> waiter)
        : m_reader(reader), m_into(into), m_waiter(std::move(waiter)) {}
    void ended(const Connection::Error& failure, std::size_t bytes) override {
        if (failure)
            m_waiter->ended(failure, bytes);
        else
            m_reader.received(m_into, bytes, std::move(m_waiter));
    }

private:
    UpgradeReader& m_reader; // the waiter in hand keeps it
    const net::mutable_buffer m_into;
    std::unique_ptr<Waiter> m_waiter;
};

UpgradeReader::UpgradeReader(Connection& connection, std::string subprotocol)
    : m_connection(connection), m_subprotocol(std::move(subprotocol)) {}

void UpgradeReader::read(net::mutable_buffer into, std::unique_ptr<Connection::Waiter> waiter) {
    if (m_parser.isComplete())
        return m_connection.read(into, std::move(waiter));
    const std::size_t size = into.size() - std::min(into.size(), roomForAnswer);
    m_connection.read(net::buffer(into, size), std::make_unique<AnswerWaiter>(*this, into, std::move(waiter)));
}

void UpgradeReader::received(net::mutable_buffer into, std::size_t bytes, std::unique_ptr<Connection::Waiter> waiter) {
    char* const begin = static_cast<char*>(into.data());
    std::string_view behind;
    std::string answer;
    try {
        behind = m_parser.take({begin, bytes});
        if (m_parser.isComplete())
            answer = shorten(m_parser.takeAnswer());
    } catch (const HttpError& refusal) {
        m_refusal = refusal.what();
        return waiter->ended(beast::websocket::error::upgrade_declined, 0);
    }
    if (answer.empty())
        return read(into, std::move(waiter));
    std::memmove(begin + answer.size(), behind.data(), behind.size());
    answer.copy(begin, answer.size());
    waiter->ended({}, answer.size() + behind.size());
}

std::string UpgradeReader::shorten(const HttpResponse& answer) const {
    const auto refuse = [&](const std::string& reason) { throw HttpError(answer.status, reason); };
    if (answer.status != switchingProtocols)
        refuse("upgrade refused with status " + std::to_string(answer.status));
    const std::string* const upgrade = answer.findOnly("Upgrade");
    if (!upgrade || !beast::iequals(*upgrade, "websocket") ||
        std::none_of(answer.headers.begin(), answer.headers.end(), listsUpgrade))
        refuse("upgrade to something else than a WebSocket");
    const std::string* const subprotocol = answer.findOnly("Sec-WebSocket-Protocol");
    if (!subprotocol || *subprotocol != m_subprotocol)
        refuse("upgrade without the subprotocol");
    if (answer.find("Sec-WebSocket-Extensions"))
        refuse("upgrade with an extension that was not offered");
    const std::string* const digest = answer.findOnly("Sec-WebSocket-Accept");
    if (!digest || digest->size() > longestDigest)
        refuse("upgrade accepted for another key");
    return "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: " +
           *digest + "\r\n\r\n";
}

} // namespace xal
