#include "CdxBaseXalClient.h"

#include "CdxLog.h"
#include "ConfigurationManager.h"

#include <Cardataexchange.h>
#include <xalutil/HttpSession.h>

#include <iostream>

namespace zepclient {

CdxMoRoLogger::CdxMoRoLogger(const std::string& facility) : m_label(facility + ": ") {}

CdxMoRoLogger::~CdxMoRoLogger() = default;

void CdxMoRoLogger::trace(const std::string& message) {
    write("TRACE: ", message);
}

void CdxMoRoLogger::debug(const std::string& message) {
    write("DEBUG: ", message);
}

void CdxMoRoLogger::info(const std::string& message) {
    write("INFO: ", message);
}

void CdxMoRoLogger::warning(const std::string& message) {
    write("WARN: ", message);
}

void CdxMoRoLogger::error(const std::string& message) {
    write("ERROR: ", message);
}

void CdxMoRoLogger::system(const std::string& message) {
    write("VERBOSE: ", message);
}

bool CdxMoRoLogger::isTrace() const {
    return true;
}

bool CdxMoRoLogger::isDebug() const {
    return true;
}

bool CdxMoRoLogger::isInfo() const {
    return true;
}

bool CdxMoRoLogger::isWarning() const {
    return true;
}

bool CdxMoRoLogger::isError() const {
    return true;
}

bool CdxMoRoLogger::isSystem() const {
    return true;
}

std::shared_ptr<xalutil::ILogger> CdxMoRoLogger::getSubFacilityLogger(const std::string& subFacility) const {
    return std::make_shared<CdxMoRoLogger>(subFacility);
}

void CdxMoRoLogger::write(const char* prefix, const std::string& message) const {
    std::cout << prefix << m_label << message << std::endl;
}

CdxMoRoLoggerFactory::~CdxMoRoLoggerFactory() = default;

std::unique_ptr<xalutil::ILogger> CdxMoRoLoggerFactory::createLogger(const std::string& facility) {
    return std::make_unique<CdxMoRoLogger>(facility);
}

std::shared_ptr<CdxBaseXalClient> CdxBaseXalClient::getInstance() {
    static const std::shared_ptr<CdxBaseXalClient> instance(new CdxBaseXalClient);
    return instance;
}

CdxBaseXalClient::CdxBaseXalClient() {
    CDX_LOG(LogDebug);
}

CdxBaseXalClient::~CdxBaseXalClient() {
    CDX_LOG(LogDebug);
}

void CdxBaseXalClient::Stop() {
    CDX_LOG(LogDebug);
    if (m_elementRegistry)
        m_elementRegistry->unsubscribeFromAll();
    if (m_firstExecutor)
        m_firstExecutor->stop();
    if (m_secondExecutor)
        m_secondExecutor->stop();
    if (m_serviceRegistry)
        m_serviceRegistry->close();
    if (m_websocketManagerFactory)
        m_websocketManagerFactory->removeManager(xalobjects_GX2::CardataexchangeService::getServiceName());
    CDX_LOG_NO_LINE(LogNotice) << "Stopped and cleared XAL executor";
    m_elementRegistry.reset();
    m_serviceRegistry.reset();
    m_secondExecutor.reset();
    CDX_LOG_NO_LINE(LogNotice) << "Going to clean WebSocket Manager factory";
    m_websocketManagerFactory.reset();
    m_requestHeaders.reset();
    m_loggerFactory.reset();
    m_httpAccessFactory.reset();
    CDX_LOG_NO_LINE(LogNotice) << "Now going to reset the executor";
    m_firstExecutor.reset();
    m_configManager.reset();
}

std::shared_ptr<CdxBaseXalClient> CdxXalClient::CreateCdxBaseRasiClient(oru::Json::Value& registryDocument,
                                                                        oru::Json::Value& serviceDocument) {
    CDX_LOG(LogDebug);
    std::shared_ptr<CdxBaseXalClient> client = CdxBaseXalClient::getInstance();
    CDX_LOG(LogNotice) << "Creating the Base XAL Client";

    client->m_websocketManagerFactory = std::make_shared<xal::DefaultWebsocketManagerFactory>();
    client->m_requestHeaders = std::make_shared<std::map<std::string, std::shared_ptr<std::string>>>();
    const auto sessions = std::make_shared<xalutil::PocoHttpSessionFactory>();
    client->m_httpAccessFactory = std::make_shared<xal::HttpAccessFactory>(sessions);

    client->m_configManager = std::make_shared<CdxXalConfigManager>();
    client->m_configManager->load(registryDocument, serviceDocument);

    // The HTTP executor is made first though it is held second.
    client->m_loggerFactory = std::make_shared<CdxMoRoLoggerFactory>();
    client->m_secondExecutor = std::make_shared<xalutil::SingleThreadAsyncTaskExecutor>(
        "cdxHTTPXalExecutor", client->m_loggerFactory->createLogger("CDX XAL HTTP Logger"));
    client->m_firstExecutor = std::make_shared<xalutil::SingleThreadAsyncTaskExecutor>(
        "cdxXalExecutor", client->m_loggerFactory->createLogger("CDX XAL TASK Logger"));

    const auto serviceSettings = client->m_configManager->getServiceSettings();
    xal::XalServiceRegistry::Settings settings;
    settings.mode = client->m_configManager->getRegistrySettings().mode;
    settings.registryUri = client->m_configManager->getRegistrySettings().httpUri;
    settings.clientName = "CdxMoroClient";
    client->m_serviceRegistry = std::make_shared<xal::XalServiceRegistry>(
        client->m_websocketManagerFactory, client->m_configManager, client->m_loggerFactory,
        client->m_httpAccessFactory, client->m_firstExecutor, client->m_secondExecutor, settings, serviceSettings);

    client->m_elementRegistry = std::make_shared<xal::ElementRegistry>(
        client->m_serviceRegistry, client->m_loggerFactory->createLogger("CDX Element Registry"));
    return client;
}

std::shared_ptr<xal::XalClientServices>
CdxXalClient::CreateCdxXalAccessor(const CdxBaseXalClient& baseClient, const std::string&, const std::string& name) {
    // In an allocation of their own, apart from their count. NOLINTNEXTLINE(modernize-make-shared)
    return std::shared_ptr<xal::XalClientServices>(
        new xal::XalClientServices(baseClient.m_serviceRegistry, baseClient.m_loggerFactory,
                                   baseClient.m_elementRegistry, baseClient.m_requestHeaders, name));
}

} // namespace zepclient
