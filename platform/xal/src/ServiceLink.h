#ifndef XAL_SERVICELINK_H
#define XAL_SERVICELINK_H

#include "Backoff.h"
#include "Channel.h"
#include "Inbox.h"
#include "RegistryContext.h"
#include "SubscriptionTable.h"

#include <xal/Service.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace xal {

/// One service of a registry: keeps up its WebSocket, for ever, and is what service objects speak through.
///
///             addListener                      open
///     idle ---------------> attempt ------------------------> connected
///                            ^    | failed                       | lost
///                            |    v                              v
///                            +-- waiting (Backoff) <-------------+
///
/// Waiting lasts until the loss before is being told: a handler that is held up, however long and however often the
/// service goes meanwhile, leaves one connected and one disconnected call for each listener behind it, not more.
///
/// Threads. The state above, the channel and the subscription table belong to the event loop's thread, which the link
/// owns; nothing of an application runs there. What applications are told goes through the inbox to the task executor,
/// in the order in which it happened: connected, notifications, disconnected. Requests go to the HTTP executor and do
/// not depend on the WebSocket. A link may outlive its registry: closed, it lets every request fail.
class ServiceLink : public IServiceConnection,
                    public ChannelListener,
                    public std::enable_shared_from_this<ServiceLink> {
public:
    struct Listener {
        std::function<void(std::shared_ptr<IServiceConnection>)> connected;
        std::function<void()> disconnected;
        bool isConnected = false; ///< as it was told last; the link's own
    };

    ~ServiceLink() override;

    /// Throws std::system_error when the system gives no thread.
    static std::shared_ptr<ServiceLink> make(std::shared_ptr<const RegistryContext> context, LinkSettings settings,
                                             std::shared_ptr<xalutil::ILogger> logger);

    /// Leads to an attempt at once, where there is no connection; else the listener is told of it.
    void addListener(Listener listener);

    void send(Request request, Answer answer) override;
    std::shared_ptr<Subscription> subscribe(SubscribeRequest request, std::function<void(Event)> callback) override;
    xalutil::ILogger& getLogger() override;

    /// Ends every subscription, as its own unsubscribe() would.
    void unsubscribeFromAll();

    /// Nothing of an application starts any more, and the connection begins to end. Does not wait.
    void beginClose();
    /// Returns when nothing of an application runs on another thread and the connection is gone.
    void awaitClose();
    /// The process ends: its thread is waited for, but not for a goodbye.
    void end();

    void channelOpen() override;
    bool channelMessage(const std::string& text) override;
    void channelDeadline() override;
    void channelClosed(const std::string& reason) override;

private:
    class Handle;
    using Clock = std::chrono::steady_clock;

    ServiceLink(std::shared_ptr<const RegistryContext> context, LinkSettings settings,
                std::shared_ptr<xalutil::ILogger> logger);
    void prepare();
    /// Runs a member function on the loop's thread, unless the link is gone by then.
    template <class Function>
    void onLoop(Function function);
    /// The same, waiting for memory where there is none until the link is closed.
    template <class Function>
    void persistOnLoop(Function function);
    bool isClosed();

    void sendOrThrow(Request&& request, const PendingRequests::Ticket& ticket);
    ServiceAddress address() const;

    void attempt();
    std::string findBaseUri(Clock::time_point deadline);
    void retryLater(const std::string& happened, const std::string& reason);
    void retry();
    std::shared_ptr<void> untilTold();
    void tellConnected(const std::shared_ptr<Listener>& listener);
    /// Ends the connection of that number, so that it is made and told anew. Any thread.
    void giveUp(unsigned connection);
    void afterConnected();
    void watchSubscriptions();
    void release(const std::shared_ptr<ActiveSubscription>& subscription);
    void shutDown();
    void loopFailed(const std::string& what);
    std::string place() const;

    const std::shared_ptr<const RegistryContext> m_context;
    const LinkSettings m_settings;
    const std::shared_ptr<xalutil::ILogger> m_logger;
    const std::shared_ptr<xalutil::JsonParser> m_parser;
    std::shared_ptr<Inbox> m_inbox;                        ///< fixed once prepared
    std::shared_ptr<EventLoop> m_loop;                     ///< fixed once prepared
    std::shared_ptr<WebsocketManagers::Manager> m_manager; ///< fixed once prepared

    mutable std::mutex m_mutex; ///< guards what follows
    bool m_isClosed = false;
    std::string m_baseUri;                            ///< last known
    std::shared_ptr<xalutil::HttpSession> m_question; ///< to the registry, under way
    std::vector<std::weak_ptr<ActiveSubscription>> m_subscriptions;

    // The event loop's thread alone, while there is one.
    SubscriptionTable m_table;
    std::vector<std::shared_ptr<Listener>> m_listeners;
    std::shared_ptr<Channel> m_channel; ///< of the attempt or the connection; none while waiting
    std::optional<EventLoop::Timer> m_retry;
    std::string m_lastReason; ///< Why there was no connection the last time, or no longer; empty once there is one.
    Backoff m_backoff;
    std::weak_ptr<void> m_untoldLoss; ///< kept by the disconnected calls that have not begun
    bool m_isHeld = false;            ///< the attempt that is due waits for them
    Clock::time_point m_since;        ///< the attempt's begin, then the connection's
    bool m_isConnected = false;
    bool m_isShutDown = false;
    unsigned m_connections = 0; ///< counts them, so that what is late is known to be so
    unsigned m_mayGiveUp = 0;   ///< the first that may be ended for a connected call without memory
};

} // namespace xal

#endif
