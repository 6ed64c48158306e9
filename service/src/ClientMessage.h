#ifndef SERVICE_SRC_CLIENTMESSAGE_H
#define SERVICE_SRC_CLIENTMESSAGE_H

#include "Element.h"
#include "Problem.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace cdxservice {

/// What a client says on a channel.
struct ClientMessage {
    struct Since {
        std::string epoch;
        Revision revision = 0;
    };

    bool readable = false;   ///< Otherwise only `problem` says something, and the channel ends.
    bool subscribes = false; ///< Otherwise it unsubscribes.
    std::uint64_t sub = 0;
    std::string resource;
    std::optional<std::string> id;
    std::optional<Since> since;
    std::optional<Problem> problem; ///< A message with a wrong member is refused, but readable.
};

ClientMessage readClientMessage(std::string_view text);

/// The messages to a client, but for events, as JSON.
std::string writeSubscribed(std::uint64_t sub, std::string_view epoch, bool resumed);
std::string writeError(std::optional<std::uint64_t> sub, const Problem& problem);

} // namespace cdxservice

#endif
