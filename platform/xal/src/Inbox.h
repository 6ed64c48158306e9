#ifndef XAL_INBOX_H
#define XAL_INBOX_H

#include "ActiveSubscription.h"
#include "Tasks.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace xal {

/// What is to be told to an application about one service, in the order in which it happened: the one hand-over between
/// the thread that reads and the thread of the handlers. Everything that waits is taken over in one task; the task ends
/// after a while all the same, so that results get their turn and an executor can be stopped.
///
/// Bounded: push() says when the reader has to wait, `roomAgain` (called on the handlers' thread) when it may go on.
/// What a handler throws leaves through the task, so that the executor's logger has it; the next one runs in the next
/// task. No lock is held while foreign code runs or is destroyed.
class Inbox : public std::enable_shared_from_this<Inbox> {
public:
    struct Limits {
        std::size_t entries = 256;
        std::size_t bytes = 1024 * 1024;
        std::chrono::steady_clock::duration turn = std::chrono::milliseconds(10);
    };

    /// `service` stands before what a handler throws; it may be empty.
    Inbox(std::shared_ptr<Tasks> tasks, std::string service, std::function<void()> roomAgain);
    Inbox(std::shared_ptr<Tasks> tasks, std::string service, std::function<void()> roomAgain, const Limits& limits);

    /// An event for a subscription; `bytes` is what it keeps alive. False: full, though this one was taken.
    bool push(std::shared_ptr<ActiveSubscription> subscription, Event event, std::size_t bytes);
    /// A call of a listener, which `what` names. Never too much.
    void push(std::string what, std::function<void()> call);

    /// Nothing starts any more. Returns when nothing runs on another thread.
    void close();
    /// The first half of close(): nothing starts any more, but something may still be running.
    void shut();

private:
    struct Entry {
        std::shared_ptr<ActiveSubscription> subscription;
        Event event = {};
        std::string what = {};
        std::function<void()> call = {};
        std::size_t bytes = 0;
    };

    bool add(Entry entry);
    /// Waits for memory where there is none, unless it is shut: what waits here must not be stuck.
    void schedule();
    bool isShut();
    void drain();
    bool next(Entry& entry);
    void deliverAndLeave(Entry& entry);
    void leave();
    void discard();

    const std::shared_ptr<Tasks> m_tasks;
    const std::string m_service;
    const std::function<void()> m_roomAgain;
    const Limits m_limits;

    std::mutex m_mutex; ///< guards what follows
    std::condition_variable m_left;
    std::list<Entry> m_waiting; ///< a list, which is made and moved without memory
    std::size_t m_bytes = 0;
    bool m_isFull = false; ///< the reader was told to wait
    bool m_isScheduled = false;
    bool m_isRunning = false;
    std::thread::id m_runner;
    bool m_isShut = false;
};

} // namespace xal

#endif
