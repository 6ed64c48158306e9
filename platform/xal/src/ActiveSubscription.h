#ifndef XAL_ACTIVESUBSCRIPTION_H
#define XAL_ACTIVESUBSCRIPTION_H

#include <xal/Service.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace xal {

/// A place in the order of a resource's changes.
struct Position {
    std::string epoch;
    std::int64_t revision = 0;
};

/// One subscription as the framework holds it: the holder's callback, and how far the service's messages have been
/// taken. It belongs to the service, not to one connection.
///
/// deliver() runs on the task executor's thread; release() and awaitReturn() on any. No lock is held while the callback
/// runs or is destroyed.
class ActiveSubscription {
public:
    ActiveSubscription(SubscribeRequest request, std::function<void(Event)> callback);

    const SubscribeRequest& request() const { return m_request; }
    /// "resource" or "resource/id".
    const std::string& name() const { return m_name; }

    /// Calls the callback, unless it was released. What it throws passes through.
    void deliver(Event event);
    /// The callback does not start again. Whether this was the call that released it.
    bool release();
    /// Returns when the callback is not running on another thread.
    void awaitReturn();
    bool isReleased() const;

    /// What the event loop's thread alone reads and changes.
    struct Progress {
        std::int64_t number = 0;           ///< on the present connection; 0: not asked for yet
        bool isAnswered = false;           ///< the service began to send
        std::int64_t expectedPrevious = 0; ///< what the next message has to follow
        std::string epoch;                 ///< of the present sending
        std::optional<Position> position;  ///< where a next connection can go on
        bool hasBegun = false;             ///< something may have been sent before
    };
    Progress progress;

private:
    const SubscribeRequest m_request;
    const std::string m_name;

    mutable std::mutex m_mutex; ///< guards what follows
    std::condition_variable m_returned;
    std::shared_ptr<std::function<void(Event)>> m_callback; ///< empty once released
    bool m_isRunning = false;
    std::thread::id m_runner;
};

} // namespace xal

#endif
