#include "ClientMessage.h"

#include "StrictJson.h"

#include <boost/json/monotonic_resource.hpp>
#include <boost/json/object.hpp>

#include <limits>

namespace cdxservice {

namespace json = boost::json;

namespace {

constexpr std::uint64_t highestNumber = (std::uint64_t(1) << 53) - 1;

std::optional<std::uint64_t> wholeNumber(const json::value* value, std::uint64_t highest) {
    if (value && value->is_uint64() && value->get_uint64() <= highest) {
        return value->get_uint64();
    }
    if (value && value->is_int64() && value->get_int64() >= 0) {
        const auto number = static_cast<std::uint64_t>(value->get_int64());
        return number <= highest ? std::optional<std::uint64_t>(number) : std::nullopt;
    }
    return std::nullopt;
}

std::optional<std::string> text(const json::value* value) {
    const json::string* string = value ? value->if_string() : nullptr;
    return string ? std::optional<std::string>(std::in_place, string->data(), string->size()) : std::nullopt;
}

bool onlyHas(const json::object& object, std::initializer_list<std::string_view> keys) {
    std::size_t known = 0;
    for (const std::string_view key : keys) {
        known += object.contains(key) ? 1 : 0;
    }
    return known == object.size();
}

std::optional<Problem> readSubscription(const json::object& object, ClientMessage& out) {
    if (!onlyHas(object, {"op", "sub", "resource", "id", "since"})) {
        return Problem{400, "the message has an unknown member"};
    }
    const auto resource = text(object.if_contains("resource"));
    if (!resource) {
        return Problem{400, "\"resource\" is the name of a resource", "/resource"};
    }
    out.resource = *resource;
    if (const json::value* id = object.if_contains("id")) {
        out.id = text(id);
        if (!out.id || !isElementId(*out.id)) {
            return Problem{400, "\"id\" is the id of an element", "/id"};
        }
    }
    if (const json::value* since = object.if_contains("since")) {
        const json::object* position = since->if_object();
        const auto epoch = position ? text(position->if_contains("epoch")) : std::nullopt;
        const auto revision = position
                                  ? wholeNumber(position->if_contains("rev"), std::numeric_limits<std::uint64_t>::max())
                                  : std::nullopt;
        if (!epoch || !revision || !onlyHas(*position, {"epoch", "rev"})) {
            return Problem{400, "\"since\" is an epoch and a revision", "/since"};
        }
        out.since = ClientMessage::Since{*epoch, *revision};
    }
    return std::nullopt;
}

} // namespace

ClientMessage readClientMessage(std::string_view message) {
    ClientMessage result;
    unsigned char memory[2048];
    json::monotonic_resource arena(memory, sizeof memory);
    std::string wrong;
    const auto value = readStrictJson(message, &arena, wrong);
    if (!value || !value->is_object()) {
        result.problem = Problem{400, "the message is no JSON object" + (wrong.empty() ? "" : ": " + wrong)};
        return result;
    }
    const json::object& object = value->get_object();
    const auto op = text(object.if_contains("op"));
    const auto sub = wholeNumber(object.if_contains("sub"), highestNumber);
    if (!op || (*op != "subscribe" && *op != "unsubscribe") || !sub) {
        result.problem = Problem{400, "the message has no \"op\" that is known, or no \"sub\" that is a number"};
        return result;
    }
    result.readable = true;
    result.subscribes = *op == "subscribe";
    result.sub = *sub;
    if (result.subscribes) {
        result.problem = readSubscription(object, result);
    } else if (!onlyHas(object, {"op", "sub"})) {
        result.problem = Problem{400, "the message has an unknown member"};
    }
    return result;
}

std::string writeSubscribed(std::uint64_t sub, std::string_view epoch, bool resumed) {
    std::string message = "{\"op\":\"subscribed\",\"sub\":";
    writeJsonInteger(message, sub);
    message.append(",\"epoch\":");
    writeJsonString(message, epoch);
    message.append(resumed ? ",\"resumed\":true}" : ",\"resumed\":false}");
    return message;
}

std::string writeError(std::optional<std::uint64_t> sub, const Problem& problem) {
    std::string message = "{\"op\":\"error\"";
    if (sub) {
        message.append(",\"sub\":");
        writeJsonInteger(message, *sub);
    }
    message.append(",\"status\":");
    writeJsonInteger(message, static_cast<std::int64_t>(problem.status));
    message.append(",\"title\":");
    writeJsonString(message, reasonPhrase(problem.status));
    message.append(",\"detail\":");
    writeJsonString(message, problem.detail);
    message.push_back('}');
    return message;
}

} // namespace cdxservice
