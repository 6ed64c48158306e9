#include "ServiceLink.h"

#include <xal/ServiceRegistry.h>
#include <xalutil/ProcessEnd.h>

#include <map>
#include <stdexcept>

namespace xal {
namespace {

constexpr std::chrono::milliseconds defaultTimeout(5000);

std::chrono::milliseconds timeoutOf(const xalutil::Optional<std::int64_t>& setting) {
    // What is too large for the clock's arithmetic is as good as for ever.
    constexpr std::int64_t longest = std::int64_t(1000) * 60 * 60 * 24 * 365;
    if (!setting.isValid() || setting.getValue() <= 0)
        return defaultTimeout;
    return std::chrono::milliseconds(std::min(setting.getValue(), longest));
}

std::shared_ptr<xalutil::ILogger> makeLogger(const std::shared_ptr<xalutil::LoggerFactory>& factory) {
    constexpr const char* facility = "XalServiceRegistry";
    std::shared_ptr<xalutil::ILogger> logger = factory ? factory->createLogger(facility) : nullptr;
    return logger ? logger : xalutil::LoggerFactory::getDefaultLoggerFactory()->createLogger(facility);
}

} // namespace

/// The links of one registry, and what they share.
class XalServiceRegistry::Impl {
public:
    Impl(const std::shared_ptr<IWebsocketManagerFactory>& websockets, std::shared_ptr<IConfigManager> config,
         const std::shared_ptr<xalutil::LoggerFactory>& loggers,
         const std::shared_ptr<ITransportAccessFactory>& transport, std::shared_ptr<xalutil::ITaskExecutor> task,
         std::shared_ptr<xalutil::ITaskExecutor> http, Settings settings,
         std::shared_ptr<std::map<std::string, XalServiceConfigurations::ServiceSetting>> serviceSettings);

    void registerListener(const std::string& service, ServiceLink::Listener listener,
                          std::function<void(const std::exception&)> error);
    void setHeaders(std::shared_ptr<RequestHeaders> headers) { m_context->headers->set(std::move(headers)); }
    void unsubscribeFromAll();
    void close();

private:
    std::vector<std::shared_ptr<ServiceLink>> links();
    const std::map<std::string, std::shared_ptr<ServiceLink>>& closedLinks();
    LinkSettings settingsOf(const std::string& service) const;

    const std::shared_ptr<IConfigManager> m_config;
    const Settings m_settings;
    const std::shared_ptr<std::map<std::string, XalServiceConfigurations::ServiceSetting>> m_serviceSettings;
    const std::shared_ptr<xalutil::ILogger> m_logger;
    const std::shared_ptr<RegistryContext> m_context;
    const std::shared_ptr<Inbox> m_errors; ///< calls of error handlers

    std::mutex m_mutex; ///< guards what follows
    std::map<std::string, std::shared_ptr<ServiceLink>> m_links;
    bool m_isClosed = false;

    xalutil::ProcessEndHook m_atProcessEnd; ///< last: it uses the others
};

XalServiceRegistry::Impl::Impl(
    const std::shared_ptr<IWebsocketManagerFactory>& websockets, std::shared_ptr<IConfigManager> config,
    const std::shared_ptr<xalutil::LoggerFactory>& loggers, const std::shared_ptr<ITransportAccessFactory>& transport,
    std::shared_ptr<xalutil::ITaskExecutor> task, std::shared_ptr<xalutil::ITaskExecutor> http, Settings settings,
    std::shared_ptr<std::map<std::string, XalServiceConfigurations::ServiceSetting>> serviceSettings)
    : m_config(std::move(config)), m_settings(std::move(settings)), m_serviceSettings(std::move(serviceSettings)),
      m_logger(makeLogger(loggers)), m_context(std::make_shared<RegistryContext>()),
      m_errors(std::make_shared<Inbox>(std::make_shared<Tasks>(task), std::string(), nullptr)), m_atProcessEnd([this] {
          for (const auto& [service, link] : closedLinks())
              link->end();
      }) {
    if (!m_config || !http)
        throw std::invalid_argument("a service registry needs a configuration manager and an HTTP executor");
    m_context->tasks = std::make_shared<Tasks>(std::move(task));
    m_context->http = std::move(http);
    m_context->pending = std::make_shared<PendingRequests>(m_context->tasks);
    m_context->headers = std::make_shared<xal::RequestHeaders>(m_settings.clientName);
    const auto httpFactory = std::dynamic_pointer_cast<HttpAccessFactory>(transport);
    m_context->access =
        std::make_shared<HttpAccess>(httpFactory ? httpFactory->getSessions() : nullptr, m_context->headers);
    const auto websocketFactory = std::dynamic_pointer_cast<DefaultWebsocketManagerFactory>(websockets);
    m_context->managers = websocketFactory ? websocketFactory->getManagers() : std::make_shared<WebsocketManagers>();
    if (m_settings.mode == "registry")
        m_context->registryUri = m_settings.registryUri;
}

LinkSettings XalServiceRegistry::Impl::settingsOf(const std::string& service) const {
    if (!m_settings.mode.empty() && m_settings.mode != "static" && m_settings.mode != "registry")
        throw std::runtime_error("unknown registry mode \"" + m_settings.mode + "\"");
    if (m_settings.mode == "registry" && m_settings.registryUri.empty())
        throw std::runtime_error("registry mode without a registry URI");
    const auto configuration = m_config->getServiceConfiguration(service);
    if (!configuration.known)
        throw std::runtime_error("the configuration of service \"" + service + "\" is unknown");
    XalServiceConfigurations::ServiceSetting setting;
    if (m_serviceSettings)
        if (const auto found = m_serviceSettings->find(service); found != m_serviceSettings->end())
            setting = found->second;

    LinkSettings settings;
    const bool isSeparated = setting.useSeparator.isValid() && setting.useSeparator.getValue();
    settings.address = {service, configuration.serverBaseUri, configuration.serverBasePath,
                        isSeparated ? configuration.separatorAfterResource : std::string()};
    settings.requestTimeout = timeoutOf(setting.requestTimeout);
    settings.subscribeTimeout = timeoutOf(setting.subscribeTimeout);
    settings.pingInterval = std::chrono::milliseconds(configuration.watchdogPingInterval);
    settings.pongTimeout = std::chrono::milliseconds(configuration.watchdogPongTimeout);
    return settings;
}

void XalServiceRegistry::Impl::registerListener(const std::string& service, ServiceLink::Listener listener,
                                                std::function<void(const std::exception&)> error) {
    std::shared_ptr<ServiceLink> link;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_isClosed)
            return;
        if (const auto known = m_links.find(service); known != m_links.end())
            link = known->second;
    }
    if (!link) {
        LinkSettings settings;
        try {
            settings = settingsOf(service);
        } catch (const std::exception& e) {
            m_logger->error(service + ": " + e.what());
            m_errors->push(service + ": error", [error = std::move(error), reason = std::runtime_error(e.what())] {
                detail::handlerBegins();
                if (error)
                    error(reason);
            });
            return;
        }
        auto logger = m_logger->getSubFacilityLogger(service); // a logger of somebody else's may have none
        const auto made = ServiceLink::make(m_context, settings, logger ? std::move(logger) : m_logger);
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (!m_isClosed)
                link = m_links.emplace(service, made).first->second;
        }
        if (link != made)
            made->end(); // closed meanwhile, or another thread was faster
        if (!link)
            return;
    }
    link->addListener(std::move(listener));
}

