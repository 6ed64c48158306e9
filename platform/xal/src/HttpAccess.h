#ifndef XAL_HTTPACCESS_H
#define XAL_HTTPACCESS_H

#include "RequestHeaders.h"

#include <xal/Service.h>
#include <xalutil/HttpSession.h>

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace xal {

/// How one service is addressed.
struct ServiceAddress {
    std::string service;
    std::string baseUri;
    std::string basePath;
    std::string separator; ///< after a resource
};

/// The answer of a request whose sending threw; made inside a catch clause, it carries what was caught.
std::shared_ptr<const XalResponse> failedSending(Request::Kind kind, int status);

/// The requests of one registry, as HTTP: one connection is kept for each service. perform() runs on the HTTP executor,
/// one request at a time; cancel() on any thread.
class HttpAccess {
public:
    struct Answer {
        std::shared_ptr<const XalResponse> response;
        std::shared_ptr<xalutil::JsonValue> value; ///< empty where there is none, or none that anybody looks at
    };

    HttpAccess(std::shared_ptr<xalutil::PocoHttpSessionFactory> sessions, std::shared_ptr<RequestHeaders> headers);

    /// Never throws.
    Answer perform(const ServiceAddress& address, const Request& request, std::chrono::milliseconds timeout,
                   xalutil::ILogger& logger);
    /// Asks a registry where a service is. Throws a std::exception that says why there is no answer. `started` gets the
    /// session before it is used, so that another thread can cancel it.
    std::string askRegistry(const std::string& registryUri, const std::string& service,
                            std::chrono::steady_clock::time_point deadline, xalutil::ILogger& logger,
                            const std::function<void(std::shared_ptr<xalutil::HttpSession>)>& started);
    /// Breaks off the request under way and lets every later one fail.
    void cancel();

private:
    struct Kept {
        std::string origin;
        std::shared_ptr<xalutil::HttpSession> session;
    };

    std::shared_ptr<xalutil::HttpSession> sessionFor(const std::string& service, const std::string& origin);

    const std::shared_ptr<xalutil::PocoHttpSessionFactory> m_sessions;
    const std::shared_ptr<RequestHeaders> m_headers;

    std::mutex m_mutex; ///< guards what follows
    std::map<std::string, Kept> m_kept;
    bool m_isCancelled = false;
};

} // namespace xal

#endif
