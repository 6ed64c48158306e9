#ifndef SERVICE_SRC_HANDSHAKE_H
#define SERVICE_SRC_HANDSHAKE_H

#include "RequestHead.h"

#include <string>
#include <string_view>

namespace cdxservice {

/// The subprotocol of a channel.
constexpr std::string_view channelProtocol = "cdx.v1";

/// Whether a WebSocket opening handshake offers channelProtocol.
bool offersChannel(const RequestHead& head);

/// A "Sec-WebSocket-Key" as one is made: 16 bytes in Base64.
bool isWebSocketKey(std::string_view key);

/// The answer that accepts the handshake, with channelProtocol and no extension.
std::string acceptUpgrade(std::string_view key);

} // namespace cdxservice

#endif
