#ifndef XAL_CLIENT_H
#define XAL_CLIENT_H

#include <xal/ServiceRegistry.h>
#include <xalutil/Logger.h>

#include <map>
#include <memory>
#include <string>

namespace xal {

/// What one client of services works with. Hands its map of request headers to the registry.
class XalClientServices {
public:
    XalClientServices(std::shared_ptr<IServiceRegistry> serviceRegistry,
                      std::shared_ptr<xalutil::LoggerFactory> loggerFactory,
                      std::shared_ptr<ElementRegistry> elementRegistry,
                      std::shared_ptr<std::map<std::string, std::shared_ptr<std::string>>> requestHeaders,
                      const std::string& clientName);

    const std::shared_ptr<IServiceRegistry>& getServiceRegistry() const;
    const std::shared_ptr<xalutil::LoggerFactory>& getLoggerFactory() const;
    const std::shared_ptr<ElementRegistry>& getElementRegistry() const;
    const std::string& getClientName() const;

private:
    std::shared_ptr<IServiceRegistry> m_serviceRegistry;
    std::shared_ptr<xalutil::LoggerFactory> m_loggerFactory;
    std::shared_ptr<ElementRegistry> m_elementRegistry;
    std::shared_ptr<std::map<std::string, std::shared_ptr<std::string>>> m_requestHeaders;
    std::string m_clientName;
};

/// Base of a program's own client. The order of the virtual operations is part of the interface.
class XalClient {
public:
    explicit XalClient(const std::shared_ptr<XalClientServices>& services);
    virtual void start() = 0;
    virtual ~XalClient();

protected:
    const std::shared_ptr<XalClientServices>& getClientServices() const;

private:
    std::shared_ptr<XalClientServices> m_services;
};

} // namespace xal

#endif
