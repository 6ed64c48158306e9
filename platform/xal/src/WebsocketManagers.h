#ifndef XAL_WEBSOCKETMANAGERS_H
#define XAL_WEBSOCKETMANAGERS_H

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace xal {

/// Who can end the WebSocket connections of which service. Any thread.
class WebsocketManagers {
public:
    /// Kept by whoever has a connection; gone with it.
    using Manager = std::function<void()>;

    void add(const std::string& service, const std::shared_ptr<Manager>& manager);
    void remove(const std::string& service);

private:
    std::mutex m_mutex;
    std::multimap<std::string, std::weak_ptr<Manager>> m_managers; ///< guarded by m_mutex
};

} // namespace xal

#endif
