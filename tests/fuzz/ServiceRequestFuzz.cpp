// Whole requests of a client, one behind the other, to a service: addresses, queries, hosts, tokens, bodies. What is
// held: each has an answer that is JSON where it has a body, a refusal says its status, and what is stored stays in
// order.
#include "ChunkDecoder.h"
#include "Hold.h"
#include "Router.h"
#include "Schema.h"
#include "StrictJson.h"

#include <cdxservice/Clock.h>

#include <set>
#include <string>

namespace {

using cdxfuzz::hold;
using namespace cdxservice;

constexpr std::size_t maxBody = 2048;

struct Service {
    Service() {
        exchange.attach({}, std::make_shared<Clock>(), maxBody);
        post("cdxConfig", R"({"id":"a","name":"n"})");
        post("cdxMasterControls", R"({"id":"b","name":"client"})");
        post("cdxData", R"({"id":"c","name":"client","eventId":"e"})");
    }
    void post(const char* resource, const std::string& body) {
        std::string problem;
        exchange.post(*findResource(resource), readStrictJson(body, {}, problem)->as_object(), body.size());
    }

    Exchange exchange{nullptr, 3};
    const Access access{{"127.0.0.1", {"car"}, "", false}};
    const Access guarded{{"127.0.0.1", {"car"}, "token", true}};
    Router router{exchange, access, maxBody};
    Router guardedRouter{exchange, guarded, maxBody};
};

void check(Response response, Framing framing) {
    hold(response.status >= 200 && response.status < 600, "an answer has a status");
    OutBuffer out;
    const bool hasList = response.list.has_value();
    writeResponse(out, response, framing);
    std::string text;
    for (const auto& part : out.view())
        text.append(static_cast<const char*>(part.data()), part.size());
    const auto head = text.find("\r\n\r\n");
    hold(head != std::string::npos, "an answer has a head");
    std::string body = text.substr(head + 4);
    if (hasList && !framing.withoutBody) {
        OutBuffer list;
        const auto announced = response.list->remaining();
        while (response.list->write(list, 100'000)) {
        }
        for (const auto& part : list.view())
            body.append(static_cast<const char*>(part.data()), part.size());
        hold(body.size() == announced, "a list has the length that was announced");
    }
    if (body.empty())
        return;
    std::string problem;
    const auto json = readStrictJson(body, {}, problem);
    hold(json.has_value(), "a body is JSON");
    if (response.status >= 400)
        hold(json->is_object() && json->as_object().at("status") == response.status, "a refusal says its status");
}

/// Whether there may be another request behind it; takes it off `rest`.
bool answerNext(Service& service, std::string_view& rest) {
    HeadParser parser;
    if (parser.read(rest) != HeadParser::State::Complete) {
        return false;
    }
    const RequestHead& head = parser.head();
    rest.remove_prefix(parser.size());
    std::string body;
    if (head.body == RequestHead::Body::Chunked) {
        ChunkDecoder decoder(maxBody);
        std::size_t used = 0;
        if (decoder.read(rest, used) != ChunkDecoder::State::Complete)
            return false;
        body = decoder.body();
        rest.remove_prefix(used);
    } else if (head.body == RequestHead::Body::Sized) {
        if (head.length > maxBody || head.length > rest.size())
            return false;
        body = rest.substr(0, head.length);
        rest.remove_prefix(head.length);
    }
    const Framing framing{head.isHead(), !head.keepAlive, head.http10};
    auto guarded = service.guardedRouter.judge(head, false);
    if (auto* refusal = std::get_if<Response>(&guarded))
        check(std::move(*refusal), framing);
    auto verdict = service.router.judge(head, false);
    if (auto* refusal = std::get_if<Response>(&verdict)) {
        check(std::move(*refusal), framing);
    } else if (const auto* upgrade = std::get_if<Router::Upgrade>(&verdict)) {
        hold(upgrade->answer.compare(0, 12, "HTTP/1.1 101") == 0, "an upgrade is accepted as such");
        return false;
    } else {
        check(service.router.handle(std::get<Router::Proceed>(verdict).route, head, body), framing);
    }
    return head.keepAlive;
}

void checkStored(const Exchange& exchange) {
    for (std::size_t index = 0; index < schema().size(); ++index) {
        const Resource& resource = exchange.resource(index);
        std::set<std::string_view> names;
        for (const auto& [revision, element] : resource.log().elements()) {
            hold(revision == element->revision() && revision <= resource.log().latest(), "revisions rise");
            const Route route = findRoute(element->uri());
            hold(route.kind == Route::Kind::Element && route.resource == index && route.id == element->id(),
                 "an element is at its address");
            if (resource.schema().oneOfEachName && !element->name().empty())
                hold(names.insert(element->name()).second, "names that are unique are");
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(data, data + size);
    Service service;
    std::string_view rest = bytes;
    while (answerNext(service, rest)) {
    }
    checkStored(service.exchange);
    return 0;
}
