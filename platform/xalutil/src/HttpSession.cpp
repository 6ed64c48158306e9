#include "HttpConnection.h"
#include "HttpText.h"
#include "Interruption.h"

#include <xalutil/HttpAnswerParser.h>
#include <xalutil/HttpSession.h>
#include <xalutil/StopCallback.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>

namespace xalutil {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int unauthorized = 401;

/// What would make the request end elsewhere than where this session ends it, or go to somebody else.
bool isForTheSessionToSay(const std::string& header) {
    constexpr std::string_view own[] = {"Host", "Content-Length", "Transfer-Encoding"};
    return std::any_of(std::begin(own), std::end(own),
                       [&](std::string_view name) { return httptext::equalIgnoringCase(header, name); });
}

HttpHeaders::const_iterator findHeader(HttpHeaders::const_iterator begin, HttpHeaders::const_iterator end,
                                       const std::string& name) {
    return std::find_if(begin, end,
                        [&](const auto& header) { return httptext::equalIgnoringCase(header.first, name); });
}

void addHeaders(std::string& head, const HttpHeaders& headers) {
    for (const auto& [name, value] : headers) {
        if (!httptext::isToken(name) || !httptext::isFieldText(value) || isForTheSessionToSay(name))
            throw HttpError(0, "the request's header \"" + name + "\" cannot be sent");
        head += name + ": " + value + "\r\n";
    }
}

/// The request's head as it is sent, but for the connection's own headers and the empty line. What would let one
/// request become two, or another one, is refused.
std::string wordHead(const HttpRequest& request, const std::string& authority) {
    const auto isPlain = [](char c) { return c > ' ' && c < 0x7f; };
    if (!httptext::isToken(request.method))
        throw HttpError(0, "the request's method is no token");
    if (request.target.empty() || request.target.front() != '/' ||
        !std::all_of(request.target.begin(), request.target.end(), isPlain))
        throw HttpError(0, "the request's target is no encoded path");

    std::string head = request.method + ' ' + request.target + " HTTP/1.1\r\nHost: " + authority + "\r\n";
    addHeaders(head, request.headers);
    const bool callsForBody = request.method == "POST" || request.method == "PUT" || request.method == "PATCH";
    if (callsForBody || !request.body.empty())
        head += "Content-Length: " + std::to_string(request.body.size()) + "\r\n";
    return head;
}

class PocoHttpSession : public HttpSession {
public:
    explicit PocoHttpSession(HttpServer server) : m_server(std::move(server)), m_trust(makeTrust(m_server)) {}

    HttpResponse exchange(const HttpRequest& request, Clock::time_point deadline, const HttpLimits& limits) override {
        const StopCallback onStop([this] { cancel(); });
        m_interruption.check(deadline);
        const std::string head = wordHead(request, m_server.authority());
        dropUnlessUsable(limits);
        const bool isKept = m_kept.connection != nullptr;
        using Asked = HttpAnswerParser::Asked;
        HttpAnswerParser parser(request.method == "HEAD" ? Asked::HEAD : Asked::RESOURCE, limits);
        try {
            return exchangeOnce(head, request, parser, deadline);
        } catch (const HttpConnectionLost&) {
            if (!isKept || request.method != "GET" || parser.hasSeenBytes())
                throw;
        }
        return exchangeOnce(head, request, parser, deadline);
    }

    void cancel() noexcept override { m_interruption.cancel(); }

private:
    struct Kept {
        std::unique_ptr<HttpConnection> connection;
        std::optional<HttpHeaders> headers; ///< the connection's own, once they were asked for
    };

    void dropUnlessUsable(const HttpLimits& limits) {
        if (!m_kept.connection)
            return;
        bool isUsable = false;
        try {
            // Nothing may come that nobody asked for, least of all the connection's end.
            char unasked = 0;
            isUsable = Clock::now() - m_idleSince < limits.keepIdle && !m_kept.connection->receive(&unasked, 1);
        } catch (const HttpConnectionLost&) {
            // As unusable as can be.
        }
        if (!isUsable)
            m_kept = Kept();
    }

