#include "WebsocketManagers.h"

#include <xal/Transport.h>

#include <vector>

namespace xal {

IWebsocketManagerFactory::~IWebsocketManagerFactory() = default;
ITransportAccessFactory::~ITransportAccessFactory() = default;

DefaultWebsocketManagerFactory::DefaultWebsocketManagerFactory() : m_managers(std::make_shared<WebsocketManagers>()) {}
DefaultWebsocketManagerFactory::~DefaultWebsocketManagerFactory() = default;
void DefaultWebsocketManagerFactory::removeManager(const std::string& serviceName) {
    m_managers->remove(serviceName);
}
const std::shared_ptr<WebsocketManagers>& DefaultWebsocketManagerFactory::getManagers() const {
    return m_managers;
}

HttpAccessFactory::HttpAccessFactory(std::shared_ptr<xalutil::PocoHttpSessionFactory> sessions)
    : m_sessions(std::move(sessions)) {}
HttpAccessFactory::~HttpAccessFactory() = default;
const std::shared_ptr<xalutil::PocoHttpSessionFactory>& HttpAccessFactory::getSessions() const {
    return m_sessions;
}

void WebsocketManagers::add(const std::string& service, const std::shared_ptr<Manager>& manager) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (auto entry = m_managers.begin(); entry != m_managers.end();) {
        const auto known = entry->second.lock();
        entry = !known || known == manager ? m_managers.erase(entry) : std::next(entry);
    }
    m_managers.emplace(service, manager);
}

void WebsocketManagers::remove(const std::string& service) {
    std::vector<std::shared_ptr<Manager>> ended;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto [begin, end] = m_managers.equal_range(service);
        for (auto entry = begin; entry != end; ++entry)
            if (auto manager = entry->second.lock())
                ended.push_back(std::move(manager));
        m_managers.erase(begin, end);
    }
    for (const auto& manager : ended)
        (*manager)();
}

} // namespace xal
