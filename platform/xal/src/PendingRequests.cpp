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
    persist([&] {
        m_tasks->post([self = shared_from_this(), ticket] { self->run(ticket); },
                      [self = shared_from_this(), ticket] { self->drop(ticket); });
    });
}

void PendingRequests::fail(const Ticket& ticket) {
    answer(ticket, persist([] { return std::make_shared<const XalResponse>(0); }));
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
        tellOnce([&] { handler(ticket->response, ticket->value); });
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

void PendingRequests::runHere(const std::list<Ticket>& tickets) {
    const bool isStopped = persist([this] { return m_tasks->isStopped(); });
    for (const Ticket& ticket : tickets) {
        if (isStopped) {
            drop(ticket);
            continue;
        }
        try {
            run(ticket);
        } catch (const std::exception& e) {
            persist([&] { m_tasks->report(e.what()); });
        }
    }
}

void PendingRequests::failAll() {
    const std::list<Ticket> tickets = persist([this] {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_pending;
    });
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
