#include "ServiceLink.h"

#include "HttpRequests.h"
#include "Telling.h"

#include <xalutil/ProcessEnd.h>

#include <algorithm>
#include <stdexcept>

namespace xal {
namespace {

using std::chrono::milliseconds;

/// A name resolution cannot be broken off: beyond this, closing does not wait for the thread that is caught in one.
constexpr milliseconds longestClose(2000);
constexpr milliseconds longestEnd(1000);
/// An attempt that waits for a loss to be told looks again after this: without memory nobody says that it is.
constexpr milliseconds longestHold(1000);
constexpr int normalClosure = 1000;
/// Of a listener's service object that no memory suffices for: five seconds.
constexpr int mostTries = 100;

constexpr int badRequest = 400;
constexpr int unprocessable = 422;

std::string took(std::chrono::steady_clock::time_point since) {
    const auto time = std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - since);
    return std::to_string(time.count()) + " ms";
}

/// A request's turn on the HTTP executor. If the turn never comes the request has failed.
class Turn {
public:
    Turn(std::shared_ptr<PendingRequests> pending, PendingRequests::Ticket ticket)
        : m_pending(std::move(pending)), m_ticket(std::move(ticket)) {}
    ~Turn() { m_pending->fail(m_ticket); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    void answer(std::shared_ptr<const XalResponse> response, std::shared_ptr<xalutil::JsonValue> value) {
        m_pending->answer(m_ticket, std::move(response), std::move(value));
    }

private:
    std::shared_ptr<PendingRequests> m_pending;
    PendingRequests::Ticket m_ticket;
};

} // namespace

/// What a program holds. The link keeps the subscription going only as long as this is there.
class ServiceLink::Handle : public Subscription {
public:
    Handle(std::shared_ptr<ServiceLink> link, std::shared_ptr<ActiveSubscription> subscription)
        : m_link(std::move(link)), m_subscription(std::move(subscription)) {}
    ~Handle() override { m_link->release(m_subscription); }
    void unsubscribe() override {
        m_link->release(m_subscription);
        m_subscription->awaitReturn();
    }

private:
    const std::shared_ptr<ServiceLink> m_link;
    const std::shared_ptr<ActiveSubscription> m_subscription;
};

ServiceLink::ServiceLink(std::shared_ptr<const RegistryContext> context, LinkSettings settings,
                         std::shared_ptr<xalutil::ILogger> logger)
    : m_context(std::move(context)), m_settings(std::move(settings)), m_logger(std::move(logger)),
      m_parser(xalutil::JsonFactory::createJsonParser()), m_baseUri(m_settings.address.baseUri),
      m_table({[this](std::string text) { m_channel->send(std::move(text)); },
               [this](const SubscriptionTable::Subscription& subscription, Event event, std::size_t bytes) {
                   return m_inbox->push(subscription, std::move(event), bytes);
               },
               [this] { return m_channel->readingTime(); }},
              *m_logger, m_settings.subscribeTimeout) {}

ServiceLink::~ServiceLink() {
    // One that was never closed was not wholly made.
    if (m_loop)
        m_loop->finish();
}

template <class Function>
void ServiceLink::onLoop(Function function) {
    m_loop->post([weak = weak_from_this(), function = std::move(function)] {
        if (const auto self = weak.lock(); self && !self->m_isShutDown)
            function(*self);
    });
}

template <class Function>
void ServiceLink::persistOnLoop(Function function) {
    persist([&] { onLoop(function); }, [this] { return isClosed(); });
}

bool ServiceLink::isClosed() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_isClosed;
}

std::shared_ptr<ServiceLink> ServiceLink::make(std::shared_ptr<const RegistryContext> context, LinkSettings settings,
                                               std::shared_ptr<xalutil::ILogger> logger) {
    std::shared_ptr<ServiceLink> link(new ServiceLink(std::move(context), std::move(settings), std::move(logger)));
    link->prepare();
    return link;
}

void ServiceLink::prepare() {
    const std::weak_ptr<ServiceLink> weak = weak_from_this();
    m_inbox = std::make_shared<Inbox>(m_context->tasks, m_settings.address.service, [weak] {
        if (const auto self = weak.lock())
            self->persistOnLoop([](ServiceLink& link) {
                if (link.m_channel)
                    link.m_channel->resume();
            });
    });
    m_manager = std::make_shared<WebsocketManagers::Manager>([weak] {
        if (const auto self = weak.lock())
            self->onLoop([](ServiceLink& link) {
                if (link.m_channel)
                    link.m_channel->close(normalClosure, "manager removed");
            });
    });
    m_loop = EventLoop::start("xal:" + m_settings.address.service, [weak](const std::string& what) {
        if (const auto self = weak.lock())
            self->loopFailed(what);
    });
    m_retry.emplace(*m_loop);
}

