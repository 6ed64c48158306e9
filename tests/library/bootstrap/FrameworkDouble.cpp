#include "FrameworkDouble.h"

#include <xal/ServiceRegistry.h>
#include <xal/Transport.h>
#include <xalutil/HttpSession.h>
#include <xalutil/TaskExecutor.h>

#include <iostream>
#include <sstream>
#include <utility>

#ifdef CDX_SANITIZED
/// What is defined here is defined in the framework's libraries too, on purpose.
extern "C" const char* __asan_default_options();  // NOLINT(bugprone-reserved-identifier)
extern "C" const char* __asan_default_options() { // NOLINT(bugprone-reserved-identifier)
    return "detect_odr_violation=0";
}
#endif

namespace cdxtest {

namespace {

void note(const std::string& entry) {
    FrameworkDouble::get().journal->add(entry);
}

/// What a logger writes before its message.
std::string labelOf(xalutil::ILogger& logger) {
    std::ostringstream output;
    std::streambuf* const standardOutput = std::cout.rdbuf(output.rdbuf());
    logger.info("");
    std::cout.rdbuf(standardOutput);
    std::string line = output.str();
    return line.empty() ? line : line.substr(0, line.size() - 1);
}

} // namespace

FrameworkDouble& FrameworkDouble::get() {
    static FrameworkDouble* const framework = new FrameworkDouble; // outlives what is released at exit
    return *framework;
}

void FrameworkDouble::reset() {
    get() = FrameworkDouble();
}

std::shared_ptr<RecordingConnection> FrameworkDouble::connect() {
    auto connection = std::make_shared<RecordingConnection>(journal);
    connected(connection);
    return connection;
}

} // namespace cdxtest

namespace xalutil {

PocoHttpSessionFactory::PocoHttpSessionFactory() {
    cdxtest::note("make sessions");
}

PocoHttpSessionFactory::~PocoHttpSessionFactory() {
    cdxtest::note("destroy sessions");
}

struct SingleThreadAsyncTaskExecutor::State {
    std::string name;
};

SingleThreadAsyncTaskExecutor::SingleThreadAsyncTaskExecutor(const std::string& name, std::unique_ptr<ILogger> logger)
    : m_state(std::make_shared<State>(State{name})) {
    cdxtest::note("make executor " + name + ", " + cdxtest::labelOf(*logger));
    if (cdxtest::FrameworkDouble::get().onMakeExecutor)
        cdxtest::FrameworkDouble::get().onMakeExecutor();
}

SingleThreadAsyncTaskExecutor::~SingleThreadAsyncTaskExecutor() {
    cdxtest::note("destroy executor " + m_state->name);
}

void SingleThreadAsyncTaskExecutor::execute(std::function<void()> task) {
    cdxtest::note("execute on " + m_state->name);
    task();
}

void SingleThreadAsyncTaskExecutor::stop() {
    cdxtest::note("stop " + m_state->name);
}

} // namespace xalutil

namespace xal {

DefaultWebsocketManagerFactory::DefaultWebsocketManagerFactory() {
    cdxtest::note("make websockets");
}

DefaultWebsocketManagerFactory::~DefaultWebsocketManagerFactory() {
    cdxtest::note("destroy websockets");
}

void DefaultWebsocketManagerFactory::removeManager(const std::string& serviceName) {
    cdxtest::note("remove manager " + serviceName);
}

HttpAccessFactory::HttpAccessFactory(std::shared_ptr<xalutil::PocoHttpSessionFactory> sessions)
    : m_sessions(std::move(sessions)) {
    cdxtest::note(m_sessions ? "make access on sessions" : "make access on nothing");
}

HttpAccessFactory::~HttpAccessFactory() {
    cdxtest::note("destroy access");
}

/// Keeps what the framework's own would keep, so that the order of destruction is the real one.
class XalServiceRegistry::Impl {
public:
    std::shared_ptr<IWebsocketManagerFactory> websockets;
    std::shared_ptr<IConfigManager> config;
    std::shared_ptr<xalutil::LoggerFactory> loggers;
    std::shared_ptr<ITransportAccessFactory> transport;
    std::shared_ptr<xalutil::ITaskExecutor> task;
    std::shared_ptr<xalutil::ITaskExecutor> http;
};

XalServiceRegistry::XalServiceRegistry(
    std::shared_ptr<IWebsocketManagerFactory> websockets, std::shared_ptr<IConfigManager> config,
    std::shared_ptr<xalutil::LoggerFactory> loggers, std::shared_ptr<ITransportAccessFactory> transport,
    std::shared_ptr<xalutil::ITaskExecutor> task, std::shared_ptr<xalutil::ITaskExecutor> http,
    const Settings& settings,
    std::shared_ptr<std::map<std::string, XalServiceConfigurations::ServiceSetting>> serviceSettings) {
    auto& framework = cdxtest::FrameworkDouble::get();
    framework.serviceSettings = *serviceSettings;
    cdxtest::note("make registry \"" + settings.mode + "\" \"" + settings.registryUri + "\" \"" + settings.clientName +
                  "\", " + cdxtest::labelOf(*loggers->createLogger("its loggers")));
    task->execute([] { cdxtest::note("the task executor comes first"); });
    http->execute([] { cdxtest::note("the HTTP executor comes second"); });
    cdxtest::note("its service is at " + config->getServerBaseUri("CarDataExchange"));
    m_impl = std::make_shared<Impl>(Impl{std::move(websockets), std::move(config), std::move(loggers),
                                         std::move(transport), std::move(task), std::move(http)});
}

XalServiceRegistry::~XalServiceRegistry() {
    cdxtest::note("destroy registry");
}

void XalServiceRegistry::close() {
    cdxtest::note("close");
}

void XalServiceRegistry::setRequestHeaders(std::shared_ptr<RequestHeaders> headers) {
    auto& framework = cdxtest::FrameworkDouble::get();
    framework.requestHeaders = std::move(headers);
    if (framework.onSetRequestHeaders)
        framework.onSetRequestHeaders();
}

void XalServiceRegistry::registerListener(const std::string& service,
                                          std::function<void(std::shared_ptr<IServiceConnection>)> connected,
                                          std::function<void()> disconnected,
                                          std::function<void(const std::exception&)>) {
    cdxtest::note("listen " + service);
    cdxtest::FrameworkDouble::get().connected = std::move(connected);
    cdxtest::FrameworkDouble::get().disconnected = std::move(disconnected);
}

ElementRegistry::ElementRegistry(std::shared_ptr<IServiceRegistry> registry, std::shared_ptr<xalutil::ILogger> logger)
    : m_registry(std::move(registry)), m_logger(std::move(logger)) {
    cdxtest::note(std::string("make elements ") + (m_registry ? "on a registry, " : "on nothing, ") +
                  cdxtest::labelOf(*m_logger));
}

ElementRegistry::~ElementRegistry() {
    cdxtest::note("destroy elements");
}

void ElementRegistry::unsubscribeFromAll() {
    cdxtest::note("unsubscribe all");
}

} // namespace xal
