#ifndef CDXTESTS_SUPPORT_WEBSOCKETFRAMES_H
#define CDXTESTS_SUPPORT_WEBSOCKETFRAMES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace cdxtest {

/// What a frame's first byte says its payload is. Any other number up to 15 can be sent too.
struct Opcode {
    static constexpr unsigned continuation = 0;
    static constexpr unsigned text = 1;
    static constexpr unsigned binary = 2;
    static constexpr unsigned close = 8;
    static constexpr unsigned ping = 9;
    static constexpr unsigned pong = 10;
};

/// One WebSocket frame with everything about it open to choice, so that a test can send the wrong one.
struct Frame {
    unsigned opcode = Opcode::text;
    std::string payload = {};
    bool fin = true;
    unsigned reserved = 0;                           ///< the three reserved bits as a number from 0 to 7
    std::optional<bool> masked = {};                 ///< absent: as the sender's side must
    unsigned lengthBytes = 0;                        ///< 0: the shortest form; 2 or 8: that form, whatever the length
    std::optional<std::uint64_t> claimedLength = {}; ///< stands in the header instead of the payload's length
};

/// `masking`: what the sender's side must do, where the frame itself does not say.
std::string encode(const Frame& frame, bool masking);

/// Takes one whole frame, unmasked, from the front of `bytes`; empty when it is not all there.
std::optional<Frame> takeFrame(std::string& bytes);

std::string closePayload(unsigned code, std::string_view reason = {});
/// The close frame's code; 1005 where it has none.
unsigned closeCode(const Frame& close);

/// What the server must answer to the client's "Sec-WebSocket-Key".
std::string webSocketAccept(std::string_view key);

} // namespace cdxtest

#endif
