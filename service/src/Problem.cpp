#include "Problem.h"

#include "StrictJson.h"

#include <cstdint>

namespace cdxservice {

std::string_view reasonPhrase(int status) {
    switch (status) {
    case 100:
        return "Continue";
    case 101:
        return "Switching Protocols";
    case 200:
        return "OK";
    case 201:
        return "Created";
    case 204:
        return "No Content";
    case 304:
        return "Not Modified";
    case 400:
        return "Bad Request";
    case 401:
        return "Unauthorized";
    case 403:
        return "Forbidden";
    case 404:
        return "Not Found";
    case 405:
        return "Method Not Allowed";
    case 409:
        return "Conflict";
    case 412:
        return "Precondition Failed";
    case 413:
        return "Content Too Large";
    case 414:
        return "URI Too Long";
    case 415:
        return "Unsupported Media Type";
    case 421:
        return "Misdirected Request";
    case 422:
        return "Unprocessable Content";
    case 426:
        return "Upgrade Required";
    case 431:
        return "Request Header Fields Too Large";
    case 501:
        return "Not Implemented";
    case 503:
        return "Service Unavailable";
    case 505:
        return "HTTP Version Not Supported";
    case 507:
        return "Insufficient Storage";
    default:
        return "Internal Server Error";
    }
}

std::string writeProblem(const Problem& problem) {
    std::string out = "{\"type\":\"about:blank\",\"title\":";
    writeJsonString(out, reasonPhrase(problem.status));
    out.append(",\"status\":");
    writeJsonInteger(out, static_cast<std::int64_t>(problem.status));
    out.append(",\"detail\":");
    writeJsonString(out, problem.detail);
    if (!problem.pointer.empty()) {
        out.append(",\"pointer\":");
        writeJsonString(out, problem.pointer);
    }
    out.push_back('}');
    return out;
}

std::string pointerTo(std::string_view key) {
    std::string pointer = "/";
    for (const char c : key) {
        if (c == '~') {
            pointer.append("~0");
        } else if (c == '/') {
            pointer.append("~1");
        } else {
            pointer.push_back(c);
        }
    }
    return pointer;
}

std::string pointerTo(std::string_view key, std::size_t index) {
    return pointerTo(key) + "/" + std::to_string(index);
}

} // namespace cdxservice
