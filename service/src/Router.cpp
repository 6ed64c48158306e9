#include "Router.h"

#include "Handshake.h"
#include "Query.h"
#include "StrictJson.h"

#include <boost/json/monotonic_resource.hpp>

#include <algorithm>
#include <utility>

namespace cdxservice {

namespace json = boost::json;

namespace {

Response problem(int status, std::string detail) {
    return Response::fromProblem({status, std::move(detail)});
}

std::string_view allowed(Route::Kind kind) {
    switch (kind) {
    case Route::Kind::List:
        return "GET, HEAD, POST";
    case Route::Kind::Element:
        return "GET, HEAD, PATCH, DELETE";
    case Route::Kind::Session:
        return "POST";
    default:
        return "GET, HEAD";
    }
}

bool writesDocument(const Route& route, const RequestHead& head) {
    return (route.kind == Route::Kind::List && head.method == "POST") ||
           (route.kind == Route::Kind::Element && head.method == "PATCH");
}

/// JSON in UTF-8, or for a PATCH the merge patch that it is.
bool isDocumentType(const RequestHead& head) {
    const auto field = head.value("Content-Type");
    if (!field || head.count("Content-Type") != 1) {
        return false;
    }
    const auto semicolon = std::min(field->find(';'), field->size());
    const std::string_view type = trimmed(field->substr(0, semicolon));
    const bool known = equalsIgnoringCase(type, "application/json") ||
                       (head.method == "PATCH" && equalsIgnoringCase(type, "application/merge-patch+json"));
    if (!known) {
        return false;
    }
    const auto parameters = parseParameters(field->substr(semicolon));
    const auto isAcceptable = [](const Parameter& parameter) {
        return parameter.name.empty() || (parameter.value && (!equalsIgnoringCase(parameter.name, "charset") ||
                                                              equalsIgnoringCase(*parameter.value, "utf-8")));
    };
    return parameters && std::all_of(parameters->begin(), parameters->end(), isAcceptable);
}

/// Whether one of a list of entity tags is this one. `weak`: those marked as weak count too.
bool listsTag(const std::string& list, const std::string& tag, bool weak) {
    if (list == "*") {
        return true;
    }
    for (std::string_view member : splitList(list)) {
        if (weak && member.substr(0, 2) == "W/") {
            member.remove_prefix(2);
        }
        if (member == tag) {
            return true;
        }
    }
    return false;
}

} // namespace

std::string Router::etag(const Element& element) const {
    std::string tag = "\"" + m_exchange.epoch() + "-";
    writeJsonInteger(tag, element.revision());
    tag.push_back('"');
    return tag;
}

Router::Verdict Router::judge(const RequestHead& head, bool surplus) {
    Route route = findRoute(head.path);
    const bool beginsSession = route.kind == Route::Kind::Session && head.method == "POST";
    if (auto refusal = m_access.refuse(head, beginsSession)) {
        return std::move(*refusal);
    }
    if (head.isUpgrade()) {
        Verdict verdict = judgeUpgrade(route, head);
        if (surplus && !std::holds_alternative<Upgrade>(verdict)) {
            return problem(503, "too many connections");
        }
        return verdict;
    }
    if (surplus) {
        return problem(503, "too many connections");
    }
    const bool noSessions = route.kind == Route::Kind::Session && !m_access.asksForToken();
    if (route.kind == Route::Kind::Unknown || noSessions) {
        return problem(404, "there is nothing at this address");
    }
    m_exchange.expire();
    if (route.kind == Route::Kind::Element && !m_exchange.resource(route.resource).find(route.id)) {
        return problem(404, "there is no such element");
    }
    if (auto refusal = checkMethod(route, head)) {
        return std::move(*refusal);
    }
    if (auto refusal = checkElement(route, head)) {
        return std::move(*refusal);
    }
    if (head.body == RequestHead::Body::Sized && head.length > m_maxBodyBytes) {
        return problem(413, "the body is too large");
    }
    return Proceed{std::move(route)};
}

std::optional<Response> Router::checkMethod(const Route& route, const RequestHead& head) const {
    const std::string_view methods = allowed(route.kind);
    const auto members = splitList(methods);
    if (std::find(members.begin(), members.end(), head.method) == members.end()) {
        Response response = problem(405, "the address has no such method");
        response.addHeader("Allow", methods);
        return response;
    }
    if (writesDocument(route, head) && !isDocumentType(head)) {
        return problem(415, head.method == "PATCH" ? "a change is application/merge-patch+json or application/json"
                                                   : "an element is application/json");
    }
    return std::nullopt;
}

/// Existence and precondition of the element that a request is about.
std::optional<Response> Router::checkElement(const Route& route, const RequestHead& head) {
    if (route.kind != Route::Kind::Element) {
        return std::nullopt;
    }
    const ElementPtr element = m_exchange.resource(route.resource).find(route.id);
    if (!element) {
        return problem(404, "there is no such element");
    }
    const auto names = [&](const char* field, bool weak) {
        return listsTag(head.combined(field), etag(*element), weak);
    };
    const bool other = head.value("If-Match") && !names("If-Match", false);
    const bool unwanted = head.value("If-None-Match") && names("If-None-Match", true);
    if (!head.reads() && (other || unwanted)) {
        return problem(412, "the element is not in a state that was asked for");
    }
    return std::nullopt;
}

Router::Verdict Router::judgeUpgrade(const Route& route, const RequestHead& head) const {
    if (route.kind != Route::Kind::Service) {
        return problem(404, "there is no channel at this address");
    }
    const auto version = head.value("Sec-WebSocket-Version");
    if (version && (*version != "13" || head.count("Sec-WebSocket-Version") != 1)) {
        Response response = problem(426, "the channel speaks version 13 of the WebSocket protocol");
        response.addHeader("Upgrade", "websocket");
        response.offersUpgrade = true;
        response.addHeader("Sec-WebSocket-Version", "13");
        return response;
    }
    const auto key = head.value("Sec-WebSocket-Key");
    if (!version || !key || !isWebSocketKey(*key) || head.count("Sec-WebSocket-Key") != 1 || head.hasBody()) {
        return problem(400, "this is no opening handshake of a WebSocket");
    }
    if (!head.query.empty()) {
        return problem(400, "the channel's address has no query");
    }
    if (!offersChannel(head)) {
        return problem(400, "the subprotocol cdx.v1 is not offered");
    }
    return Upgrade{acceptUpgrade(*key)};
}

Response Router::handle(const Route& route, const RequestHead& head, std::string_view body) {
    m_exchange.expire();
    if (auto refusal = checkElement(route, head)) {
        return std::move(*refusal);
    }
    const bool takesQuery = route.kind == Route::Kind::List && head.reads();
    if (!takesQuery && !head.query.empty()) {
        return problem(400, "the address has no query");
    }
    switch (route.kind) {
    case Route::Kind::Service:
        return answerService();
    case Route::Kind::Registry:
        return answerRegistry(head);
    case Route::Kind::Health:
        return answerHealth();
    case Route::Kind::Session: {
        Response response;
        response.status = 204;
        response.addHeader("Set-Cookie", m_access.sessionCookie());
        return response;
    }
    case Route::Kind::List:
        return head.reads() ? answerList(route, head) : write(route, head, body);
    default:
        break;
    }
    const ElementPtr element = m_exchange.resource(route.resource).find(route.id);
    if (head.method == "PATCH") {
        return write(route, head, body);
    }
    if (head.method == "DELETE") {
        if (auto refusal = m_exchange.remove(route.resource, element)) {
            return Response::fromProblem(*refusal);
        }
        Response response;
        response.status = 204;
        return response;
    }
    const bool known = head.value("If-None-Match") && listsTag(head.combined("If-None-Match"), etag(*element), true);
    return answerElement(element, known ? 304 : 200);
}

Response Router::write(const Route& route, const RequestHead& head, std::string_view body) {
    unsigned char memory[8192];
    json::monotonic_resource arena(memory, sizeof memory);
    std::string wrong;
    const auto document = readStrictJson(body, &arena, wrong);
    if (!document) {
        return problem(400, "the body is not JSON as it is read here: " + wrong);
    }
    if (!document->is_object()) {
        return problem(400, "the body is no JSON object");
    }
    const auto result = head.method == "POST"
                            ? m_exchange.post(route.resource, document->get_object(), body.size())
                            : m_exchange.patch(route.resource, m_exchange.resource(route.resource).find(route.id),
                                               document->get_object(), body.size());
    if (const Problem* refusal = std::get_if<Problem>(&result)) {
        return Response::fromProblem(*refusal);
    }
    const auto& written = std::get<Exchange::Written>(result);
    Response response = answerElement(written.element, written.created ? 201 : 200);
    if (written.created) {
        response.addHeader("Location", written.element->uri());
    }
    return response;
}

Response Router::answerElement(const ElementPtr& element, int status) const {
    Response response;
    response.status = status;
    response.addHeader("ETag", etag(*element));
    response.addBody(element->json(), element);
    return response;
}

Response Router::answerList(const Route& route, const RequestHead& head) const {
    const Resource& resource = m_exchange.resource(route.resource);
    const auto parsed = Query::parse(resource.schema(), head.query);
    if (const Problem* refusal = std::get_if<Problem>(&parsed)) {
        return Response::fromProblem(*refusal);
    }
    const Query& query = std::get<Query>(parsed);
    Query::Page page = query.select(resource.log());

    Response response;
    if (page.cut) {
        std::string link = "<" + elementUri(resource.schema(), "");
        link.pop_back();
        link.append("?").append(query.next()).append(">; rel=\"next\"");
        response.addHeader("Link", link);
    }
    response.list.emplace(resource.schema(), std::move(page.elements), query.fields());
    return response;
}

Response Router::answerService() const {
    std::string text = "{\"name\":";
    writeJsonString(text, serviceName);
    text.append(",\"version\":\"" CDX_SERVICE_VERSION "\",\"epoch\":");
    writeJsonString(text, m_exchange.epoch());
    text.append(",\"resources\":{");
    for (std::size_t i = 0; i < resourceCount; ++i) {
        const Resource& resource = m_exchange.resource(i);
        text.append(i == 0 ? "" : ",");
        writeJsonString(text, resource.schema().name);
        text.append(":{\"elements\":");
        writeJsonInteger(text, static_cast<std::uint64_t>(resource.size()));
        text.append(",\"revision\":");
        writeJsonInteger(text, resource.log().latest());
        text.append("}");
    }
    text.append("}}");
    Response response;
    response.addBody(std::move(text));
    return response;
}

Response Router::answerRegistry(const RequestHead& head) const {
    std::string text = "{\"name\":";
    writeJsonString(text, serviceName);
    text.append(",\"uri\":");
    std::string uri(m_access.scheme());
    writeJsonString(text, uri.append("://").append(head.host));
    text.append("}");
    Response response;
    response.addBody(std::move(text));
    return response;
}

Response Router::answerHealth() {
    if (!m_exchange.answers()) {
        return problem(503, "the store is away");
    }
    Response response;
    response.addBody("{\"status\":\"ok\"}");
    return response;
}

} // namespace cdxservice
