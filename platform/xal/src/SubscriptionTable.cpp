#include "SubscriptionTable.h"

#include "Persist.h"

namespace xal {

SubscriptionTable::SubscriptionTable(Surroundings surroundings, xalutil::ILogger& logger, Duration timeout)
    : m_surroundings(std::move(surroundings)), m_logger(logger), m_timeout(timeout) {}

void SubscriptionTable::connected() {
    m_isConnected = true;
    m_lastNumber = 0;
}

void SubscriptionTable::disconnected() {
    m_isConnected = false;
    m_byNumber.clear();
    m_unanswered.clear();
    for (const auto& [place, subscription] : m_all) {
        subscription->progress.number = 0;
        subscription->progress.isAnswered = false;
    }
}

void SubscriptionTable::add(const Subscription& subscription) {
    if (subscription->isReleased())
        return;
    // Whoever holds it would wait for ever for one that is not here.
    ++m_lastPlace;
    persist([&] { m_all.emplace(m_lastPlace, subscription); });
    persist([&] { m_places.emplace(subscription.get(), m_lastPlace); });
    if (m_isConnected)
        subscribe(subscription);
}

void SubscriptionTable::remove(const Subscription& subscription) {
    const std::int64_t number = subscription->progress.number;
    forget(subscription);
    if (m_isConnected && number != 0) {
        m_surroundings.send(encodeUnsubscribe(number));
        if (m_logger.isDebug())
            m_logger.debug("unsubscribed from " + subscription->name());
    }
}

void SubscriptionTable::forget(const Subscription& subscription) {
    const auto place = m_places.find(subscription.get());
    if (place == m_places.end())
        return;
    m_byNumber.erase(subscription->progress.number);
    m_unanswered.erase(subscription->progress.number);
    subscription->progress.number = 0;
    m_all.erase(place->second);
    m_places.erase(place);
}

void SubscriptionTable::subscribeAll() {
    for (const auto& [place, subscription] : m_all)
        if (m_isConnected && subscription->progress.number == 0 && !subscription->isReleased())
            subscribe(subscription);
}

void SubscriptionTable::subscribe(const Subscription& subscription) {
    auto& progress = subscription->progress;
    progress.number = ++m_lastNumber;
    progress.isAnswered = false;
    m_byNumber[progress.number] = subscription;
    m_unanswered[progress.number] = m_surroundings.now() + m_timeout;
    m_surroundings.send(encodeSubscribe(subscription->request(), progress.number, progress.position));
}

std::optional<SubscriptionTable::Duration> SubscriptionTable::deadline() const {
    if (m_unanswered.empty())
        return std::nullopt;
    return m_unanswered.begin()->second;
}

SubscriptionTable::Outcome SubscriptionTable::take(ChannelMessage message, std::size_t bytes) {
    if (!message.number) {
        m_logger.warning("the service reports " + std::to_string(message.status) + " " + message.text);
        return TAKEN;
    }
    const auto found = m_byNumber.find(*message.number);
    if (found == m_byNumber.end())
        return TAKEN; // released
    const Subscription subscription = found->second;
    if (subscription->isReleased()) { // and nobody could say so for want of memory
        remove(subscription);
        return TAKEN;
    }
    switch (message.operation) {
    case ChannelMessage::SUBSCRIBED:
        return takeSubscribed(subscription, message);
    case ChannelMessage::EVENT:
        return takeEvent(subscription, message, bytes);
    case ChannelMessage::CURRENT:
        return takeCurrent(subscription, message);
    case ChannelMessage::ERROR:
        break;
    }
    return takeError(subscription, message);
}

SubscriptionTable::Outcome SubscriptionTable::takeSubscribed(const Subscription& subscription,
                                                             const ChannelMessage& message) {
    auto& progress = subscription->progress;
    const bool isFirstAnswer = !progress.isAnswered;
    if (message.isResumed) {
        // Only a position that we named can be resumed, and only once.
        if (!isFirstAnswer || !progress.position || progress.position->epoch != message.epoch) {
            m_logger.warning(subscription->name() + ": the service resumes what it was not asked for");
            progress.position.reset();
            return BROKEN;
        }
        progress.expectedPrevious = progress.position->revision;
    } else {
        progress.position.reset();
        progress.expectedPrevious = 0;
    }
    progress.isAnswered = true;
    progress.epoch = message.epoch;
    if (m_logger.isDebug())
        m_logger.debug("subscribed to " + subscription->name() + waited(progress.number) +
                       (message.isResumed ? ", resumed at " + std::to_string(progress.expectedPrevious)
                                          : std::string(", from the beginning")));
    m_unanswered.erase(progress.number);
    const bool isRestart = !message.isResumed && progress.hasBegun;
    progress.hasBegun = true;
    if (!isRestart)
        return TAKEN;
    Event event;
    event.kind = Event::RESTARTED;
    return deliver(subscription, std::move(event), 0);
}

std::string SubscriptionTable::waited(std::int64_t number) const {
    const auto until = m_unanswered.find(number);
    if (until == m_unanswered.end())
        return {};
    const auto time = m_surroundings.now() - (until->second - m_timeout);
    return " after " + std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(time).count()) + " ms";
}

