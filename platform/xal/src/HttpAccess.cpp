#include "HttpAccess.h"

#include "HttpRequests.h"
#include "Uri.h"

#include <stdexcept>

namespace xal {
namespace {

using std::chrono::steady_clock;

class FailedSending : public XalException, public std::nested_exception {
public:
    using XalException::XalException;
};

const char* textOf(Request::Kind kind) {
    switch (kind) {
    case Request::CREATE:
        return "create element failed";
    case Request::UPDATE:
        return "update element failed";
    case Request::REMOVE:
        return "delete element failed";
    case Request::READ:
        break;
    }
    return "read elements failed";
}

std::string describe(const xalutil::HttpRequest& request, const std::string& origin, const std::string& outcome,
                     steady_clock::time_point begin) {
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(steady_clock::now() - begin);
    return request.method + " " + origin + request.target + ": " + outcome + " after " + std::to_string(took.count()) +
           " ms";
}

bool hasBodyToRead(Request::Kind kind, int status) {
    return (kind == Request::CREATE && (status == 200 || status == 201)) || (kind == Request::READ && status == 200);
}

std::shared_ptr<xalutil::JsonValue> parse(const std::string& body, xalutil::ILogger& logger) {
    try {
        return std::make_shared<xalutil::JsonValue>(xalutil::JsonFactory::createJsonParser()->parse(body));
    } catch (const std::exception& e) {
        logger.warning(std::string("answer dropped: ") + e.what());
        return nullptr;
    }
}

} // namespace

std::shared_ptr<const XalResponse> failedSending(Request::Kind kind, int status) {
    return std::make_shared<const FailedSending>(status, textOf(kind));
}

HttpAccess::HttpAccess(std::shared_ptr<xalutil::PocoHttpSessionFactory> sessions,
                       std::shared_ptr<RequestHeaders> headers)
    : m_sessions(std::move(sessions)), m_headers(std::move(headers)) {}

HttpAccess::Answer HttpAccess::perform(const ServiceAddress& address, const Request& request,
                                       std::chrono::milliseconds timeout, xalutil::ILogger& logger) {
    const auto begin = steady_clock::now();
    xalutil::HttpRequest http;
    std::string origin = address.baseUri;
    try {
        const Uri uri = Uri::parse(address.baseUri);
        http = makeHttpRequest(uri, address, request);
        origin = uri.httpOrigin();
        m_headers->addTo(http, logger);
        const auto answer = sessionFor(address.service, origin)->exchange(http, begin + timeout);
        if (logger.isDebug())
            logger.debug(describe(http, origin, std::to_string(answer.status), begin));
        return {std::make_shared<const XalResponse>(answer.status),
                hasBodyToRead(request.kind, answer.status) ? parse(answer.body, logger) : nullptr};
    } catch (const std::exception& e) {
        const auto* const known = dynamic_cast<const xalutil::HttpError*>(&e);
        if (logger.isDebug())
            logger.debug(describe(http, origin, e.what(), begin));
        return {failedSending(request.kind, known != nullptr ? known->getStatus() : 0), nullptr};
    } catch (...) {
        return {failedSending(request.kind, 0), nullptr};
    }
}

std::string HttpAccess::askRegistry(const std::string& registryUri, const std::string& service,
                                    steady_clock::time_point deadline, xalutil::ILogger& logger,
                                    const std::function<void(std::shared_ptr<xalutil::HttpSession>)>& started) {
    const auto begin = steady_clock::now();
    const Uri uri = Uri::parse(registryUri);
    if (!m_sessions)
        throw std::runtime_error("there is no transport");
    xalutil::HttpRequest question;
    question.target = joinPath(uri.path, percentEncode(service));
    question.headers.emplace_back("Accept", "application/json");
    m_headers->addTo(question, logger);
    const std::shared_ptr<xalutil::HttpSession> session = m_sessions->createSession(uri.httpOrigin());
    started(session);
    const auto answer = session->exchange(question, deadline);
    if (logger.isDebug())
        logger.debug(describe(question, uri.httpOrigin(), std::to_string(answer.status), begin));
    if (answer.status != 200)
        throw std::runtime_error("the registry answered " + std::to_string(answer.status));
    auto where = xalutil::JsonFactory::createJsonParser()->parse(answer.body).asObject()->getString("uri");
    static_cast<void>(Uri::parse(where));
    return where;
}

std::shared_ptr<xalutil::HttpSession> HttpAccess::sessionFor(const std::string& service, const std::string& origin) {
    if (!m_sessions)
        throw std::runtime_error("there is no transport");
    std::shared_ptr<xalutil::HttpSession> before; // its connection is closed outside of the lock
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_isCancelled)
        throw std::runtime_error("the registry is closed");
    Kept& kept = m_kept[service];
    if (!kept.session || kept.origin != origin) {
        before = std::move(kept.session);
        kept.session = m_sessions->createSession(origin);
        kept.origin = origin;
    }
    return kept.session;
}

void HttpAccess::cancel() {
    std::map<std::string, Kept> kept;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isCancelled = true;
        kept.swap(m_kept);
    }
    for (const auto& [service, connection] : kept)
        if (connection.session)
            connection.session->cancel();
}

} // namespace xal
