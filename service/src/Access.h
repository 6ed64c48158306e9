#ifndef SERVICE_SRC_ACCESS_H
#define SERVICE_SRC_ACCESS_H

#include "RequestHead.h"
#include "Response.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cdxservice {

/// Who may come in: by the host that a request names, the token it presents and the page that it comes from.
class Access {
public:
    struct Rules {
        std::string boundAddress;
        std::vector<std::string> hostNames;
        std::string token; ///< Empty: none is asked for.
        bool tls = false;
    };

    explicit Access(Rules rules);

    /// The answer to a request that may not come in: 421, 401 or 403, in this order. `beginsSession`: it asks for a
    /// cookie, which takes the token itself.
    std::optional<Response> refuse(const RequestHead& head, bool beginsSession) const;

    bool asksForToken() const { return !m_rules.token.empty(); }
    /// What a browser is given in the token's place; good for as long as this object lives.
    std::string sessionCookie() const;

    std::string_view scheme() const { return m_rules.tls ? "https" : "http"; }

private:
    bool isOurHost(std::string_view host) const;
    bool hasToken(const RequestHead& head) const;
    bool hasSession(const RequestHead& head) const;
    bool isOurPage(const RequestHead& head) const;

    Rules m_rules;
    std::string m_session;
};

/// The content of a file without surrounding white space, which must leave something. Throws std::runtime_error.
std::string readToken(const std::string& file);

} // namespace cdxservice

#endif