    /// A connection on which anything went wrong is not kept.
    HttpResponse exchangeOnce(std::string text, const HttpRequest& request, HttpAnswerParser& parser,
                              Clock::time_point deadline) {
        Kept used = std::exchange(m_kept, Kept());
        if (!used.connection)
            used.connection = std::make_unique<HttpConnection>(m_server, m_trust, m_interruption, deadline);
        if (request.connectionHeaders) {
            if (!used.headers)
                used.headers = request.connectionHeaders();
            addHeaders(text, *used.headers);
        }
        text += "\r\n" + request.body;
        bool isSent = false;
        try {
            isSent = sendAll(*used.connection, text, parser, deadline);
            while (!parser.isComplete())
                if (!receiveSome(*used.connection, parser, deadline))
                    used.connection->await(false, m_interruption, deadline);
        } catch (const HttpConnectionLost& failure) {
            throw HttpConnectionLost(parser.getStatus(), failure.what());
        } catch (const HttpError& failure) {
            throw HttpError(parser.getStatus(), failure.what());
        }
        const bool isRefused = request.connectionHeaders && parser.getStatus() == unauthorized;
        if (isSent && !isRefused && parser.mayReuseConnection()) {
            m_kept = std::move(used);
            m_idleSince = Clock::now();
        }
        return parser.takeAnswer();
    }

    /// False where the server answered, or went, before it had the whole request.
    bool sendAll(HttpConnection& connection, std::string_view text, HttpAnswerParser& parser,
                 Clock::time_point deadline) const {
        while (!text.empty()) {
            m_interruption.check(deadline);
            std::size_t sent = 0;
            try {
                sent = connection.send(text);
            } catch (const HttpConnectionLost&) {
                return false; // what it answered first can still be read
            }
            text.remove_prefix(sent);
            if (sent > 0)
                continue;
            connection.await(true, m_interruption, deadline);
            receiveSome(connection, parser, deadline);
            if (parser.isComplete())
                return false;
        }
        return true;
    }

    /// False where there is nothing yet.
    bool receiveSome(HttpConnection& connection, HttpAnswerParser& parser, Clock::time_point deadline) const {
        m_interruption.check(deadline);
        std::array<char, 16 * 1024> buffer;
        const std::optional<std::size_t> received = connection.receive(buffer.data(), buffer.size());
        if (!received)
            return false;
        if (*received > 0)
            parser.take(std::string_view(buffer.data(), *received));
        else if (parser.hasSeenBytes())
            parser.takeEnd();
        else
            throw HttpConnectionLost(0, "the connection was closed before the answer");
        return true;
    }

    const HttpServer m_server;
    const std::shared_ptr<HttpTrust> m_trust;
    Interruption m_interruption;

    // Of the thread that exchanges.
    Kept m_kept; ///< idle; empty when there is none
    Clock::time_point m_idleSince;
};

} // namespace

const std::string* HttpResponse::find(const std::string& name) const {
    const auto found = findHeader(headers.begin(), headers.end(), name);
    return found == headers.end() ? nullptr : &found->second;
}

const std::string* HttpResponse::findOnly(const std::string& name) const {
    const auto found = findHeader(headers.begin(), headers.end(), name);
    const bool isOnly = found != headers.end() && findHeader(found + 1, headers.end(), name) == headers.end();
    return isOnly ? &found->second : nullptr;
}

bool HttpResponse::lists(const std::string& name, const std::string& token) const {
    return std::any_of(headers.begin(), headers.end(), [&](const auto& header) {
        return httptext::equalIgnoringCase(header.first, name) && httptext::lists(header.second, token);
    });
}

HttpError::HttpError(int status, const std::string& what) : std::runtime_error(what), m_status(status) {}

int HttpError::getStatus() const noexcept {
    return m_status;
}

HttpSession::~HttpSession() = default;

PocoHttpSessionFactory::PocoHttpSessionFactory() = default;
PocoHttpSessionFactory::~PocoHttpSessionFactory() = default;

std::unique_ptr<HttpSession> PocoHttpSessionFactory::createSession(const std::string& baseUri) {
    return std::make_unique<PocoHttpSession>(HttpServer::fromUri(baseUri));
}

} // namespace xalutil
