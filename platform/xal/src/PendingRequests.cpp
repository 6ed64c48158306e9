#include "PendingRequests.h"

#include "Telling.h"

#include <xalutil/ProcessEnd.h>

#include <algorithm>
#include <stdexcept>

namespace xal {

PendingRequests::PendingRequests(std::shared_ptr<Tasks> tasks) : m_tasks(std::move(tasks)) {}

PendingRequests::Ticket PendingRequests::add(const std::string& name, IServiceConnection::Answer answer) {
    auto ticket = std::make_shared<Entry>();
    ticket->name = name;
    ticket->handler = std::move(answer);
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_room.capacity() <= m_pending.size())
        m_room.reserve(2 * m_pending.size() + 1);
    ticket->place = m_pending.insert(m_pending.end(), ticket);
    return ticket;
}

void PendingRequests::answer(const Ticket& ticket, Response response, Value value) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (ticket->state != Entry::WAITING)
            return;
        ticket->state = Entry::ANSWERED;
        ticket->response = std::move(response);
        ticket->value = std::move(value);
    }
    const bool isPosted = persist(
        [&] {
            m_tasks->post([self = shared_from_this(), ticket] { self->run(ticket); },
                          [self = shared_from_this(), ticket] { self->drop(ticket); });
        },
        [this] { return m_isClosing || xalutil::isProcessEnding(); });
    // On the executor's own thread failAll() still runs it.
    if (!isPosted && !m_tasks->isHere())
        drop(ticket);
}

void PendingRequests::fail(const Ticket& ticket) {
    answer(ticket, m_failure);
}

bool PendingRequests::claim(const Ticket& ticket, IServiceConnection::Answer& handler) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (ticket->state != Entry::ANSWERED)
        return false;
    ticket->state = Entry::RUNNING;
    ticket->runner = std::this_thread::get_id();
    handler.swap(ticket->handler);
    return true;
}

void PendingRequests::finish(const Ticket& ticket) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ticket->state = Entry::OVER;
        m_pending.erase(ticket->place);
    }
    m_over.notify_all();
}

// Whoever waits for a handler may free what it refers to: in both cases the handler goes before that is let out.

void PendingRequests::run(const Ticket& ticket) {
    IServiceConnection::Answer handler;
    if (!claim(ticket, handler))
        return;
    struct AtEnd {
        PendingRequests& requests;
        const Ticket& ticket;
        IServiceConnection::Answer& handler;
        ~AtEnd() {
            handler = nullptr;
            requests.finish(ticket);
        }
    } const atEnd{*this, ticket, handler};
    try {
        tellOnce([&] { handler(ticket->response, ticket->value); }, [this] { return m_isClosing.load(); });
    } catch (...) {
        throw std::runtime_error(describeThrown(ticket->name + ": result handler"));
    }
}

void PendingRequests::drop(const Ticket& ticket) {
    IServiceConnection::Answer handler;
    if (!claim(ticket, handler))
        return;
    handler = nullptr;
    finish(ticket);
}

void PendingRequests::runHere(const std::vector<Ticket>& tickets) {
    bool isStopped = false;
    persistForASecond([&] { isStopped = m_tasks->isStopped(); });
    for (const Ticket& ticket : tickets) {
        if (isStopped) {
            drop(ticket);
            continue;
        }
        try {
            run(ticket);
        } catch (const std::exception& e) {
            persistForASecond([&] { m_tasks->report(e.what()); });
        }
    }
}

void PendingRequests::failAll() {
    m_isClosing = true;
    std::vector<Ticket> tickets;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        tickets.swap(m_room);
        persistForASecond([&] { tickets.assign(m_pending.begin(), m_pending.end()); });
    }
    for (const Ticket& ticket : tickets)
        fail(ticket);
    if (m_tasks->isHere())
        runHere(tickets);
    if (xalutil::isProcessEnding())
        return;
    std::unique_lock<std::mutex> lock(m_mutex);
    for (const Ticket& ticket : tickets)
        m_over.wait(lock, [&] { return ticket->state == Entry::OVER || ticket->runner == std::this_thread::get_id(); });
}

} // namespace xal
