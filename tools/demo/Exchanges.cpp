#include "Exchanges.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace cdxtools {

Exchanges::Exchanges(std::vector<std::string> plan, std::chrono::seconds patience)
    : m_plan(std::move(plan)), m_deadline(std::chrono::steady_clock::now() + patience) {}

void Exchanges::arrived(const std::string& name) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_arrived.insert(name);
    m_somethingArrived.notify_all();
}

bool Exchanges::await(const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        if (std::find(m_plan.begin(), m_plan.end(), name) == m_plan.end())
            throw std::logic_error("the plan has no exchange \"" + name + "\"");
    }
    std::unique_lock<std::mutex> lock(m_mutex);
    const bool complete = m_somethingArrived.wait_until(lock, m_deadline, [&] {
        return std::all_of(names.begin(), names.end(), [&](const auto& name) { return m_arrived.count(name) != 0; });
    });
    std::copy_if(names.begin(), names.end(), std::inserter(m_completed, m_completed.end()),
                 [&](const auto& name) { return m_arrived.count(name) != 0; });
    return complete;
}

std::size_t Exchanges::completed() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_completed.size();
}

std::vector<std::string> Exchanges::missing() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::string> names;
    std::copy_if(m_plan.begin(), m_plan.end(), std::back_inserter(names),
                 [&](const auto& name) { return m_completed.count(name) == 0; });
    return names;
}

} // namespace cdxtools
