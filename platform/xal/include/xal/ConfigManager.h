#ifndef XAL_CONFIGMANAGER_H
#define XAL_CONFIGMANAGER_H

#include <xalutil/Optional.h>

#include <cstdint>
#include <string>

namespace xal {

struct XalServiceConfigurations {
    /// What an application sets for one service, over the framework's defaults. Time-outs are in milliseconds; absent,
    /// 0 or negative: 5000.
    struct ServiceSetting {
        xalutil::Optional<bool> useSeparator;
        xalutil::Optional<std::int64_t> requestTimeout, subscribeTimeout;
    };
    /// How one service is reached. Watchdog times are in milliseconds, 0 switches it off.
    struct ServiceConfiguration {
        bool known = false;
        std::string serverBaseUri, serverBasePath, separatorAfterResource;
        int watchdogPingInterval = 0, watchdogPongTimeout = 0;
    };
};

/// Tells the framework how services are reached. Called from the framework's threads, at any time, perhaps at once.
/// The order of the virtual operations is part of the interface.
class IConfigManager {
public:
    virtual ~IConfigManager();
    virtual std::string getServerBaseUri(const std::string& service) const = 0;
    virtual std::string getServerBasePath(const std::string& service) const = 0;
    virtual std::string getSeparatorAfterResource(const std::string& service) const = 0;
    virtual bool isServiceConfigurationKnown(const std::string& service) const = 0;
    virtual int getWatchdogPingInterval(const std::string& service) const = 0;
    virtual int getWatchdogPongTimeout(const std::string& service) const = 0;
    /// Puts the answers of the others together.
    virtual XalServiceConfigurations::ServiceConfiguration getServiceConfiguration(const std::string& service) const;
};

} // namespace xal

#endif
