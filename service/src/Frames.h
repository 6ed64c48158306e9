#ifndef SERVICE_SRC_FRAMES_H
#define SERVICE_SRC_FRAMES_H

#include "Utf8.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace cdxservice {

/// Close codes of WebSocket that the service sends.
enum class CloseCode : std::uint16_t {
    Normal = 1000,
    Stopping = 1001,
    Framing = 1002,
    Binary = 1003,
    NoCode = 1005, ///< Never on the wire: a close frame without one.
    NotUtf8 = 1007,
    NotReadable = 1008,
    TooLarge = 1009,
    TooMany = 1013
};

/// Reads WebSocket frames from a client (RFC 6455) out of a stream that comes in pieces, strictly: whatever a client
/// must not send is a failure at the first byte that shows it.
class FrameReader {
public:
    struct Event {
        enum class Kind { More, Message, Ping, Close, Failure };
        Kind kind = Kind::More;
        CloseCode code = CloseCode::Normal; ///< Of a failure, to be sent; of a close frame, the peer's.
        std::string_view payload;           ///< A message or a ping; valid until the next call.
    };

    explicit FrameReader(std::size_t maxMessageBytes) : m_maxMessageBytes(maxMessageBytes) {}

    /// Takes bytes off the front of `input` up to the next event; More once it is empty.
    Event next(std::string_view& input);

    /// The memory of an unfinished message.
    std::size_t held() const { return m_message.capacity(); }

private:
    Event failure(CloseCode code) { return {Event::Kind::Failure, code, {}}; }
    bool takeHeader(std::string_view& input, Event& out);
    Event checkHeader();
    Event finishFrame();
    Event finishClose();
    std::size_t headerSize() const;
    bool isControl() const { return (m_opcode & 8) != 0; }

    std::size_t m_maxMessageBytes;
    std::array<unsigned char, 14> m_header = {};
    std::size_t m_headerRead = 0;
    bool m_inPayload = false;
    bool m_final = false;
    unsigned m_opcode = 0;
    std::uint64_t m_remaining = 0;
    std::array<unsigned char, 4> m_mask = {};
    std::size_t m_maskAt = 0;
    bool m_inMessage = false;
    bool m_messageTaken = false;
    std::string m_message;
    Utf8Checker m_utf8;
    std::string m_control;
};

/// Appends the header of a whole, unmasked frame: text, close or pong.
enum class Opcode : unsigned char { Text = 1, Close = 8, Pong = 10 };
void writeFrameHeader(std::string& out, Opcode opcode, std::size_t payloadBytes);
void writeCloseFrame(std::string& out, CloseCode code);

} // namespace cdxservice

#endif