void ServiceLink::addListener(Listener listener) {
    onLoop([listener = std::make_shared<Listener>(std::move(listener))](ServiceLink& link) {
        if (!persist([&] { link.m_listeners.push_back(listener); }, [&] { return link.isClosed(); }))
            return;
        if (link.m_isConnected) {
            link.tellConnected(listener);
        } else if (!link.m_channel) {
            link.m_retry->cancel();
            link.attempt();
        }
    });
}

xalutil::ILogger& ServiceLink::getLogger() {
    return *m_logger;
}

ServiceAddress ServiceLink::address() const {
    ServiceAddress address = m_settings.address;
    const std::lock_guard<std::mutex> lock(m_mutex);
    address.baseUri = m_baseUri;
    return address;
}

std::string ServiceLink::place() const {
    const ServiceAddress known = address();
    return joinPath(joinPath(known.baseUri, known.basePath), known.service);
}

void ServiceLink::send(Request request, Answer answer) {
    const auto ticket = m_context->pending->add(request.serviceName + "/" + request.resourceName, std::move(answer));
    const Request::Kind kind = request.kind;
    try {
        sendOrThrow(std::move(request), ticket);
    } catch (...) {
        std::shared_ptr<const XalResponse> failure;
        if (persistForASecond([&] { failure = failedSending(kind, 0); }))
            m_context->pending->answer(ticket, std::move(failure));
        else
            m_context->pending->fail(ticket);
    }
}

void ServiceLink::sendOrThrow(Request&& request, const PendingRequests::Ticket& ticket) {
    if (request.failure)
        std::rethrow_exception(request.failure);
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_isClosed)
            return m_context->pending->answer(ticket, std::make_shared<const XalResponse>(0));
    }
    const bool needsId = request.kind == Request::UPDATE || request.kind == Request::REMOVE;
    if (needsId && !isElementId(request.id)) {
        m_logger->warning(request.resourceName + ": nothing sent: \"" + request.id + "\" is no element's id");
        return m_context->pending->answer(ticket, std::make_shared<const XalResponse>(0));
    }
    const Request::Kind kind = request.kind;
    const auto turn = std::make_shared<Turn>(m_context->pending, ticket);
    try {
        m_context->http->execute([turn, self = shared_from_this(), request = std::move(request)] {
            const auto result = self->m_context->access->perform(self->address(), request,
                                                                 self->m_settings.requestTimeout, *self->m_logger);
            turn->answer(result.response, result.value);
        });
    } catch (...) {
        // Before the turn goes, which would answer without the cause.
        turn->answer(failedSending(kind, 0), nullptr);
    }
}

std::shared_ptr<Subscription> ServiceLink::subscribe(SubscribeRequest request, std::function<void(Event)> callback) {
    const auto subscription = std::make_shared<ActiveSubscription>(std::move(request), std::move(callback));
    const auto handle = std::make_shared<Handle>(shared_from_this(), subscription);
    Event refusal;
    refusal.kind = Event::REFUSED;
    if (subscription->request().kind == SubscribeRequest::RESOURCE && subscription->request().narrowed)
        refusal.status = badRequest;
    else if (subscription->request().kind == SubscribeRequest::ELEMENT && !isElementId(subscription->request().id))
        refusal.status = unprocessable;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_isClosed)
            return handle;
        const auto gone = [](const auto& known) { return known.expired(); };
        if (m_subscriptions.size() == m_subscriptions.capacity())
            m_subscriptions.erase(std::remove_if(m_subscriptions.begin(), m_subscriptions.end(), gone),
                                  m_subscriptions.end());
        m_subscriptions.push_back(subscription);
    }
    if (refusal.status != 0) {
        m_inbox->push(subscription, refusal, 0);
        return handle;
    }
    onLoop([subscription](ServiceLink& link) {
        link.m_table.add(subscription);
        link.watchSubscriptions();
    });
    return handle;
}

