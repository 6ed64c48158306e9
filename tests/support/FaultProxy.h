#ifndef CDXTESTS_SUPPORT_FAULTPROXY_H
#define CDXTESTS_SUPPORT_FAULTPROXY_H

#include <support/Tcp.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace cdxtest {

/// Stands between clients and a service on loopback, and does to their connections what networks do.
///
/// One thread serves all connections; what it waits for are sockets and the times that the faults themselves ask for.
/// Every operation may be called from any thread, at any time, and holds from its return on for what arrives later.
class FaultProxy {
public:
    enum class Direction { ToServer, ToClient };
    enum class End {
        Close,   ///< both sides are told the end of the stream
        Reset,   ///< both sides are told a reset
        Silence, ///< nobody is told anything: nothing goes through any more, whoever waits waits
        Loss     ///< nothing goes through any more but each side's own end: what it sent before that is lost
    };

    /// How bytes travel, in either direction. The default is as fast as it goes.
    struct Travel {
        std::chrono::milliseconds latency{0};
        std::size_t bytesPerSecond = 0;         ///< 0: no limit
        std::size_t slice = 0;                  ///< bytes handed on at a time, each on its own; 0: what is there
        std::chrono::milliseconds slowClose{0}; ///< by how much the end of a stream is told later
    };

    /// Without a server, connections are reset until it is set.
    explicit FaultProxy(std::uint16_t serverPort = 0);
    ~FaultProxy();
    FaultProxy(const FaultProxy&) = delete;
    FaultProxy& operator=(const FaultProxy&) = delete;

    std::uint16_t port() const { return m_listener.port(); }
    /// Where connections made from now on lead to.
    void setServer(std::uint16_t port);
    void setTravel(const Travel& travel);

    /// The first connection on which `bytes` bytes went in this direction is ended just there; those behind them never
    /// arrive. Once. Counts what a connection carried before as well. Replaces an earlier cut that did not happen yet.
    void cut(Direction direction, std::size_t bytes, End end);
    /// Whether the last cut asked for has happened.
    bool hasCut() const { return cutAt() != std::chrono::steady_clock::time_point(); }
    /// When it happened; the clock's zero while it has not.
    std::chrono::steady_clock::time_point cutAt() const;

    /// Ends all connections that there are.
    void endAll(End end);
    /// Swallows connections made from now on: they are accepted and nothing comes of them.
    void swallow(bool on);
    /// Hangs up on connections made from now on: they are accepted and told the end of the stream. No reset follows,
    /// since what they send is taken until they end, too.
    void hangUp(bool on);
    /// From now on connections are refused by the system; those that there are go on.
    void refuse(bool on);

    struct Counts {
        std::size_t connections = 0; ///< accepted since the beginning
        std::size_t open = 0;        ///< of which the proxy still holds a side
        std::uint64_t toServer = 0;  ///< bytes handed on
        std::uint64_t toClient = 0;
    };
    Counts counts() const;
    /// Waits until the counts are as asked for; false when they are not by then.
    bool waitFor(const std::function<bool(const Counts&)>& reached, std::chrono::milliseconds within = patience) const;

private:
    using Time = std::chrono::steady_clock::time_point;
    struct Stream;
    struct Link;

    void run();
    void wake();
    Time serve();
    void acceptAll();
    void serveLink(Link& link, Time now, Time& next);
    void readFrom(Stream& stream, Time now);
    void discardFrom(Link& link, Time now);
    void handOn(Link& link, Stream& stream, Time now, Time& next);
    void end(Link& link, End how);
    std::size_t allowance(const Stream& stream) const;

    Listener m_listener;
    Descriptor m_wakeUp;

    mutable std::mutex m_mutex; ///< guards what follows; held by the thread while it works, not while it waits
    mutable std::condition_variable m_changed;
    std::uint16_t m_serverPort;
    Travel m_travel;
    struct Cut {
        Direction direction;
        std::size_t bytes;
        End end;
    };
    std::optional<Cut> m_cut;
    Time m_cutAt;
    bool m_swallow = false;
    bool m_hangUp = false;
    bool m_stopping = false;
    Counts m_counts;
    std::list<std::unique_ptr<Link>> m_links;

    std::thread m_thread;
};

} // namespace cdxtest

#endif
