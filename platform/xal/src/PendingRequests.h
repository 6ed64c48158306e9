#ifndef XAL_PENDINGREQUESTS_H
#define XAL_PENDINGREQUESTS_H

#include "Tasks.h"

#include <xal/Service.h>

#include <atomic>
#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace xal {

/// The requests that have no result yet, or one that waits for the task executor. Each is answered exactly once,
/// whatever happens to the tasks that carry it; not at all only when the task executor drops the result.
///
/// Any thread; no lock is held while a handler runs or is destroyed.
class PendingRequests : public std::enable_shared_from_this<PendingRequests> {
public:
    class Entry;
    using Ticket = std::shared_ptr<Entry>;
    using Response = std::shared_ptr<const XalResponse>;
    using Value = std::shared_ptr<xalutil::JsonValue>;

    explicit PendingRequests(std::shared_ptr<Tasks> tasks);

    /// `name` is what an error of the handler is reported under.
    Ticket add(const std::string& name, IServiceConnection::Answer answer);
    /// The first answer to a ticket counts; its handler then runs on the task executor. Waits for memory where there is
    /// none, but no longer than failAll() lets it: then the result is dropped.
    void answer(const Ticket& ticket, Response response, Value value = nullptr);
    /// Answers it with status 0.
    void fail(const Ticket& ticket);

    /// Lets everything pending fail that has no answer yet, and returns when no handler is waiting or running any more:
    /// on the task executor's thread by running them, unless the executor was stopped before; elsewhere by waiting.
    void failAll();

private:
    bool claim(const Ticket& ticket, IServiceConnection::Answer& handler);
    void finish(const Ticket& ticket);
    void run(const Ticket& ticket);
    void drop(const Ticket& ticket);
    void runHere(const std::vector<Ticket>& tickets);

    const std::shared_ptr<Tasks> m_tasks;
    const Response m_failure = std::make_shared<const XalResponse>(0);
    std::atomic<bool> m_isClosing{false};
    std::mutex m_mutex; ///< guards the list and every entry
    std::condition_variable m_over;
    std::list<Ticket> m_pending; ///< in the order in which they were made
    std::vector<Ticket> m_room;  ///< empty, with room for all of them: closing must not need memory
};

class PendingRequests::Entry {
private:
    friend class PendingRequests;
    enum State { WAITING, ANSWERED, RUNNING, OVER };

    State state = WAITING;
    std::string name;
    IServiceConnection::Answer handler;
    Response response;
    Value value;
    std::thread::id runner;
    std::list<Ticket>::iterator place;
};

} // namespace xal

#endif
