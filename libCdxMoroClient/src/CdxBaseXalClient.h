#ifndef CDXMOROCLIENT_CDXBASEXALCLIENT_H
#define CDXMOROCLIENT_CDXBASEXALCLIENT_H

#include <oru/Json.h>
#include <xal/Client.h>
#include <xal/ServiceRegistry.h>
#include <xal/Transport.h>
#include <xalutil/Logger.h>
#include <xalutil/TaskExecutor.h>

#include <map>
#include <memory>
#include <string>

namespace zepclient {

class CdxXalConfigManager;

/// Writes every message of the framework, at every severity, to standard output as one line: the severity's prefix, the
/// facility, the message.
///
/// Called from several framework threads at once and takes no lock: a line is several insertions, and lines of
/// different threads may interleave. Write errors are ignored.
class CdxMoRoLogger : public xalutil::ILogger {
public:
    explicit CdxMoRoLogger(const std::string& facility);
    ~CdxMoRoLogger() override;

    void trace(const std::string& message) override;
    void debug(const std::string& message) override;
    void info(const std::string& message) override;
    void warning(const std::string& message) override;
    void error(const std::string& message) override;
    /// Bears the prefix "VERBOSE: ".
    void system(const std::string& message) override;
    bool isTrace() const override;
    bool isDebug() const override;
    bool isInfo() const override;
    bool isWarning() const override;
    bool isError() const override;
    bool isSystem() const override;
    /// A logger that bears the sub-facility's name only, not this one's.
    std::shared_ptr<xalutil::ILogger> getSubFacilityLogger(const std::string& subFacility) const override;

private:
    void write(const char* prefix, const std::string& message) const;

    std::string m_label;
};

class CdxMoRoLoggerFactory : public xalutil::LoggerFactory {
public:
    ~CdxMoRoLoggerFactory() override;
    std::unique_ptr<xalutil::ILogger> createLogger(const std::string& facility) override;
};

/// Everything that the framework needs before a service can be reached, one set for the process.
///
/// CdxXalClient fills it, once for every start, and Stop() empties it again. Neither is locked: both run on the thread
/// that creates or stops the facade. Application handlers run on the task executor's thread; Stop() waits for one that
/// runs there unless it is called from it, so whoever stops holds no mutex that a handler takes.
class CdxBaseXalClient {
public:
    /// The process's one; made by the first call, on whichever thread, and released at exit.
    static std::shared_ptr<CdxBaseXalClient> getInstance();
    virtual ~CdxBaseXalClient();

    /// Ends all subscriptions, executors and connections, and releases everything. Whatever is not there is passed
    /// over.
    void Stop();

private:
    friend class CdxXalClient;

    CdxBaseXalClient();

    std::shared_ptr<CdxMoRoLoggerFactory> m_loggerFactory;
    std::shared_ptr<xal::DefaultWebsocketManagerFactory> m_websocketManagerFactory;
    std::shared_ptr<xal::HttpAccessFactory> m_httpAccessFactory;
    std::shared_ptr<CdxXalConfigManager> m_configManager;
    std::shared_ptr<xalutil::SingleThreadAsyncTaskExecutor> m_firstExecutor;  ///< tasks: all that an application sees
    std::shared_ptr<xalutil::SingleThreadAsyncTaskExecutor> m_secondExecutor; ///< HTTP requests
    std::shared_ptr<xal::XalServiceRegistry> m_serviceRegistry;
    std::shared_ptr<xal::ElementRegistry> m_elementRegistry;
    /// What every request of this client carries; shared, so that a value that is replaced takes effect at once.
    std::shared_ptr<std::map<std::string, std::shared_ptr<std::string>>> m_requestHeaders;
};

class CdxXalClient {
public:
    /// Fills the process's base client with new framework objects, whatever it held before, and returns it. Exceptions
    /// of the framework's constructors and of the documents' reading pass to the caller.
    static std::shared_ptr<CdxBaseXalClient> CreateCdxBaseRasiClient(oru::Json::Value& registryDocument,
                                                                     oru::Json::Value& serviceDocument);

    /// What one client of a service works with, made of the base client's objects. All services of the base client
    /// share them, whatever their name; `name` is the new client's.
    static std::shared_ptr<xal::XalClientServices>
    CreateCdxXalAccessor(const CdxBaseXalClient& baseClient, const std::string& serviceName, const std::string& name);
};

} // namespace zepclient

#endif
