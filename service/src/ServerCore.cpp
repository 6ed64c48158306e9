#include "ServerCore.h"

#include "StrictJson.h"

#include <boost/asio/post.hpp>

#include <utility>
#include <vector>

namespace cdxservice {

namespace {

/// Connections accepted beyond the limit, to be told so, at a time; the oldest gives way.
constexpr std::size_t maxSurplus = 1024;

/// What an element may have over the limit of a body.
constexpr std::size_t elementAllowance = 1024;

} // namespace

ServerCore::ServerCore(boost::asio::io_context& context, const ServerOptions& given, Access::Rules rules)
    : io(context), options(given), exchange(*given.store->m_exchange), access(std::move(rules)),
      router(exchange, access, given.maxBodyBytes), m_clock(given.clock) {
    Exchange::Observer observer;
    observer.changed = [this](std::size_t) { changed(); };
    observer.settled = [this](const Settlement& settlement) { settled(settlement); };
    exchange.attach(std::move(observer), m_clock, options.maxBodyBytes + elementAllowance);
}

ServerCore::~ServerCore() {
    exchange.detach();
}

void ServerCore::log(const std::string& line) const {
    if (options.log) {
        options.log(line);
    }
}

void ServerCore::add(const std::shared_ptr<Connection>& connection) {
    m_connections.insert(connection);
    if (m_served < options.maxConnections) {
        ++m_served;
        return;
    }
    connection->surplus = true;
    m_surplus.push_back(connection);
    while (m_surplus.size() > maxSurplus) {
        const auto oldest = m_surplus.front().lock();
        m_surplus.pop_front();
        if (oldest && oldest->surplus) {
            oldest->close();
        }
    }
}

void ServerCore::replace(const std::shared_ptr<Connection>& session, const std::shared_ptr<Connection>& channel) {
    channel->surplus = session->surplus;
    m_connections.erase(session);
    m_connections.insert(channel);
    m_channels.insert(channel);
}

void ServerCore::remove(const std::shared_ptr<Connection>& connection) {
    if (m_connections.erase(connection) == 0) {
        return;
    }
    m_channels.erase(connection);
    if (!connection->surplus) {
        --m_served;
    }
    if (m_connections.empty() && m_idle) {
        m_idle();
    }
}

bool ServerCore::isSurplus(Connection& connection) {
    if (connection.surplus && m_served < options.maxConnections) {
        connection.surplus = false;
        ++m_served;
    }
    return connection.surplus;
}

void ServerCore::tick() {
    exchange.expire();
    const auto time = now();
    // A connection that ends leaves the set.
    const std::vector<std::shared_ptr<Connection>> all(m_connections.begin(), m_connections.end());
    for (const auto& connection : all) {
        connection->checkTime(time);
    }
}

void ServerCore::stop(std::function<void()> idle) {
    m_stopping = true;
    if (m_connections.empty()) {
        idle();
        return;
    }
    m_idle = std::move(idle);
    const std::vector<std::shared_ptr<Connection>> all(m_connections.begin(), m_connections.end());
    for (const auto& connection : all) {
        connection->stop();
    }
}

void ServerCore::closeAll() {
    const std::vector<std::shared_ptr<Connection>> all(m_connections.begin(), m_connections.end());
    for (const auto& connection : all) {
        connection->close();
    }
}

/// Channels are woken once for all changes that the requests at hand make.
void ServerCore::changed() {
    if (m_wakePending || m_channels.empty()) {
        return;
    }
    m_wakePending = true;
    boost::asio::post(io, [this] {
        m_wakePending = false;
        const std::vector<std::shared_ptr<Connection>> channels(m_channels.begin(), m_channels.end());
        for (const auto& channel : channels) {
            channel->wake();
        }
    });
}

void ServerCore::settled(const Settlement& settlement) const {
    if (options.log) {
        std::string line = "settled cdxData/" + settlement.dataId + " client=";
        writeJsonString(line, settlement.clientName);
        line.append(" eventId=");
        writeJsonString(line, settlement.eventId);
        line.append(" dataDeliveryResult=").append(settlement.dataDeliveryResult.value_or("none"));
        options.log(line);
    }
    if (options.onSettled) {
        options.onSettled(settlement);
    }
}

} // namespace cdxservice