bool SubscriptionTable::follows(const ActiveSubscription& subscription, const ChannelMessage& message) const {
    const auto& progress = subscription.progress;
    const bool isEvent = message.operation == ChannelMessage::EVENT;
    if (progress.isAnswered && message.previous == progress.expectedPrevious &&
        (isEvent ? message.revision > message.previous : message.revision >= message.previous))
        return true;
    m_logger.warning(subscription.name() + ": revision " + std::to_string(message.revision) + " after " +
                     std::to_string(message.previous) +
                     (progress.isAnswered ? ", expected one after " + std::to_string(progress.expectedPrevious)
                                          : std::string(" before the subscription was answered")));
    return false;
}

SubscriptionTable::Outcome SubscriptionTable::takeEvent(const Subscription& subscription, ChannelMessage& message,
                                                        std::size_t bytes) {
    if (!follows(*subscription, message))
        return BROKEN;
    auto outcome = TAKEN;
    if (message.event)
        outcome = deliver(subscription, std::move(*message.event), bytes);
    else
        m_logger.warning(subscription->name() + ": event dropped: " + message.text);
    // Last: what could not be delivered, for want of memory, is to come again.
    auto& progress = subscription->progress;
    progress.expectedPrevious = message.revision;
    if (progress.position)
        progress.position->revision = message.revision;
    return outcome;
}

SubscriptionTable::Outcome SubscriptionTable::takeCurrent(const Subscription& subscription,
                                                          const ChannelMessage& message) {
    if (!follows(*subscription, message))
        return BROKEN;
    auto& progress = subscription->progress;
    Position position{progress.epoch, message.revision};
    Event event;
    event.kind = Event::CURRENT;
    const auto outcome = deliver(subscription, std::move(event), 0);
    progress.expectedPrevious = message.revision;
    progress.position = std::move(position);
    return outcome;
}

SubscriptionTable::Outcome SubscriptionTable::takeError(const Subscription& subscription,
                                                        const ChannelMessage& message) {
    if (m_logger.isDebug())
        m_logger.debug("subscription to " + subscription->name() + " refused" + waited(subscription->progress.number) +
                       ": " + std::to_string(message.status) + " " + message.text);
    Event event;
    event.kind = Event::REFUSED;
    event.status = message.status;
    const auto outcome = deliver(subscription, std::move(event), 0);
    forget(subscription);
    return outcome;
}

SubscriptionTable::Outcome SubscriptionTable::deliver(const Subscription& subscription, Event event,
                                                      std::size_t bytes) {
    return m_surroundings.deliver(subscription, std::move(event), bytes) ? TAKEN : FULL;
}

} // namespace xal
