// What a client sends to the service over its channel: frames, and the messages in them. What is held: the same comes
// of them whether they come at once or byte by byte, and every message is read or has a problem that says why not.
#include "ClientMessage.h"
#include "Frames.h"
#include "Hold.h"

#include <string>
#include <vector>

namespace {

using cdxfuzz::hold;
using namespace cdxservice;

std::vector<std::string> eventsOf(const std::string& bytes, std::size_t slice) {
    FrameReader reader(4096);
    std::vector<std::string> events;
    for (std::size_t at = 0; at < bytes.size(); at += slice) {
        std::string_view input = std::string_view(bytes).substr(at, slice);
        for (;;) {
            const FrameReader::Event event = reader.next(input);
            if (event.kind == FrameReader::Event::Kind::More)
                break;
            events.push_back(std::to_string(static_cast<int>(event.kind)) + " " +
                             std::to_string(static_cast<int>(event.code)) + " " + std::string(event.payload));
            if (event.kind == FrameReader::Event::Kind::Close || event.kind == FrameReader::Event::Kind::Failure)
                return events;
            if (event.kind == FrameReader::Event::Kind::Message) {
                const ClientMessage message = readClientMessage(event.payload);
                hold(message.readable || message.problem.has_value(), "what is not readable has its reason");
            }
        }
    }
    return events;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(data, data + size);
    hold(eventsOf(bytes, bytes.size() + 1) == eventsOf(bytes, 1), "frames are the same however they come");
    return 0;
}
