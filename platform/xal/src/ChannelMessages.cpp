#include "ChannelMessages.h"

#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>

#include <new>
#include <stdexcept>

namespace xal {
namespace {

constexpr std::size_t longestEpoch = 1024;
constexpr std::int64_t largestNumber = (std::int64_t(1) << 53) - 1;

std::int64_t readNumber(const xalutil::JsonObject& json, const char* key) {
    const std::int64_t number = json.getInt64(key);
    if (number < 0 || number > largestNumber)
        throw std::runtime_error(std::string(key) + " is out of range");
    return number;
}

std::string readText(const xalutil::JsonObject& json, const char* key) {
    try {
        return json.has(key) ? json.getString(key) : std::string();
    } catch (const std::exception&) {
        return {}; // only for people to read
    }
}

void readEvent(const xalutil::JsonObject& json, ChannelMessage& message) {
    message.previous = readNumber(json, "prev");
    message.revision = readNumber(json, "rev");
    try {
        const bool isRemoval = json.has("removed");
        if (isRemoval == json.has("element"))
            throw std::runtime_error("an event has either an element or a removed id");
        Event event;
        event.kind = isRemoval ? Event::REMOVED : Event::CHANGED;
        if (isRemoval)
            event.id = json.getString("removed");
        else
            event.element = json.getObject("element");
        message.event = std::move(event);
    } catch (const std::bad_alloc&) {
        throw; // says nothing about the event
    } catch (const std::exception& e) {
        message.text = e.what();
    }
}

void readError(const xalutil::JsonObject& json, ChannelMessage& message) {
    const std::int64_t status = json.getInt64("status");
    if (status < 400 || status > 599)
        throw std::runtime_error("status " + std::to_string(status) + " is none of a refusal");
    message.status = static_cast<int>(status);
    message.text = readText(json, "title");
    if (const std::string detail = readText(json, "detail"); !detail.empty())
        message.text += (message.text.empty() ? "" : ": ") + detail;
}

ChannelMessage readMessage(const xalutil::JsonObject& json) {
    const std::string operation = json.getString("op");
    ChannelMessage message;
    if (operation != "error" || json.has("sub"))
        message.number = readNumber(json, "sub");
    if (operation == "event") {
        message.operation = ChannelMessage::EVENT;
        readEvent(json, message);
    } else if (operation == "current") {
        message.operation = ChannelMessage::CURRENT;
        message.previous = readNumber(json, "prev");
        message.revision = readNumber(json, "rev");
    } else if (operation == "subscribed") {
        message.operation = ChannelMessage::SUBSCRIBED;
        message.epoch = json.getString("epoch");
        // It is sent back, in a message of at most 64 KiB.
        if (message.epoch.size() > longestEpoch)
            throw std::runtime_error("epoch is too long");
        message.isResumed = json.getBool("resumed");
    } else if (operation == "error") {
        message.operation = ChannelMessage::ERROR;
        readError(json, message);
    } else {
        throw std::runtime_error("unknown operation \"" + operation + "\"");
    }
    return message;
}

/// The text with null for all that is nested in the outermost object.
std::string withoutNestedParts(const std::string& text) {
    std::string outermost;
    std::size_t depth = 0;
    bool isInString = false, isEscaped = false;
    for (const char c : text) {
        const std::size_t before = depth;
        if (isInString) {
            isInString = isEscaped || c != '"';
            isEscaped = !isEscaped && c == '\\';
        } else if (c == '"') {
            isInString = true;
        } else if (c == '{' || c == '[') {
            ++depth;
        } else if ((c == '}' || c == ']') && depth > 0) {
            --depth;
        }
        if (before == 1 && depth == 2)
            outermost += "null";
        else if (before <= 1)
            outermost += c;
    }
    return outermost;
}

/// An event of which only the place in the order can be read; nothing where not even that can be.
std::optional<ChannelMessage> readPlace(const xalutil::JsonParser& parser, const std::string& text) {
    try {
        auto message = readMessage(*parser.parse(withoutNestedParts(text)).asObject());
        message.event.reset();
        if (message.operation == ChannelMessage::EVENT)
            return message;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception&) {
        // Why the text cannot be read is known already.
    }
    return std::nullopt;
}

} // namespace

std::string encodeSubscribe(const SubscribeRequest& request, std::int64_t number,
                            const std::optional<Position>& since) {
    boost::json::object message{{"op", "subscribe"}, {"sub", number}, {"resource", request.resourceName}};
    if (request.kind == SubscribeRequest::ELEMENT)
        message["id"] = request.id;
    if (since)
        message["since"] = boost::json::object{{"epoch", since->epoch}, {"rev", since->revision}};
    return boost::json::serialize(message);
}

std::string encodeUnsubscribe(std::int64_t number) {
    return boost::json::serialize(boost::json::object{{"op", "unsubscribe"}, {"sub", number}});
}

ChannelMessage decodeMessage(const xalutil::JsonParser& parser, const std::string& text) {
    std::shared_ptr<xalutil::JsonObject> json;
    try {
        json = parser.parse(text).asObject();
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& e) {
        auto message = readPlace(parser, text);
        if (!message)
            throw;
        message->text = e.what();
        return *message;
    }
    return readMessage(*json);
}

} // namespace xal
