#ifndef SERVICE_SRC_SERVERCORE_H
#define SERVICE_SRC_SERVERCORE_H

#include "Access.h"
#include "Connection.h"
#include "Exchange.h"
#include "Router.h"

#include <cdxservice/Server.h>

#include <boost/asio/io_context.hpp>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <memory>
#include <string>
#include <unordered_set>

namespace cdxservice {

/// What the connections of a running server share. Lives on the server's thread, from a start to the next stop.
class ServerCore {
public:
    ServerCore(boost::asio::io_context& io, const ServerOptions& options, Access::Rules rules);
    ~ServerCore();
    ServerCore(const ServerCore&) = delete;
    ServerCore& operator=(const ServerCore&) = delete;

    boost::asio::io_context& io;
    const ServerOptions& options;
    Exchange& exchange;
    const Access access;
    Router router;

    Connection::Time now() const { return m_clock->steady(); }
    void log(const std::string& line) const;
    /// Also when it is memory that is short.
    void logFailure(const char* what, const std::exception& failure) const noexcept;

    /// Connections from their acceptance to their end; a channel takes the place of the session that it was.
    void add(const std::shared_ptr<Connection>& connection);
    void replace(const std::shared_ptr<Connection>& session, const std::shared_ptr<Connection>& channel);
    void remove(const std::shared_ptr<Connection>& connection);
    /// Whether a connection accepted as one too many still is; otherwise it becomes one like all others.
    bool isSurplus(Connection& connection);

    /// What happens now and then: expired elements, connections whose time is over, those that hold too much together.
    void tick();
    /// A connection holds more than before; others may have to end for it, or itself.
    void grown(std::size_t bytes);
    /// Every connection ends; `idle` is called once none is left.
    void stop(std::function<void()> idle);
    void closeAll();
    bool stopping() const { return m_stopping; }

private:
    using Connections = std::unordered_set<std::shared_ptr<Connection>>;

    /// The step may end its connection, which leaves the set, but no other one.
    template <class Step>
    static void forEach(const Connections& connections, Step step);
    void relieve();
    void changed() noexcept;
    void wakeChannels();
    void settled(const Settlement& settlement) const noexcept;

    std::shared_ptr<Clock> m_clock;
    Connections m_connections;
    Connections m_channels;
    std::deque<std::weak_ptr<Connection>> m_surplus; ///< Oldest first; those gone drop out as it is used.
    std::size_t m_served = 0;
    std::size_t m_grown = 0;    ///< Since it was last looked at what all hold together.
    std::size_t m_relieved = 0; ///< Connections ended for what they held, not yet logged.
    bool m_wakeDue = false;
    bool m_stopping = false;
    std::function<void()> m_idle;
};

} // namespace cdxservice

#endif
