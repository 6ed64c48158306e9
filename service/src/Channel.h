#ifndef SERVICE_SRC_CHANNEL_H
#define SERVICE_SRC_CHANNEL_H

#include "ClientMessage.h"
#include "Connection.h"
#include "Frames.h"
#include "OutBuffer.h"
#include "Subscriptions.h"
#include "Transport.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace cdxservice {

class ServerCore;

/// A WebSocket connection with its subscriptions.
///
/// Writing pulls: whenever the socket takes more, the next messages are made from the subscriptions' positions. Answers
/// wait in a buffer of their own; while that is long the client is not read, so a client that does not read either
/// costs a bounded amount of memory.
class Channel : public Connection {
public:
    /// `out` holds what must be sent first, the answer to the upgrade last.
    Channel(ServerCore& core, std::unique_ptr<Transport> transport, OutBuffer out);

    /// `received` came behind the upgrade. `tooMany`: the channel only says so.
    void start(std::string_view received, bool tooMany);
    void checkTime(Time now) override;
    void stop() override;
    void close() override;
    void wake() override;
    std::size_t held() const override;

private:
    enum class Phase {
        Open,
        Ending,   ///< A close frame waits to be sent, or is on its way.
        Draining, ///< It was sent; the peer's end is awaited.
        Closed
    };

    void read();
    void take(std::string_view input);
    void takeMessage(std::string_view text);
    void subscribe(ClientMessage message);
    void reply(std::string_view message);
    void end(CloseCode code);
    void beginWriting();
    void taken(Time when);
    void write();
    void written();
    void resumeReading();
    bool fill();
    void takeAnotherTurn();

    ServerCore& m_core;
    std::unique_ptr<Transport> m_transport;
    Phase m_phase = Phase::Open;
    FrameReader m_frames;
    std::array<char, 2048> m_in;
    std::string m_replies; ///< Whole frames, sent before any event.
    OutBuffer m_out;
    bool m_reading = false;
    bool m_writing = false;
    Subscriptions m_subscriptions;
    bool m_turnDue = false; ///< Subscriptions wait to be looked at.
    std::optional<std::uint64_t> m_highestSub;
    Time m_endingSince;
    Time m_lastTaken; ///< When the peer last took bytes, or there began to be some to take.
};

} // namespace cdxservice

#endif
