#ifndef CDXMOROCLIENT_CONFIGURATIONMANAGER_H
#define CDXMOROCLIENT_CONFIGURATIONMANAGER_H

#include <oru/Json.h>
#include <xal/ConfigManager.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace zepclient {

/// The settings that the framework asks for, out of the application's two start-up documents.
///
/// load() is called once, before the framework is given the manager. The getters only read what load() stored: the
/// framework calls them from its own threads. All of them ignore the service's name, because the library configures
/// exactly one service; a stored value of another type throws the JSON library's exception.
class CdxXalConfigManager : public xal::IConfigManager {
public:
    using ServiceSettingMap = std::map<std::string, xal::XalServiceConfigurations::ServiceSetting>;

    struct registrySettings {
        std::string mode = "static";
        std::string httpUri = "http://[::1]:80";
        std::shared_ptr<ServiceSettingMap> serviceSettings = std::make_shared<ServiceSettingMap>();
    };

    struct ServiceSettings {
        std::string serverBaseUri = "http://[::1]:80";
        std::string serverBasePathWS = "/";
        std::string serverBasePathHTTP = "/";
        std::string separator = "/";
        std::int32_t timeOut = 0;
    };

    CdxXalConfigManager();
    ~CdxXalConfigManager() override;

    std::string getServerBaseUri(const std::string& service) const override;
    std::string getServerBasePath(const std::string& service) const override;
    std::string getSeparatorAfterResource(const std::string& service) const override;
    bool isServiceConfigurationKnown(const std::string& service) const override;
    int getWatchdogPingInterval(const std::string& service) const override;
    int getWatchdogPongTimeout(const std::string& service) const override;

    /// Stores copies of both documents, then reads the settings from the originals, to which every absent key that is
    /// read is added as a null member. Absent keys are empty, false or 0; they replace the defaults. Throws the JSON
    /// library's exception on a value that cannot be converted.
    void load(oru::Json::Value& registryDocument, oru::Json::Value& serviceDocument);

    /// By service name; never null.
    std::shared_ptr<ServiceSettingMap> getServiceSettings();
    const registrySettings& getRegistrySettings() const;

private:
    void loadServiceSettings(oru::Json::Value& settings);

    registrySettings m_registrySettings;
    ServiceSettings m_serviceSettings;
    oru::Json::Value m_registryDocument;
    oru::Json::Value m_serviceDocument;
};

} // namespace zepclient

#endif
