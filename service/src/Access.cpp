#include "Access.h"

#include "Random.h"

#include <boost/asio/ip/address.hpp>
#include <openssl/crypto.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace cdxservice {

namespace {

constexpr std::string_view cookieName = "cdx-session";

bool equalsInConstantTime(std::string_view presented, std::string_view secret) {
    // The length of what was presented is the sender's own; the secret's is not told by taking as long as it is.
    return presented.size() == secret.size() && CRYPTO_memcmp(presented.data(), secret.data(), secret.size()) == 0;
}

boost::asio::ip::address parseAddress(std::string_view host, bool& good) {
    if (host.size() > 2 && host.front() == '[') {
        host = host.substr(1, host.size() - 2);
    }
    boost::system::error_code error;
    auto address = boost::asio::ip::make_address(std::string(host), error);
    good = !error;
    return address;
}

/// Files that a browser loads before it can have shown the token, and the question whether the service is well.
bool isOpen(std::string_view path) {
    return path == "/" || path == "/health" || path.substr(0, 9) == "/console/";
}

} // namespace

Access::Access(Rules rules) : m_rules(std::move(rules)), m_session(randomHex(64)) {
    for (const std::string& name : m_rules.hostNames) {
        bool literal = false;
        parseAddress(name, literal);
        const auto authority = parseAuthority(name);
        if (name.empty() || !(literal || (authority && authority->host == name && name.front() != '['))) {
            throw std::runtime_error("not a host's name or address, without a port: " + name);
        }
    }
}

std::optional<Response> Access::refuse(const RequestHead& head, bool beginsSession) const {
    const auto authority = parseAuthority(head.host);
    const bool ourScheme = head.scheme.empty() || equalsIgnoringCase(head.scheme, scheme());
    if (!authority || !isOurHost(authority->host) || !ourScheme) {
        return Response::fromProblem({421, "this service does not answer for that host"});
    }
    const bool sessionCounts = !beginsSession && hasSession(head);
    if (asksForToken() && !isOpen(head.path) && !hasToken(head) && !sessionCounts) {
        Response response = Response::fromProblem(
            {401, beginsSession ? "a session is begun with the token itself" : "the service's token is needed"});
        response.addHeader("WWW-Authenticate", "Bearer");
        return response;
    }
    if ((head.isUpgrade() || !head.reads()) && !isOurPage(head)) {
        return Response::fromProblem({403, "a page of another origin may not do this"});
    }
    return std::nullopt;
}

bool Access::isOurHost(std::string_view host) const {
    if (host.empty()) {
        return false;
    }
    bool literal = false;
    const auto address = parseAddress(host, literal);
    // An IPv6 literal stands in brackets, an IPv4 one does not.
    literal = literal && address.is_v6() == (host.front() == '[');
    if (equalsIgnoringCase(host, "localhost") || (literal && address.is_loopback())) {
        return true;
    }
    const auto isHost = [&](const std::string& name) {
        bool named = false;
        const auto own = parseAddress(name, named);
        return equalsIgnoringCase(host, name) || (literal && named && address == own);
    };
    return isHost(m_rules.boundAddress) || std::any_of(m_rules.hostNames.begin(), m_rules.hostNames.end(), isHost);
}

bool Access::hasToken(const RequestHead& head) const {
    constexpr std::string_view bearer = "Bearer ";
    const auto authorization = head.value("Authorization");
    if (!authorization || head.count("Authorization") != 1 ||
        !equalsIgnoringCase(authorization->substr(0, bearer.size()), bearer)) {
        return false;
    }
    return equalsInConstantTime(trimmed(authorization->substr(bearer.size())), m_rules.token);
}

bool Access::hasSession(const RequestHead& head) const {
    for (const RequestHead::Header& header : head.headers) {
        if (!equalsIgnoringCase(header.name, "Cookie")) {
            continue;
        }
        std::string_view rest = header.value;
        while (!rest.empty()) {
            const auto end = std::min(rest.find(';'), rest.size());
            const std::string_view pair = trimmed(rest.substr(0, end));
            rest.remove_prefix(std::min(end + 1, rest.size()));
            const auto equals = pair.find('=');
            if (equals != std::string_view::npos && pair.substr(0, equals) == cookieName &&
                equalsInConstantTime(pair.substr(equals + 1), m_session)) {
                return true;
            }
        }
    }
    return false;
}

bool Access::isOurPage(const RequestHead& head) const {
    const auto origin = head.value("Origin");
    if (!origin) {
        return true;
    }
    std::string own(scheme());
    own.append("://").append(head.host);
    return head.count("Origin") == 1 && equalsIgnoringCase(*origin, own);
}

std::string Access::sessionCookie() const {
    std::string cookie(cookieName);
    cookie.append("=").append(m_session).append("; Path=/; HttpOnly; SameSite=Strict");
    if (m_rules.tls) {
        cookie.append("; Secure");
    }
    return cookie;
}

std::string readToken(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        throw std::runtime_error("the token file cannot be read: " + file);
    }
    std::string content;
    try {
        content.assign(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
    } catch (const std::ios_base::failure&) {
        // Opens like a file, but is a directory.
        throw std::runtime_error("the token file cannot be read: " + file);
    }
    constexpr const char* white = " \t\r\n\v\f";
    const auto begin = content.find_first_not_of(white);
    if (begin == std::string::npos) {
        throw std::runtime_error("the token file holds no token: " + file);
    }
    std::string token = content.substr(begin, content.find_last_not_of(white) - begin + 1);
    const auto isBearable = [](unsigned char c) { return c == '\t' || (c >= 0x20 && c != 0x7f); };
    if (!std::all_of(token.begin(), token.end(), isBearable)) {
        throw std::runtime_error("the token file holds more than a line, or what no request can bear: " + file);
    }
    return token;
}

} // namespace cdxservice
