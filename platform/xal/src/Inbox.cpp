#include "Inbox.h"

#include "Telling.h"

#include <xalutil/ProcessEnd.h>
#include <xalutil/StopCallback.h>

#include <stdexcept>

namespace xal {

Inbox::Inbox(std::shared_ptr<Tasks> tasks, std::string service, std::function<void()> roomAgain)
    : Inbox(std::move(tasks), std::move(service), std::move(roomAgain), Limits()) {}

Inbox::Inbox(std::shared_ptr<Tasks> tasks, std::string service, std::function<void()> roomAgain, const Limits& limits)
    : m_tasks(std::move(tasks)), m_service(std::move(service)), m_roomAgain(std::move(roomAgain)), m_limits(limits) {}

bool Inbox::push(std::shared_ptr<ActiveSubscription> subscription, Event event, std::size_t bytes) {
    Entry entry;
    entry.subscription = std::move(subscription);
    entry.event = std::move(event);
    entry.bytes = bytes;
    return add(std::move(entry));
}

void Inbox::push(std::string what, std::function<void()> call) {
    Entry entry;
    entry.what = std::move(what);
    entry.call = std::move(call);
    add(std::move(entry));
}

bool Inbox::add(Entry entry) {
    bool hasRoom = true;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_isShut)
            return true;
        m_waiting.push_back(std::move(entry));
        m_bytes += m_waiting.back().bytes;
        hasRoom = m_bytes < m_limits.bytes && m_waiting.size() < m_limits.entries;
        m_isFull = m_isFull || !hasRoom;
        if (m_isScheduled)
            return hasRoom;
        m_isScheduled = true;
    }
    schedule();
    return hasRoom;
}

void Inbox::schedule() {
    persist(
        [this] {
            m_tasks->post([self = shared_from_this()] { self->drain(); },
                          [self = shared_from_this()] { self->discard(); });
        },
        [this] { return isShut(); });
}

bool Inbox::isShut() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_isShut;
}

void Inbox::drain() {
    const auto turnEnds = std::chrono::steady_clock::now() + m_limits.turn;
    for (;;) {
        Entry entry;
        if (!next(entry))
            return;
        try {
            deliverAndLeave(entry);
        } catch (...) {
            schedule();
            throw;
        }
        // A stop lets the running handler end, not all that waits behind it; scheduled, that is dropped.
        if (std::chrono::steady_clock::now() >= turnEnds || xalutil::StopCallback::isStopRequested())
            return schedule();
    }
}

bool Inbox::next(Entry& entry) {
    bool hasRoomAgain = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_waiting.empty()) {
            m_isScheduled = false;
            return false;
        }
        entry = std::move(m_waiting.front());
        m_waiting.pop_front();
        m_bytes -= entry.bytes;
        m_isRunning = true;
        m_runner = std::this_thread::get_id();
        hasRoomAgain = m_isFull && m_bytes <= m_limits.bytes / 2 && m_waiting.size() <= m_limits.entries / 2;
        m_isFull = m_isFull && !hasRoomAgain;
    }
    if (hasRoomAgain && m_roomAgain)
        m_roomAgain();
    return true;
}

void Inbox::deliverAndLeave(Entry& entry) {
    struct Leaving {
        Inbox& inbox;
        Entry& entry;
        ~Leaving() {
            entry = Entry();
            inbox.leave();
        }
    } const leaving{*this, entry};
    try {
        const auto isOver = [this] { return isShut(); };
        if (entry.subscription)
            tellOnce([&] { entry.subscription->deliver(entry.event); }, isOver);
        else
            tellOnce(entry.call, isOver);
    } catch (...) {
        const std::string where = (m_service.empty() ? "" : m_service + (entry.subscription ? "/" : ": ")) +
                                  (entry.subscription ? entry.subscription->name() + ":" : entry.what) + " handler";
        throw std::runtime_error(describeThrown(where));
    }
}

void Inbox::leave() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isRunning = false;
    }
    m_left.notify_all();
}

void Inbox::discard() {
    std::list<Entry> dropped;
    bool wasFull = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        dropped.swap(m_waiting);
        m_bytes = 0;
        m_isScheduled = false;
        wasFull = m_isFull;
        m_isFull = false;
    }
    if (wasFull && m_roomAgain)
        m_roomAgain();
}

void Inbox::shut() {
    std::list<Entry> dropped;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isShut = true;
    m_bytes = 0;
    dropped.swap(m_waiting);
}

void Inbox::close() {
    shut();
    if (xalutil::isProcessEnding())
        return;
    std::unique_lock<std::mutex> lock(m_mutex);
    m_left.wait(lock, [&] { return !m_isRunning || m_runner == std::this_thread::get_id(); });
}

} // namespace xal
