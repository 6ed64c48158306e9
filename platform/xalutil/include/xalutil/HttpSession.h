#ifndef XALUTIL_HTTPSESSION_H
#define XALUTIL_HTTPSESSION_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace xalutil {

using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

/// A request as its caller words it. The session adds "Host", and "Content-Length" where there is a body or the method
/// calls for one; it sends nothing else of its own, and refuses these two and "Transfer-Encoding" as headers of others.
struct HttpRequest {
    std::string method = "GET";
    std::string target = "/"; ///< path and query, percent-encoded, beginning with a slash
    HttpHeaders headers = {};
    std::string body = {};
    /// Headers that belong to the connection: asked for once on each connection, by its first request that has this,
    /// and sent with each request on it that has this.
    std::function<HttpHeaders()> connectionHeaders = {};
};

/// A complete answer, whatever its status. Redirects are not followed, and interim (1xx) answers are passed over.
struct HttpResponse {
    int status = 0;
    HttpHeaders headers = {}; ///< in the order received
    std::string body = {};    ///< with the transfer coding taken off; empty for HEAD, upgrades, 204 and 304

    /// The value of the first header of this name, in whatever case; null where there is none.
    const std::string* find(const std::string& name) const;
    /// The value of the only header of this name; null where there is none, or more than one.
    const std::string* findOnly(const std::string& name) const;
    /// Whether a header of this name lists the token, in whatever case.
    bool lists(const std::string& name, const std::string& token) const;
};

/// How much of an answer is taken. Beyond that the exchange fails.
struct HttpLimits {
    std::size_t headerBytes = std::size_t{64} * 1024;      ///< status line and header together
    std::size_t bodyBytes = std::size_t{64} * 1024 * 1024; ///< with the transfer coding taken off
    std::chrono::milliseconds keepIdle{30'000};            ///< a connection idle for this long is not used again
};

/// No usable answer was had. what() says why.
class HttpError : public std::runtime_error {
public:
    HttpError(int status, const std::string& what);
    /// The status that the answer's status line gave; 0 when not even that was received.
    int getStatus() const noexcept;

private:
    int m_status;
};

/// Speaks HTTP/1.1 with one server, one exchange at a time, over one connection that it keeps where that is safe.
///
/// The answer is held to the grammar: what can be read in two ways is refused. A connection is used again only when its
/// last answer was framed by itself, taken to its last byte, with nothing behind it, and the server did not ask for its
/// end; nor one whose own headers were refused (401): the next exchange asks for them anew. A request is never
/// repeated, with one exception: a GET, once, when a kept connection turns out to be closed before a byte of the answer
/// was seen.
///
/// exchange() belongs to one thread at a time, cancel() to any.
class HttpSession {
public:
    virtual ~HttpSession();

    /// Sends the request and returns its complete answer. `deadline` is for all of it: resolving, connecting, TLS,
    /// sending, and the answer's last byte. Throws HttpError when there is no usable answer by then, when the session
    /// was cancelled, or when the request cannot be sent as it stands; the connection is gone then.
    ///
    /// Inside a task of a SingleThreadAsyncTaskExecutor, stopping that executor cancels.
    virtual HttpResponse exchange(const HttpRequest& request, std::chrono::steady_clock::time_point deadline,
                                  const HttpLimits& limits = {}) = 0;

    /// Breaks off the exchange that is under way, at once (but for name resolution), and lets every later one fail: the
    /// session is over. Never blocks.
    virtual void cancel() noexcept = 0;
};

/// Makes HTTP and HTTPS client sessions for a URI. May be used from several threads at once; sessions may outlive it.
///
/// HTTPS uses the system's certificate authorities, checks the host name, and speaks TLS 1.2 or later.
class PocoHttpSessionFactory {
public:
    PocoHttpSessionFactory();
    ~PocoHttpSessionFactory();

    /// A session with the server of `baseUri` ("http://host:port", "https://host"); its path is not looked at. Nothing
    /// is sent yet. Throws std::invalid_argument, naming the URI, when it names no such server, and another
    /// std::exception when the system's means do not suffice.
    std::unique_ptr<HttpSession> createSession(const std::string& baseUri);
};

} // namespace xalutil

#endif