void ServiceLink::release(const std::shared_ptr<ActiveSubscription>& subscription) {
    if (!subscription->release())
        return;
    try {
        onLoop([subscription](ServiceLink& link) {
            link.m_table.remove(subscription);
            link.watchSubscriptions();
        });
    } catch (const std::bad_alloc&) {
        // Whoever drops may do so to give memory back, and must not wait for any: the table sees it at its next
        // message.
    }
}

void ServiceLink::unsubscribeFromAll() {
    std::vector<std::weak_ptr<ActiveSubscription>> subscriptions;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        subscriptions.swap(m_subscriptions);
    }
    for (const auto& weak : subscriptions) {
        const auto subscription = weak.lock();
        if (!subscription)
            continue;
        release(subscription);
        subscription->awaitReturn();
    }
}

std::string ServiceLink::findBaseUri(Clock::time_point deadline) {
    if (m_context->registryUri.empty())
        return m_settings.address.baseUri;
    struct Asking {
        ServiceLink& link;
        ~Asking() {
            std::shared_ptr<xalutil::HttpSession> over; // with its connection, outside of the lock
            const std::lock_guard<std::mutex> lock(link.m_mutex);
            over.swap(link.m_question);
        }
    } const asking{*this};
    auto found = m_context->access->askRegistry(m_context->registryUri, m_settings.address.service, deadline, *m_logger,
                                                [this](std::shared_ptr<xalutil::HttpSession> session) {
                                                    const std::lock_guard<std::mutex> lock(m_mutex);
                                                    if (m_isClosed)
                                                        throw std::runtime_error("closed");
                                                    m_question = std::move(session);
                                                });
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_baseUri = found;
    return found;
}

void ServiceLink::attempt() {
    m_isHeld = false;
    m_since = Clock::now();
    try {
        Channel::Options options;
        options.deadline = m_since + m_settings.requestTimeout;
        options.uri = Uri::parse(findBaseUri(options.deadline));
        options.target = servicePath(options.uri, m_settings.address);
        options.headers = m_context->headers->collect(*m_logger);
        options.pingInterval = m_settings.pingInterval;
        options.pongTimeout = m_settings.pongTimeout;
        m_context->managers->add(m_settings.address.service, m_manager);
        m_channel = Channel::open(m_loop, options, weak_from_this());
    } catch (const std::exception& e) {
        channelClosed(e.what());
    }
}

void ServiceLink::retryLater(const std::string& happened, const std::string& reason) {
    const auto delay = m_backoff.next();
    const std::string line = happened + "; next attempt in " +
                             std::to_string(std::chrono::duration_cast<milliseconds>(delay).count()) + " ms";
    // Once for each reason: a mistake in an address or a certificate is to be seen, a service that is away is no flood.
    if (reason != m_lastReason)
        m_logger->warning(line);
    else
        m_logger->debug(line);
    m_lastReason = reason;
    m_retry->start(delay, [this] { retry(); });
}

void ServiceLink::retry() {
    m_isHeld = !m_untoldLoss.expired();
    if (!m_isHeld)
        return attempt();
    m_retry->start(longestHold, [this] { retry(); });
}

/// What its keepers let go of once the loss is being told, or never will be.
std::shared_ptr<void> ServiceLink::untilTold() {
    return {nullptr, [weak = weak_from_this()](void*) {
                try {
                    if (const auto self = weak.lock())
                        self->onLoop([](ServiceLink& link) {
                            if (!link.m_isHeld)
                                return;
                            link.m_retry->cancel();
                            link.attempt();
                        });
                } catch (...) {
                    // Without memory: the attempt looks for itself.
                }
            }};
}

void ServiceLink::channelOpen() {
    if (m_logger->isDebug())
        m_logger->debug("connected to " + place() + " in " + took(m_since));
    m_lastReason.clear();
    m_since = Clock::now();
    m_isConnected = true;
    ++m_connections;
    m_table.connected();
    for (const auto& listener : m_listeners)
        tellConnected(listener);
    afterConnected();
}

void ServiceLink::tellConnected(const std::shared_ptr<Listener>& listener) {
    m_inbox->push("connected", [listener, self = shared_from_this(), connection = m_connections, tries = 0]() mutable {
        try {
            if (listener->connected)
                listener->connected(self);
        } catch (const std::bad_alloc&) {
            // Half-connected, a program would never hear again of what it wanted to subscribe to.
            if (Telling::hasHandlerBegun())
                self->giveUp(connection);
            else if (++tries == mostTries)
                throw std::runtime_error("no memory for the service object");
            throw;
        }
    });
    listener->isConnected = true;
}

