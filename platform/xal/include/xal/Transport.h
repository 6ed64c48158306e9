#ifndef XAL_TRANSPORT_H
#define XAL_TRANSPORT_H

#include <xalutil/HttpSession.h>

#include <memory>
#include <string>

namespace xal {

class WebsocketManagers;

/// Makes and keeps the WebSocket connections, one manager for each service.
class IWebsocketManagerFactory {
public:
    virtual ~IWebsocketManagerFactory();
};

class DefaultWebsocketManagerFactory : public IWebsocketManagerFactory {
public:
    DefaultWebsocketManagerFactory();
    ~DefaultWebsocketManagerFactory() override;
    /// Ends the service's WebSocket connection, if there is one, and forgets its manager. For a registry that is still
    /// open this is a loss like any other: it connects again, with a new manager.
    void removeManager(const std::string& serviceName);

    const std::shared_ptr<WebsocketManagers>& getManagers() const;

private:
    std::shared_ptr<WebsocketManagers> m_managers;
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

    const std::shared_ptr<xalutil::PocoHttpSessionFactory>& getSessions() const;

private:
    std::shared_ptr<xalutil::PocoHttpSessionFactory> m_sessions;
};

} // namespace xal

#endif
