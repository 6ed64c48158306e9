#ifndef SERVICE_SRC_SERVERCORE_H
#define SERVICE_SRC_SERVERCORE_H

#include "Access.h"
#include "Connection.h"
#include "Exchange.h"
#include "Router.h"

#include <cdxservice/Server.h>

#include <boost/asio/io_context.hpp>

#include <cstddef>
#include <deque>
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

    /// Connections from their acceptance to their end; a channel takes the place of the session that it was.
    void add(const std::shared_ptr<Connection>& connection);
    void replace(const std::shared_ptr<Connection>& session, const std::shared_ptr<Connection>& channel);
    void remove(const std::shared_ptr<Connection>& connection);
    /// Whether a connection accepted as one too many still is; otherwise it becomes one like all others.
    bool isSurplus(Connection& connection);

    /// What happens now and then: expired elements, connections whose time is over.
    void tick();
    /// Every connection ends; `idle` is called once none is left.
    void stop(std::function<void()> idle);
    void closeAll();
    bool stopping() const { return m_stopping; }

private:
    void changed();
    void settled(const Settlement& settlement) const;

    std::shared_ptr<Clock> m_clock;
    std::unordered_set<std::shared_ptr<Connection>> m_connections;
    std::unordered_set<std::shared_ptr<Connection>> m_channels;
    std::deque<std::weak_ptr<Connection>> m_surplus; ///< Oldest first; those gone drop out as it is used.
    std::size_t m_served = 0;
    bool m_wakePending = false;
    bool m_stopping = false;
    std::function<void()> m_idle;
};

} // namespace cdxservice

#endif
