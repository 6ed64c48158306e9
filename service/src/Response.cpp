#include "Response.h"

#include "StrictJson.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <ctime>

namespace cdxservice {

namespace {

/// The "Date" of answers, made anew once a second.
std::string_view httpDate() {
    static thread_local std::time_t made = -1;
    static thread_local std::array<char, 40> text = {};
    static thread_local std::size_t size = 0;
    const std::time_t now = std::time(nullptr);
    if (now != made) {
        static constexpr const char* days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
        static constexpr const char* months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
        std::tm parts = {};
        ::gmtime_r(&now, &parts);
        // Not strftime: the names of days and months are not the locale's.
        const int written = std::snprintf(text.data(), text.size(), "%s, %02d %s %04d %02d:%02d:%02d GMT",
                                          days[parts.tm_wday], parts.tm_mday, months[parts.tm_mon],
                                          parts.tm_year + 1900, parts.tm_hour, parts.tm_min, parts.tm_sec);
        size = static_cast<std::size_t>(written);
        made = now;
    }
    return {text.data(), size};
}

} // namespace

Response Response::fromProblem(const Problem& problem) {
    Response response;
    response.status = problem.status;
    response.contentType = "application/problem+json";
    response.addBody(writeProblem(problem));
    return response;
}

void writeResponse(OutBuffer& out, const Response& response, Framing framing) {
    std::string& text = out.text();
    text.append("HTTP/1.1 ");
    writeJsonInteger(text, static_cast<std::int64_t>(response.status));
    text.append(" ").append(reasonPhrase(response.status)).append("\r\nDate: ").append(httpDate()).append("\r\n");
    const bool bodiless = response.status == 204 || response.status == 304;
    if (!bodiless) {
        std::uint64_t length = response.list ? response.list->remaining() : 0;
        for (const Response::Piece& piece : response.body) {
            length += piece.bytes().size();
        }
        text.append("Content-Type: ").append(response.contentType).append("\r\nContent-Length: ");
        writeJsonInteger(text, length);
        text.append("\r\n");
    }
    text.append(response.headers);
    const std::string_view persistence = framing.close ? "close" : framing.http10 ? "keep-alive" : "";
    if (response.offersUpgrade || !persistence.empty()) {
        text.append("Connection: ").append(response.offersUpgrade ? "Upgrade" : "");
        text.append(response.offersUpgrade && !persistence.empty() ? ", " : "").append(persistence).append("\r\n");
    }
    text.append("\r\n");
    if (bodiless || framing.withoutBody) {
        return;
    }
    for (const Response::Piece& piece : response.body) {
        if (piece.owner) {
            out.append(piece.shared, piece.owner);
        } else {
            out.append(piece.own);
        }
    }
}

} // namespace cdxservice
