#include "UpgradeReader.h"

#include <boost/asio/error.hpp>
#include <boost/beast/core/string.hpp>
#include <boost/beast/websocket/error.hpp>

#include <cstring>
#include <stdexcept>

namespace xal {
namespace {

namespace net = boost::asio;
using boost::beast::iequals;
using boost::beast::websocket::error;
using xalutil::HttpAnswerParser;
using xalutil::HttpError;
using xalutil::HttpResponse;

constexpr std::string_view accepted =
    "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: ";
constexpr std::string_view end = "\r\n\r\n";
constexpr std::size_t longestDigest = 64;
/// Kept free behind the bytes that are read, so that the answer's shortest form fits together with what came behind it.
constexpr std::size_t roomForAnswer = accepted.size() + longestDigest + end.size();
constexpr int switchingProtocols = 101;

} // namespace

class UpgradeReader::AnswerWaiter final : public ByteSource::Waiter {
public:
    AnswerWaiter(UpgradeReader& reader, net::mutable_buffer into, std::unique_ptr<Waiter> waiter)
        : m_reader(reader), m_into(into), m_waiter(std::move(waiter)) {}
    void ended(const Error& failure, std::size_t bytes) override {
        m_reader.received(failure, m_into, bytes, std::move(m_waiter));
    }

private:
    UpgradeReader& m_reader; // the waiter in hand keeps it
    const net::mutable_buffer m_into;
    std::unique_ptr<Waiter> m_waiter;
};

UpgradeReader::UpgradeReader(ByteSource& source, std::string subprotocol)
    : m_source(source), m_subprotocol(std::move(subprotocol)),
      m_parser(std::in_place, HttpAnswerParser::Asked::UPGRADE, xalutil::HttpLimits()) {}

void UpgradeReader::read(net::mutable_buffer into, std::unique_ptr<Waiter> waiter) {
    if (!m_parser)
        return m_source.read(into, std::move(waiter));
    // A WebSocket stream offers 1,536 bytes.
    if (into.size() <= roomForAnswer)
        throw std::length_error("no room for the answer to an upgrade");
    m_source.read(net::buffer(into, into.size() - roomForAnswer),
                  std::make_unique<AnswerWaiter>(*this, into, std::move(waiter)));
}

void UpgradeReader::received(const Error& failure, net::mutable_buffer into, std::size_t bytes,
                             std::unique_ptr<Waiter> waiter) {
    char* const begin = static_cast<char*>(into.data());
    std::string_view behind;
    std::string answer;
    try {
        if (failure == net::error::eof && m_parser->hasSeenBytes())
            m_parser->takeEnd();
        if (failure)
            return waiter->ended(failure, 0);
        behind = m_parser->take({begin, bytes});
        if (m_parser->isComplete())
            answer = shorten(m_parser->takeAnswer());
    } catch (const HttpError& refusal) {
        m_refusal = refusal.what();
        return waiter->ended(error::upgrade_declined, 0);
    }
    if (answer.empty())
        return read(into, std::move(waiter));
    m_parser.reset();
    std::memmove(begin + answer.size(), behind.data(), behind.size());
    answer.copy(begin, answer.size());
    waiter->ended({}, answer.size() + behind.size());
}

std::string UpgradeReader::shorten(const HttpResponse& answer) const {
    const auto refuse = [&](const std::string& reason) { throw HttpError(answer.status, reason); };
    if (answer.status != switchingProtocols)
        refuse("upgrade refused with status " + std::to_string(answer.status));
    const std::string* const upgrade = answer.findOnly("Upgrade");
    if (!upgrade || !iequals(*upgrade, "websocket"))
        refuse("upgrade to something else than a WebSocket");
    if (!answer.lists("Connection", "upgrade"))
        refuse("upgrade of something else than the connection");
    const std::string* const subprotocol = answer.findOnly("Sec-WebSocket-Protocol");
    if (!subprotocol || *subprotocol != m_subprotocol)
        refuse("upgrade without the subprotocol");
    if (answer.find("Sec-WebSocket-Extensions"))
        refuse("upgrade with an extension that was not offered");
    const std::string* const digest = answer.findOnly("Sec-WebSocket-Accept");
    if (!digest || digest->size() > longestDigest)
        refuse("upgrade without one digest of its key");
    return std::string(accepted) + *digest + std::string(end);
}

} // namespace xal
