// What a service sends to the framework over its channel, and what a registry answers. What is held: nothing but a
// std::exception comes of a bad one, and a good one has what its kind needs.
#include "ChannelMessages.h"
#include "Hold.h"
#include "Uri.h"

#include <xalutil/Json.h>

#include <exception>
#include <string>

namespace {

using cdxfuzz::hold;

void readMessage(const std::string& text) {
    const auto parser = xalutil::JsonFactory::createJsonParser();
    try {
        const xal::ChannelMessage message = xal::decodeMessage(*parser, text);
        hold(message.number.has_value() || message.operation == xal::ChannelMessage::ERROR, "a message has its number");
        if (message.operation == xal::ChannelMessage::EVENT)
            hold(message.event.has_value() || !message.text.empty(), "an event that cannot be used has its reason");
        hold(message.previous >= 0 && message.revision >= 0, "revisions are not negative");
    } catch (const std::exception&) {
    }
}

void readRegistryAnswer(const std::string& text) {
    try {
        const auto answer = xalutil::JsonFactory::createJsonParser()->parse(text).asObject();
        hold(!xal::Uri::parse(answer->getString("uri")).host.empty(), "an address has a host");
    } catch (const std::exception&) {
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(data, data + size);
    readMessage(text);
    readRegistryAnswer(text);
    return 0;
}
