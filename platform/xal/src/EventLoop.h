#ifndef XAL_EVENTLOOP_H
#define XAL_EVENTLOOP_H

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace xal {

/// One thread that waits for sockets, timers and posted functions, and runs what belongs to them one at a time. Built
/// on Asio, which only EventLoopContext.h shows.
///
/// The thread keeps the loop alive. What a function throws is given to `onFailure` on the same thread, again
/// and again until that does not throw itself, and the loop goes on.
class EventLoop : public std::enable_shared_from_this<EventLoop> {
public:
    struct Context;
    class Timer;

    /// Throws std::system_error when the system gives no thread.
    static std::shared_ptr<EventLoop> start(const std::string& threadName,
                                            std::function<void(const std::string&)> onFailure);
    ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    /// Any thread. Once the loop has ended the function is dropped.
    void post(std::function<void()> function);
    /// Any thread. The loop ends when nothing is under way any more; who began something ends it.
    void finish();
    /// Any thread. The loop ends after what it runs now, whatever is under way.
    void stop();
    bool isHere() const;
    /// Returns when the thread has run its last function, or false when that takes longer; at once on the loop's own
    /// thread.
    bool awaitEnd(std::chrono::milliseconds atMost);

    Context& context() { return *m_context; }

private:
    EventLoop();
    void run(const std::function<void(const std::string&)>& onFailure);
    void recover(const std::function<void(const std::string&)>& onFailure, const char* what);

    std::unique_ptr<Context> m_context;
};

/// Runs a function later, on the loop's thread, unless it is cancelled or started anew before. Belongs to that thread.
class EventLoop::Timer {
public:
    explicit Timer(EventLoop& loop);
    ~Timer();
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    void start(std::chrono::steady_clock::duration delay, std::function<void()> function);
    void cancel();

private:
    struct State;
    std::shared_ptr<State> m_state;
};

} // namespace xal

#endif
