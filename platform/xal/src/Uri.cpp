#include "Uri.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <stdexcept>

namespace xal {
namespace {

constexpr std::uint16_t httpPort = 80;
constexpr std::uint16_t httpsPort = 443;
constexpr std::size_t longestId = 128;

[[noreturn]] void refuse(const std::string& text, const char* reason) {
    throw std::invalid_argument("not the URI of a service: \"" + text + "\": " + reason);
}

bool isAlphanumeric(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isHostCharacter(char c) {
    return isAlphanumeric(c) || c == '-' || c == '.' || c == '_';
}
bool isLiteralCharacter(char c) {
    return isAlphanumeric(c) || c == ':' || c == '.';
}

bool isSecureScheme(const std::string& text, std::string scheme) {
    std::transform(scheme.begin(), scheme.end(), scheme.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (scheme == "https" || scheme == "wss")
        return true;
    if (scheme == "http" || scheme == "ws")
        return false;
    refuse(text, "its scheme is none of http, https, ws, wss");
}

std::uint16_t parsePort(const std::string& text, const std::string& digits) {
    unsigned long port = 0;
    for (const char c : digits) {
        if (c < '0' || c > '9' || port > 65535)
            refuse(text, "its port is no port");
        port = port * 10 + static_cast<unsigned long>(c - '0');
    }
    if (port == 0 || port > 65535)
        refuse(text, "its port is no port");
    return static_cast<std::uint16_t>(port);
}

} // namespace

Uri Uri::parse(const std::string& text) {
    Uri uri;
    const auto schemeEnd = text.find("://");
    if (schemeEnd == std::string::npos)
        refuse(text, "it has no scheme");
    uri.isSecure = isSecureScheme(text, text.substr(0, schemeEnd));

    const auto begin = schemeEnd + 3;
    const auto end = std::min(text.find_first_of("/?#", begin), text.size());
    const std::string authority = text.substr(begin, end - begin);
    std::string rest;
    if (!authority.empty() && authority.front() == '[') {
        const auto close = authority.find(']');
        if (close == std::string::npos)
            refuse(text, "its host is not closed");
        uri.host = authority.substr(1, close - 1);
        rest = authority.substr(close + 1);
        if (!std::all_of(uri.host.begin(), uri.host.end(), isLiteralCharacter))
            refuse(text, "its host is no address");
    } else {
        const auto colon = std::min(authority.find(':'), authority.size());
        uri.host = authority.substr(0, colon);
        rest = authority.substr(colon);
        if (!std::all_of(uri.host.begin(), uri.host.end(), isHostCharacter))
            refuse(text, "its host is no name");
    }
    if (uri.host.empty())
        refuse(text, "it has no host");
    uri.port = uri.isSecure ? httpsPort : httpPort;
    if (!rest.empty() && rest.front() != ':')
        refuse(text, "its port is no port");
    if (rest.size() > 1)
        uri.port = parsePort(text, rest.substr(1));

    uri.path = text.substr(end);
    for (const char c : uri.path)
        if (c <= ' ' || c == '\x7f' || c == '?' || c == '#')
            refuse(text, "its path holds what no path holds");
    return uri;
}

std::string Uri::authority() const {
    std::string text = host.find(':') == std::string::npos ? host : "[" + host + "]";
    if (port != (isSecure ? httpsPort : httpPort))
        text += ":" + std::to_string(port);
    return text;
}

std::string Uri::httpOrigin() const {
    return (isSecure ? "https://" : "http://") + authority();
}

std::string joinPath(const std::string& left, const std::string& right) {
    const auto end = left.find_last_not_of('/') + 1;
    const auto begin = std::min(right.find_first_not_of('/'), right.size());
    if (begin == right.size())
        return left.substr(0, end);
    return left.substr(0, end) + "/" + right.substr(begin);
}

std::string percentEncode(const std::string& text) {
    static const char digits[] = "0123456789ABCDEF";
    std::string encoded;
    encoded.reserve(text.size());
    for (const char c : text) {
        if (isHostCharacter(c) || c == '~') {
            encoded += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            encoded += {'%', digits[byte >> 4], digits[byte & 15]};
        }
    }
    return encoded;
}

bool isElementId(const std::string& text) {
    return !text.empty() && text.size() <= longestId &&
           std::all_of(text.begin(), text.end(), [](char c) { return isAlphanumeric(c) || c == '_' || c == '-'; });
}

} // namespace xal
