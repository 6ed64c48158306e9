#pragma once

#include <xalutil/HttpSession.h>

#include <memory>
#include <string>

namespace xal {

/// Makes and keeps the WebSocket connections, one manager for each service.
class IWebsocketManagerFactory {
public:
    virtual ~IWebsocketManagerFactory();
};

class DefaultWebsocketManagerFactory : public IWebsocketManagerFactory {
public:
    DefaultWebsocketManagerFactory();
    ~DefaultWebsocketManagerFactory() override;
    /// Ends the service's WebSocket connection, if there is one, and forgets its manager.
    void removeManager(const std::string& serviceName);
};

/// Makes what requests travel over.
class ITransportAccessFactory {
public:
    virtual ~ITransportAccessFactory();
};

class HttpAccessFactory : public ITransportAccessFactory {
public:
    explicit HttpAccessFactory(std::shared_ptr<xalutil::PocoHttpSessionFactory> sessions);
    ~HttpAccessFactory() override;

private:
    std::shared_ptr<xalutil::PocoHttpSessionFactory> m_sessions;
};

} // namespace xal
