#include "ServerCore.h"

#include "StrictJson.h"

#include <boost/asio/post.hpp>

#include <utility>

namespace cdxservice {

namespace {

/// Connections accepted beyond the limit, to be told so, at a time; the oldest gives way.
constexpr std::size_t maxSurplus = 1024;

/// What an element may have over the limit of a body.
constexpr std::size_t elementAllowance = 1024;

/// Beyond what connections may hold, those end that have moved nothing for so long; at several times of it, at once.
constexpr std::chrono::seconds stillAfter(5);
constexpr std::size_t urgentFactor = 4;

int magnitude(std::size_t bytes) {
    int bits = 0;
    for (; bytes > 0; bytes >>= 1) {
        ++bits;
    }
    return bits;
}

bool endsBefore(const Connection& one, const Connection& other) {
    const int more = magnitude(one.weight) - magnitude(other.weight);
    return more > 0 || (more == 0 && one.lastProgress() < other.lastProgress());
}

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

void ServerCore::logFailure(const char* what, const std::exception& failure) const noexcept {
    try {
        log(std::string(what) + ": " + failure.what());
    } catch (const std::exception&) {
        // Without the memory for a line there is no line.
    }
}

void ServerCore::add(const std::shared_ptr<Connection>& connection) {
    connection->surplus = m_served >= options.maxConnections;
    if (connection->surplus) {
        m_surplus.push_back(connection);
    }
    m_connections.insert(connection);
    m_served += connection->surplus ? 0 : 1;
    while (m_surplus.size() > maxSurplus) {
        const auto oldest = m_surplus.front().lock();
        m_surplus.pop_front();
        if (oldest && oldest->surplus) {
            oldest->close();
        }
    }
}

void ServerCore::replace(const std::shared_ptr<Connection>& session, const std::shared_ptr<Connection>& channel) {
    m_channels.insert(channel);
    channel->surplus = session->surplus;
    // From here on nothing needs memory.
    auto place = m_connections.extract(session);
    place.value() = channel;
    m_connections.insert(std::move(place));
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

template <class Step>
void ServerCore::forEach(const Connections& connections, Step step) {
    for (auto at = connections.begin(); at != connections.end();) {
        const std::shared_ptr<Connection> connection = *at;
        ++at;
        step(*connection);
    }
}

void ServerCore::tick() {
    wakeChannels();
    const auto time = now();
    forEach(m_connections, [&](Connection& connection) { connection.checkTime(time); });
    relieve();
    if (const auto ended = std::exchange(m_relieved, 0); ended > 0) {
        log(std::to_string(ended) + " connections are ended that held memory and moved nothing for longest");
    }
    exchange.expire();
}

void ServerCore::grown(std::size_t bytes) {
    m_grown += bytes;
    if (m_grown > options.maxHeldBytes / 8) {
        relieve();
    }
}

/// Nobody ends who keeps to a share with which all together stay within the bound that is never passed. Of the others
/// those end first that hold the most, and of such as hold about as much, whoever has not moved a byte for longest: who
/// has just moved one may only be waiting for its turn. Takes no memory, which may be what is short.
void ServerCore::relieve() {
    m_grown = 0;
    const std::size_t share = urgentFactor * (options.maxHeldBytes / options.maxConnections);
    const auto stillSince = now() - stillAfter;
    std::size_t held = 0;
    forEach(m_connections, [&](Connection& connection) {
        connection.weight = connection.held();
        held += connection.weight;
    });
    while (held > options.maxHeldBytes) {
        const bool isUrgent = held / urgentFactor > options.maxHeldBytes;
        Connection* next = nullptr;
        forEach(m_connections, [&](Connection& connection) {
            const bool isCandidate = connection.weight > share && (isUrgent || connection.lastProgress() <= stillSince);
            if (isCandidate && (!next || endsBefore(connection, *next))) {
                next = &connection;
            }
        });
        if (!next) {
            return;
        }
        held -= next->weight;
        next->close();
        ++m_relieved;
    }
}

void ServerCore::stop(std::function<void()> idle) {
    m_stopping = true;
    if (m_connections.empty()) {
        idle();
        return;
    }
    m_idle = std::move(idle);
    forEach(m_connections, [](Connection& connection) { connection.stop(); });
}

void ServerCore::closeAll() {
    forEach(m_connections, [](Connection& connection) { connection.close(); });
}

/// Channels are woken once for all changes that the requests at hand make.
void ServerCore::changed() noexcept {
    if (m_wakeDue || m_channels.empty()) {
        return;
    }
    m_wakeDue = true;
    try {
        boost::asio::post(io, [this] { wakeChannels(); });
    } catch (const std::exception& failure) {
        logFailure("events wait for the next tick", failure);
    }
}

void ServerCore::wakeChannels() {
    if (m_wakeDue) {
        m_wakeDue = false;
        forEach(m_channels, [](Connection& channel) { channel.wake(); });
    }
}

/// The change is stored, whatever becomes of the line that tells it.
void ServerCore::settled(const Settlement& settlement) const noexcept {
    try {
        std::string line = "settled cdxData/" + settlement.dataId + " client=";
        writeJsonString(line, settlement.clientName);
        line.append(" eventId=");
        writeJsonString(line, settlement.eventId);
        line.append(" dataDeliveryResult=").append(settlement.dataDeliveryResult.value_or("none"));
        log(line);
    } catch (const std::exception& failure) {
        logFailure("a settlement is not logged", failure);
    }
    if (options.onSettled) {
        options.onSettled(settlement);
    }
}

} // namespace cdxservice
