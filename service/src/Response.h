#ifndef SERVICE_SRC_RESPONSE_H
#define SERVICE_SRC_RESPONSE_H

#include "ListBody.h"
#include "OutBuffer.h"
#include "Problem.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cdxservice {

/// An answer to a request, before it is known whether its connection goes on.
struct Response {
    /// A part of a body: of its own, or shared with its owner.
    struct Piece {
        std::string own;
        std::string_view shared;
        std::shared_ptr<const void> owner;

        std::string_view bytes() const { return owner ? shared : std::string_view(own); }
    };

    int status = 200;
    std::string headers;        ///< Whole lines, beyond those that every answer has.
    bool offersUpgrade = false; ///< "Upgrade" is among them, which "Connection" must name.
    std::string_view contentType = "application/json";
    std::vector<Piece> body;
    std::optional<ListBody> list; ///< The body in its stead, which the connection writes out.

    void addHeader(std::string_view name, std::string_view value) {
        headers.append(name).append(": ").append(value).append("\r\n");
    }
    void addBody(std::string text) { body.push_back({std::move(text), {}, nullptr}); }
    void addBody(std::string_view text, std::shared_ptr<const void> owner) {
        body.push_back({{}, text, std::move(owner)});
    }

    static Response fromProblem(const Problem& problem);
};

struct Framing {
    bool withoutBody = false; ///< HEAD: the header says what GET's would.
    bool close = false;
    bool http10 = false;
};

/// Appends the answer as it goes over the wire, but for a list.
void writeResponse(OutBuffer& out, const Response& response, Framing framing);

} // namespace cdxservice

#endif