void ServiceLink::giveUp(unsigned connection) {
    persistOnLoop([connection](ServiceLink& link) {
        // Once: other listeners share the connection, and one that always throws must not take it from them for ever.
        if (connection != link.m_connections || !link.m_channel || connection < link.m_mayGiveUp)
            return;
        link.m_mayGiveUp = connection + 2;
        link.m_channel->close(normalClosure, "no memory for the connected call");
    });
}

void ServiceLink::afterConnected() {
    m_inbox->push("connected", [weak = weak_from_this(), connection = m_connections] {
        if (const auto self = weak.lock())
            self->onLoop([connection](ServiceLink& link) {
                if (connection != link.m_connections || !link.m_isConnected)
                    return;
                link.m_table.subscribeAll();
                link.watchSubscriptions();
            });
    });
}

void ServiceLink::watchSubscriptions() {
    if (m_isConnected)
        m_channel->setDeadline(m_table.deadline());
}

bool ServiceLink::channelMessage(const std::string& text) {
    SubscriptionTable::Outcome outcome = SubscriptionTable::TAKEN;
    try {
        outcome = m_table.take(decodeMessage(*m_parser, text), text.size());
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& e) {
        m_logger->warning(std::string("message dropped: ") + e.what());
        return true;
    }
    if (outcome == SubscriptionTable::BROKEN) {
        m_channel->close(Channel::outOfOrder, "the order of the messages is broken");
        return false;
    }
    watchSubscriptions();
    return outcome == SubscriptionTable::TAKEN;
}

void ServiceLink::channelDeadline() {
    m_channel->close(normalClosure, "a subscription was not answered");
}

// May throw for want of memory, and is then called again by loopFailed(): what must not be done twice comes last.
void ServiceLink::channelClosed(const std::string& reason) {
    m_channel = nullptr;
    const std::string happened =
        (m_isConnected ? "lost " : "no connection to ") + place() + " after " + took(m_since) + ": " + reason;
    if (m_isConnected) {
        m_table.disconnected();
        auto untold = untilTold();
        m_untoldLoss = untold;
        for (const auto& listener : m_listeners) {
            if (!listener->isConnected)
                continue;
            m_inbox->push("disconnected", [listener, untold]() mutable {
                detail::handlerBegins();
                untold.reset();
                if (listener->disconnected)
                    listener->disconnected();
            });
            listener->isConnected = false;
        }
        m_isConnected = false;
        m_backoff.noteConnection(Clock::now() - m_since);
    }
    if (!m_isShutDown)
        retryLater(happened, reason);
    else if (m_logger->isDebug())
        m_logger->debug(happened);
}

void ServiceLink::loopFailed(const std::string& what) {
    if (m_channel)
        m_channel->abort(what);
    else
        channelClosed(what);
    m_logger->error("connection to " + place() + " given up: " + what);
}

void ServiceLink::beginClose() {
    std::shared_ptr<xalutil::HttpSession> question;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_isClosed)
            return;
        m_isClosed = true;
        question = m_question;
    }
    m_inbox->shut();
    if (question)
        question->cancel();
    if (!persistForASecond([this] { onLoop([](ServiceLink& link) { link.shutDown(); }); }))
        m_loop->stop();
    m_loop->finish();
}

void ServiceLink::shutDown() {
    m_isShutDown = true;
    m_retry->cancel();
    if (m_channel)
        m_channel->close(normalClosure, "closed");
}

void ServiceLink::awaitClose() {
    m_inbox->close();
    if (xalutil::isProcessEnding() || !m_loop->awaitEnd(longestClose))
        return;
    // What listeners hold is to go on the closing thread, and not with a service object that stays.
    std::vector<std::shared_ptr<Listener>> gone;
    const std::lock_guard<std::mutex> lock(m_mutex);
    gone.swap(m_listeners);
}

void ServiceLink::end() {
    beginClose();
    // What is under way ends with the connection: nothing stays behind that keeps itself alive.
    persistForASecond([this] {
        m_loop->post([weak = weak_from_this()] {
            if (const auto self = weak.lock(); self && self->m_channel)
                self->m_channel->abort("the process ends");
        });
    });
    m_loop->stop();
    m_loop->awaitEnd(longestEnd);
}

} // namespace xal
