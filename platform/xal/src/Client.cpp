#include <xal/Client.h>

namespace xal {

XalClientServices::XalClientServices(
    std::shared_ptr<IServiceRegistry> serviceRegistry, std::shared_ptr<xalutil::LoggerFactory> loggerFactory,
    std::shared_ptr<ElementRegistry> elementRegistry,
    std::shared_ptr<std::map<std::string, std::shared_ptr<std::string>>> requestHeaders, const std::string& clientName)
    : m_serviceRegistry(std::move(serviceRegistry)), m_loggerFactory(std::move(loggerFactory)),
      m_elementRegistry(std::move(elementRegistry)), m_requestHeaders(std::move(requestHeaders)),
      m_clientName(clientName) {
    if (m_serviceRegistry)
        m_serviceRegistry->setRequestHeaders(m_requestHeaders);
}

const std::shared_ptr<IServiceRegistry>& XalClientServices::getServiceRegistry() const {
    return m_serviceRegistry;
}
const std::shared_ptr<xalutil::LoggerFactory>& XalClientServices::getLoggerFactory() const {
    return m_loggerFactory;
}
const std::shared_ptr<ElementRegistry>& XalClientServices::getElementRegistry() const {
    return m_elementRegistry;
}
const std::string& XalClientServices::getClientName() const {
    return m_clientName;
}

XalClient::XalClient(const std::shared_ptr<XalClientServices>& services) : m_services(services) {}
XalClient::~XalClient() = default;
const std::shared_ptr<XalClientServices>& XalClient::getClientServices() const {
    return m_services;
}

} // namespace xal
