#include "ConfigurationManager.h"

#include "CdxLog.h"

namespace zepclient {

namespace {

constexpr int watchdogMilliseconds = 600;

} // namespace

CdxXalConfigManager::CdxXalConfigManager() {
    CDX_LOG(LogDebug);
}

CdxXalConfigManager::~CdxXalConfigManager() = default;

std::string CdxXalConfigManager::getServerBaseUri(const std::string&) const {
    std::string uri = m_serviceDocument["serverBaseUri"].asString();
    CDX_LOG_NO_LINE(LogNotice) << "SERVER BASE URI = " << uri;
    return uri;
}

std::string CdxXalConfigManager::getServerBasePath(const std::string&) const {
    std::string path = m_serviceDocument["serverBasePathHTTP"].asString();
    CDX_LOG_NO_LINE(LogNotice) << "SERVER BASE PATH HTTP = " << path;
    return path;
}

std::string CdxXalConfigManager::getSeparatorAfterResource(const std::string&) const {
    std::string separator = m_serviceDocument["separatorAfterResource"].asString();
    CDX_LOG_NO_LINE(LogNotice) << "SEPARATOR AFTer RESOURCE = " << separator;
    return separator;
}

bool CdxXalConfigManager::isServiceConfigurationKnown(const std::string&) const {
    return !m_serviceDocument.empty();
}

int CdxXalConfigManager::getWatchdogPingInterval(const std::string&) const {
    return watchdogMilliseconds;
}

int CdxXalConfigManager::getWatchdogPongTimeout(const std::string&) const {
    return watchdogMilliseconds;
}

void CdxXalConfigManager::load(oru::Json::Value& registryDocument, oru::Json::Value& serviceDocument) {
    CDX_LOG(LogDebug);
    m_registryDocument = registryDocument;
    m_serviceDocument = serviceDocument;

    m_registrySettings.mode = registryDocument["mode"].asString();
    m_registrySettings.httpUri = registryDocument["httpUri"].asString();
    if (registryDocument.isMember("serviceSettings") && registryDocument["serviceSettings"].isArray())
        loadServiceSettings(registryDocument["serviceSettings"]);

    m_serviceSettings.serverBaseUri = serviceDocument["serverBaseUri"].asString();
    m_serviceSettings.serverBasePathHTTP = serviceDocument["serverBasePathHTTP"].asString();
    m_serviceSettings.serverBasePathWS = serviceDocument["serverBasePathWS"].asString();
    m_serviceSettings.separator = serviceDocument["separator"].asString();
    m_serviceSettings.timeOut = serviceDocument["timeOut"].asInt();
}

void CdxXalConfigManager::loadServiceSettings(oru::Json::Value& settings) {
    for (oru::Json::Value& element : settings) {
        const std::string name = element["service"].asString();
        xal::XalServiceConfigurations::ServiceSetting setting;
        setting.useSeparator.setValue(element["useSeparator"].asBool());
        const std::int64_t timeOut = element["timeOut"].asInt();
        setting.requestTimeout.setValue(timeOut);
        setting.subscribeTimeout.setValue(timeOut);
        m_registrySettings.serviceSettings->emplace(name, setting); // of a name given twice the first entry holds
    }
}

std::shared_ptr<CdxXalConfigManager::ServiceSettingMap> CdxXalConfigManager::getServiceSettings() {
    return m_registrySettings.serviceSettings;
}

const CdxXalConfigManager::registrySettings& CdxXalConfigManager::getRegistrySettings() const {
    return m_registrySettings;
}

} // namespace zepclient
