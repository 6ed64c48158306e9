#ifndef XAL_CHANNELMESSAGES_H
#define XAL_CHANNELMESSAGES_H

#include "ActiveSubscription.h"

#include <xalutil/Json.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace xal {

std::string encodeSubscribe(const SubscribeRequest& request, std::int64_t number, const std::optional<Position>& since);
std::string encodeUnsubscribe(std::int64_t number);

/// One message of a service, as far as its own members go. What is inside an element is not looked at.
struct ChannelMessage {
    enum Operation { SUBSCRIBED, EVENT, CURRENT, ERROR } operation = EVENT;
    std::optional<std::int64_t> number; ///< there is always one but in an ERROR
    std::string epoch;                  ///< SUBSCRIBED
    bool isResumed = false;             ///< SUBSCRIBED
    std::int64_t previous = 0;          ///< EVENT, CURRENT
    std::int64_t revision = 0;          ///< EVENT, CURRENT
    /// EVENT: what happened. Empty, with the reason in `text`, where it cannot be used.
    std::optional<Event> event;
    int status = 0;   ///< ERROR
    std::string text; ///< ERROR: title and detail, as far as there are any
};

/// Throws a std::exception that says what is wrong: not JSON, no object, an unknown operation, a member that is missing
/// or of another type. Unknown members are passed over. Of an event that is unreadable only inside of its members, the
/// place in the order is read: without it, it would come again for ever.
ChannelMessage decodeMessage(const xalutil::JsonParser& parser, const std::string& text);

} // namespace xal

#endif
