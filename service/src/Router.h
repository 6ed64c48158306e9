#ifndef SERVICE_SRC_ROUTER_H
#define SERVICE_SRC_ROUTER_H

#include "Access.h"
#include "Exchange.h"
#include "RequestHead.h"
#include "Response.h"

#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace cdxservice {

/// What an address stands for.
struct Route {
    enum class Kind { Unknown, Service, List, Element, Registry, Health, Session };

    Kind kind = Kind::Unknown;
    std::size_t resource = 0;
    std::string id;
};

/// The meaning of requests: where their addresses lead, what is checked in which order, and the answers.
class Router {
public:
    struct Proceed { ///< The body, if there is one, is wanted; then handle() answers.
        Route route;
    };
    struct Upgrade { ///< The connection becomes a channel; the answer is sent as it is.
        std::string answer;
    };
    using Verdict = std::variant<Response, Proceed, Upgrade>;

    Router(Exchange& exchange, const Access& access, std::size_t maxBodyBytes)
        : m_exchange(exchange), m_access(access), m_maxBodyBytes(maxBodyBytes) {}

    /// All that can be said before the body is read. `surplus`: the connection is one too many, and may only become a
    /// channel, to be closed as such.
    Verdict judge(const RequestHead& head, bool surplus);

    /// Does what is asked. What judge() looked at in the exchange may have changed since: it is looked at again.
    Response handle(const Route& route, const RequestHead& head, std::string_view body);

private:
    std::optional<Response> checkMethod(const Route& route, const RequestHead& head) const;
    std::optional<Response> checkElement(const Route& route, const RequestHead& head);
    Verdict judgeUpgrade(const Route& route, const RequestHead& head) const;
    Response answerService() const;
    Response answerList(const Route& route, const RequestHead& head) const;
    Response answerElement(const ElementPtr& element, int status) const;
    Response answerRegistry(const RequestHead& head) const;
    Response answerHealth();
    Response write(const Route& route, const RequestHead& head, std::string_view body);
    std::string etag(const Element& element) const;

    Exchange& m_exchange;
    const Access& m_access;
    std::size_t m_maxBodyBytes;
};

/// Where an address leads. `path` is as sent.
Route findRoute(std::string_view path);

} // namespace cdxservice

#endif
