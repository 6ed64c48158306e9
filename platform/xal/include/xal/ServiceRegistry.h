#ifndef XAL_SERVICEREGISTRY_H
#define XAL_SERVICEREGISTRY_H

#include <xal/ConfigManager.h>
#include <xal/Service.h>
#include <xal/Transport.h>
#include <xalutil/Logger.h>
#include <xalutil/TaskExecutor.h>

#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <string>

namespace xal {

/// What a program does when a service comes, goes or cannot be listened to. `S` is a service class with a static
/// getServiceName() and a constructor from std::shared_ptr<IServiceConnection>. All three run on the task executor's
/// thread, one at a time; each may be empty.
template <class S>
struct ServiceListener {
    std::function<void(std::shared_ptr<S>)> connected;
    std::function<void()> disconnected;
    std::function<void(const std::exception&)> error;
};

class IServiceRegistry {
public:
    using RequestHeaders = std::map<std::string, std::shared_ptr<std::string>>;

    virtual ~IServiceRegistry();

    /// Leads to a connection attempt at once, and to a new service object for every connection that is made. Throws
    /// std::system_error when the system gives no thread or no descriptor; nothing is registered then.
    template <class S>
    void registerServiceListener(const ServiceListener<S>& listener) {
        registerListener(
            S::getServiceName(),
            [connected = listener.connected](std::shared_ptr<IServiceConnection> connection) {
                if (!connected)
                    return;
                auto service = std::make_shared<S>(std::move(connection));
                detail::handlerBegins();
                connected(std::move(service));
            },
            listener.disconnected, listener.error);
    }

    /// Ends every connection. After it no listener, callback or earlier request's result handler starts, and it returns
    /// when none runs on another thread. It makes no disconnected call. It may be repeated; registering afterwards does
    /// nothing.
    virtual void close() = 0;

    /// What every request, question and upgrade carries from now on, read without a lock: to change it while requests
    /// run, hand over another map. This base does nothing with it.
    virtual void setRequestHeaders(std::shared_ptr<RequestHeaders> headers);

protected:
    virtual void registerListener(const std::string& service,
                                  std::function<void(std::shared_ptr<IServiceConnection>)> connected,
                                  std::function<void()> disconnected,
                                  std::function<void(const std::exception&)> error) = 0;
};

class XalServiceRegistry : public IServiceRegistry {
public:
    struct Settings {
        /// "static" (or empty): the service is at its configured base URI. "registry": the registry is asked before
        /// every attempt.
        std::string mode;
        std::string registryUri;
        std::string clientName;
    };

    /// Throws std::invalid_argument without a configuration manager or an executor.
    XalServiceRegistry(
        std::shared_ptr<IWebsocketManagerFactory> websockets, std::shared_ptr<IConfigManager> config,
        std::shared_ptr<xalutil::LoggerFactory> loggers, std::shared_ptr<ITransportAccessFactory> transport,
        std::shared_ptr<xalutil::ITaskExecutor> task, std::shared_ptr<xalutil::ITaskExecutor> http,
        const Settings& settings,
        std::shared_ptr<std::map<std::string, XalServiceConfigurations::ServiceSetting>> serviceSettings);
    /// Closes.
    ~XalServiceRegistry() override;

    void close() override;
    void setRequestHeaders(std::shared_ptr<RequestHeaders> headers) override;
    /// Ends every subscription made through this registry, as its own unsubscribe() would; connections stay.
    void unsubscribeFromAll();

    class Impl;

protected:
    void registerListener(const std::string& service,
                          std::function<void(std::shared_ptr<IServiceConnection>)> connected,
                          std::function<void()> disconnected,
                          std::function<void(const std::exception&)> error) override;

private:
    std::shared_ptr<Impl> m_impl;
};

/// Every subscription made through one registry, whoever holds it.
class ElementRegistry {
public:
    ElementRegistry(std::shared_ptr<IServiceRegistry> registry, std::shared_ptr<xalutil::ILogger> logger);
    ~ElementRegistry();
    /// Ends them all, as their own unsubscribe() would; connections stay.
    void unsubscribeFromAll();

private:
    std::shared_ptr<IServiceRegistry> m_registry;
    std::shared_ptr<xalutil::ILogger> m_logger;
};

} // namespace xal

#endif
