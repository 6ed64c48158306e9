#ifndef XAL_SUBSCRIPTIONTABLE_H
#define XAL_SUBSCRIPTIONTABLE_H

#include "ActiveSubscription.h"
#include "ChannelMessages.h"

#include <xalutil/Logger.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

namespace xal {

/// All subscriptions of one service, and what the messages of its present connection mean for them: positions are kept,
/// breaks in the order are noticed, events go to those who asked for them.
///
/// Belongs to the event loop's thread.
class SubscriptionTable {
public:
    using Subscription = std::shared_ptr<ActiveSubscription>;
    using Duration = std::chrono::steady_clock::duration;

    /// Where the table's doings go. `now` is how long the present connection has been read.
    struct Surroundings {
        std::function<void(std::string)> send;
        std::function<bool(const Subscription&, Event, std::size_t bytes)> deliver; ///< false: full
        std::function<Duration()> now;
    };

    SubscriptionTable(Surroundings surroundings, xalutil::ILogger& logger, Duration timeout);

    /// A new connection; nothing is asked for on it yet.
    void connected();
    void disconnected();
    /// Asks for it at once where there is a connection.
    void add(const Subscription& subscription);
    void remove(const Subscription& subscription);
    /// Asks for all that the present connection was not asked for.
    void subscribeAll();

    enum Outcome { TAKEN, FULL, BROKEN };
    /// BROKEN: the order does not hold; the connection is to be closed and the next one goes on.
    Outcome take(ChannelMessage message, std::size_t bytes);

    /// When, in terms of `now`, the first unanswered subscription has waited too long.
    std::optional<Duration> deadline() const;

private:
    void subscribe(const Subscription& subscription);
    void forget(const Subscription& subscription);
    Outcome takeSubscribed(const Subscription& subscription, const ChannelMessage& message);
    Outcome takeError(const Subscription& subscription, const ChannelMessage& message);
    Outcome takeEvent(const Subscription& subscription, ChannelMessage& message, std::size_t bytes);
    Outcome takeCurrent(const Subscription& subscription, const ChannelMessage& message);
    /// How long a subscription has been waiting for its answer, to be read by people.
    std::string waited(std::int64_t number) const;
    bool follows(const ActiveSubscription& subscription, const ChannelMessage& message) const;
    Outcome deliver(const Subscription& subscription, Event event, std::size_t bytes);

    const Surroundings m_surroundings;
    xalutil::ILogger& m_logger;
    const Duration m_timeout;

    std::map<std::uint64_t, Subscription> m_all; ///< in the order in which they were made
    std::unordered_map<const ActiveSubscription*, std::uint64_t> m_places;
    std::unordered_map<std::int64_t, Subscription> m_byNumber; ///< on the present connection
    std::map<std::int64_t, Duration> m_unanswered;             ///< and until when; numbers rise, so do these
    std::uint64_t m_lastPlace = 0;
    std::int64_t m_lastNumber = 0;
    bool m_isConnected = false;
};

} // namespace xal

#endif
