#include "RequestHeaders.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <strings.h>

namespace xal {
namespace {

constexpr const char* authorization = "Authorization";
constexpr const char* userAgent = "User-Agent";

bool sameName(const std::string& one, const char* other) {
    return ::strcasecmp(one.c_str(), other) == 0;
}

bool isTokenCharacter(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           (c != '\0' && std::string("!#$%&'*+-.^_`|~").find(c) != std::string::npos);
}

bool isValueCharacter(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte == '\t' || (byte >= ' ' && byte != 0x7f);
}

bool isWellFormed(const std::string& name, const std::string& value) {
    return !name.empty() && std::all_of(name.begin(), name.end(), isTokenCharacter) &&
           std::all_of(value.begin(), value.end(), isValueCharacter);
}

bool belongsToFraming(const std::string& name) {
    static constexpr std::array<const char*, 8> names = {
        "Host", "Connection", "Content-Length", "Transfer-Encoding", "Upgrade", "Trailer", "TE", "Expect"};
    return std::any_of(names.begin(), names.end(), [&](const char* own) { return sameName(name, own); }) ||
           ::strncasecmp(name.c_str(), "Sec-WebSocket-", 14) == 0;
}

std::string withoutBlanks(const std::string& text) {
    static constexpr const char* blanks = " \t\r\n\v\f";
    const auto begin = text.find_first_not_of(blanks);
    return begin == std::string::npos ? std::string() : text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

void add(xalutil::HttpHeaders& headers, const std::string& name, const std::string& value, xalutil::ILogger& logger) {
    if (!isWellFormed(name, value) || belongsToFraming(name))
        logger.warning("request header left out: " + (isWellFormed(name, "") ? name : "its name is malformed"));
    else
        headers.emplace_back(name, value);
}

/// Null where there is none.
const char* tokenFile() {
    const char* const path = std::getenv("XAL_TOKEN_FILE");
    return path == nullptr || *path == '\0' ? nullptr : path;
}

void addToken(xalutil::HttpHeaders& headers, xalutil::ILogger& logger) {
    const char* const path = tokenFile();
    if (path == nullptr)
        return;
    // Whatever else bears a path, a pipe above all, might keep its reader waiting.
    std::error_code ignored;
    std::ifstream file;
    if (std::filesystem::is_regular_file(path, ignored))
        file.open(path, std::ios::binary);
    if (!file.is_open())
        return logger.warning(std::string("no token: cannot read ") + path);
    const std::string token = withoutBlanks({std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()});
    if (!token.empty())
        add(headers, authorization, "Bearer " + token, logger);
}

} // namespace

void RequestHeaders::set(std::shared_ptr<const Map> map) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_map.swap(map);
}

/// Whether the map names an "Authorization".
bool RequestHeaders::addMap(xalutil::HttpHeaders& headers, xalutil::ILogger& logger) const {
    std::shared_ptr<const Map> map;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        map = m_map;
    }
    bool isAuthorized = false;
    bool isNamed = m_clientName.empty();
    if (map) {
        for (const auto& [name, value] : *map) {
            if (!value)
                continue;
            isAuthorized = isAuthorized || sameName(name, authorization);
            isNamed = isNamed || sameName(name, userAgent);
            add(headers, name, *value, logger);
        }
    }
    if (!isNamed)
        add(headers, userAgent, m_clientName, logger);
    return isAuthorized;
}

xalutil::HttpHeaders RequestHeaders::collect(xalutil::ILogger& logger) const {
    xalutil::HttpHeaders headers;
    if (!addMap(headers, logger))
        addToken(headers, logger);
    return headers;
}

void RequestHeaders::addTo(xalutil::HttpRequest& request, xalutil::ILogger& logger) const {
    const auto own = std::exchange(request.headers, {});
    const bool isAuthorized = addMap(request.headers, logger);
    std::copy_if(own.begin(), own.end(), std::back_inserter(request.headers),
                 [named = request.headers](const auto& one) {
                     return std::none_of(named.begin(), named.end(),
                                         [&](const auto& other) { return sameName(other.first, one.first.c_str()); });
                 });
    if (isAuthorized || tokenFile() == nullptr)
        return;
    request.connectionHeaders = [&logger] {
        xalutil::HttpHeaders headers;
        addToken(headers, logger);
        return headers;
    };
}

} // namespace xal
