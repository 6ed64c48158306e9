#include <xal/ConfigManager.h>

namespace xal {

IConfigManager::~IConfigManager() = default;

XalServiceConfigurations::ServiceConfiguration
IConfigManager::getServiceConfiguration(const std::string& service) const {
    XalServiceConfigurations::ServiceConfiguration configuration;
    configuration.known = isServiceConfigurationKnown(service);
    configuration.serverBaseUri = getServerBaseUri(service);
    configuration.serverBasePath = getServerBasePath(service);
    configuration.separatorAfterResource = getSeparatorAfterResource(service);
    configuration.watchdogPingInterval = getWatchdogPingInterval(service);
    configuration.watchdogPongTimeout = getWatchdogPongTimeout(service);
    return configuration;
}

} // namespace xal