std::vector<std::shared_ptr<ServiceLink>> XalServiceRegistry::Impl::links() {
    std::vector<std::shared_ptr<ServiceLink>> result;
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto& [service, link] : m_links)
        result.push_back(link);
    return result;
}

/// Closed, the registry gets no link any more: they are gone through without a lock and without memory.
const std::map<std::string, std::shared_ptr<ServiceLink>>& XalServiceRegistry::Impl::closedLinks() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isClosed = true;
    return m_links;
}

void XalServiceRegistry::Impl::unsubscribeFromAll() {
    for (const auto& link : links())
        link->unsubscribeFromAll();
}

void XalServiceRegistry::Impl::close() {
    // All of it stops first, then it is waited for: nothing starts while something else is waited for.
    m_errors->shut();
    const auto& all = closedLinks();
    for (const auto& [service, link] : all)
        link->beginClose();
    m_context->access->cancel();
    m_errors->close();
    for (const auto& [service, link] : all)
        link->awaitClose();
    m_context->pending->failAll();
}

XalServiceRegistry::XalServiceRegistry(
    std::shared_ptr<IWebsocketManagerFactory> websockets, std::shared_ptr<IConfigManager> config,
    std::shared_ptr<xalutil::LoggerFactory> loggers, std::shared_ptr<ITransportAccessFactory> transport,
    std::shared_ptr<xalutil::ITaskExecutor> task, std::shared_ptr<xalutil::ITaskExecutor> http,
    const Settings& settings,
    std::shared_ptr<std::map<std::string, XalServiceConfigurations::ServiceSetting>> serviceSettings)
    : m_impl(std::make_shared<Impl>(websockets, std::move(config), loggers, transport, std::move(task), std::move(http),
                                    settings, std::move(serviceSettings))) {}

// A handler may let the registry go while another thread is inside of it: each call keeps what it needs.

XalServiceRegistry::~XalServiceRegistry() {
    m_impl->close();
}

void XalServiceRegistry::close() {
    const auto impl = m_impl;
    impl->close();
}

void XalServiceRegistry::setRequestHeaders(std::shared_ptr<RequestHeaders> headers) {
    m_impl->setHeaders(std::move(headers));
}

void XalServiceRegistry::unsubscribeFromAll() {
    m_impl->unsubscribeFromAll();
}

void XalServiceRegistry::registerListener(const std::string& service,
                                          std::function<void(std::shared_ptr<IServiceConnection>)> connected,
                                          std::function<void()> disconnected,
                                          std::function<void(const std::exception&)> error) {
    m_impl->registerListener(service, {std::move(connected), std::move(disconnected)}, std::move(error));
}

ElementRegistry::ElementRegistry(std::shared_ptr<IServiceRegistry> registry, std::shared_ptr<xalutil::ILogger> logger)
    : m_registry(std::move(registry)), m_logger(std::move(logger)) {}

ElementRegistry::~ElementRegistry() = default;

void ElementRegistry::unsubscribeFromAll() {
    const auto registry = std::dynamic_pointer_cast<XalServiceRegistry>(m_registry);
    if (!registry)
        return;
    registry->unsubscribeFromAll();
    if (m_logger && m_logger->isDebug())
        m_logger->debug("all subscriptions ended");
}

} // namespace xal
