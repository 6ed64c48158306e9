#ifndef SERVICE_SRC_HTTPSESSION_H
#define SERVICE_SRC_HTTPSESSION_H

#include "ChunkDecoder.h"
#include "Connection.h"
#include "ListBody.h"
#include "OutBuffer.h"
#include "RequestHead.h"
#include "Router.h"
#include "Transport.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace cdxservice {

class ServerCore;

/// One connection that speaks HTTP: requests are read and answered one after the other, also such as come before the
/// answer to the last one has gone. Holds no more than the request at hand and the answers that the peer has not taken.
class HttpSession : public Connection {
public:
    HttpSession(ServerCore& core, std::unique_ptr<Transport> transport);

    void start();
    void checkTime(Time now) override;
    void stop() override;
    void close() override;
    std::size_t held() const override;

private:
    enum class Phase {
        Head,     ///< A request's head is read, or awaited.
        Body,     ///< Its body is read.
        Skip,     ///< It was answered before its body came, which is dropped.
        Ending,   ///< The last answer goes out.
        Draining, ///< It went out; what still comes is dropped, so that the peer can read it.
        Closed
    };

    void read();
    void received(std::size_t bytes);
    template <class Step>
    void takeTurn(Step step);
    bool isTurnOver() const;
    void process();
    bool processHead();
    bool processBody();
    bool takeBody(std::string_view& body);
    void judge();
    Response handle(const RequestHead& head, std::string_view body);
    void answer(Response response, bool close);
    bool continueList();
    void endRequest();
    void upgrade(const Router::Upgrade& upgrade);
    void write();
    bool sent(std::size_t bytes, Time when);
    void written();
    void drain();

    std::string_view unread() const { return std::string_view(m_in).substr(m_begin, m_end - m_begin); }
    void consume(std::size_t bytes);
    void moved(Time when);

    ServerCore& m_core;
    std::unique_ptr<Transport> m_transport;
    Phase m_phase = Phase::Head;
    std::string m_in; ///< Received bytes are those from m_begin to m_end.
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
    HeadParser m_parser;
    Route m_route;
    std::optional<ChunkDecoder> m_chunks;
    std::uint64_t m_skip = 0;
    OutBuffer m_out;
    std::optional<ListBody> m_list; ///< What of the last answer has not been written to m_out.
    bool m_writing = false;
    bool m_reading = false;
    std::chrono::steady_clock::time_point m_turnEnds;
    Time m_lastByte;
    std::optional<Time> m_requestBegan;
};

} // namespace cdxservice

#endif
