#include "CallbackList.h"

#include <algorithm>
#include <utility>

namespace xalutil {

void CallbackList::callAll() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_isCalled = true;
    while (!m_waiting.empty()) {
        const std::shared_ptr<Entry> entry = std::move(m_waiting.back());
        m_waiting.pop_back();
        entry->isRunning = true;
        entry->runner = std::this_thread::get_id();
        lock.unlock();
        entry->call();
        lock.lock();
        entry->isRunning = false;
        m_returned.notify_all();
    }
}

bool CallbackList::isCalled() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_isCalled;
}

std::shared_ptr<CallbackList::Entry> CallbackList::add(std::function<void()> call) {
    auto entry = std::make_shared<Entry>();
    entry->call = std::move(call);
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_isCalled) {
            m_waiting.push_back(entry);
            return entry;
        }
    }
    entry->call();
    return entry;
}

void CallbackList::remove(const std::shared_ptr<Entry>& entry) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_waiting.erase(std::remove(m_waiting.begin(), m_waiting.end(), entry), m_waiting.end());
    if (entry->runner != std::this_thread::get_id())
        m_returned.wait(lock, [&] { return !entry->isRunning; });
}

CallbackRegistration::CallbackRegistration(std::shared_ptr<CallbackList> list, std::function<void()> call)
    : m_list(std::move(list)), m_entry(m_list->add(std::move(call))) {}

CallbackRegistration::~CallbackRegistration() {
    m_list->remove(m_entry);
}

} // namespace xalutil
