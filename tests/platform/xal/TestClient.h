#ifndef CDXTESTS_PLATFORM_XAL_TESTCLIENT_H
#define CDXTESTS_PLATFORM_XAL_TESTCLIENT_H

#include <xal/ConfigManager.h>
#include <xal/Service.h>
#include <xal/ServiceRegistry.h>
#include <xal/Transport.h>
#include <xal/XObject.h>
#include <xalutil/Logger.h>
#include <xalutil/TaskExecutor.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace xaltest {

constexpr std::chrono::seconds patience(20);

/// A test's own resource and its service.
class ItemDescriptor : public xal::XObjectDescriptor {
public:
    explicit ItemDescriptor(const std::string& resource = "cdxConfig")
        : XObjectDescriptor("CarDataExchange", resource) {}
    static ItemDescriptor withId(const std::string& id) {
        ItemDescriptor descriptor;
        descriptor.setId(id);
        return descriptor;
    }
    static ItemDescriptor named(const std::string& name) {
        ItemDescriptor descriptor;
        descriptor.setName(name);
        return descriptor;
    }
    void addFilter(const std::string& key, const std::string& value) { filter().add(key, value); }
};

class Item : public xal::XObject<ItemDescriptor> {
public:
    using Desctype = ItemDescriptor;
    explicit Item(const std::shared_ptr<xalutil::JsonObject>& json) : XObject<ItemDescriptor>(json) {}
    std::string id() const { return getId().isValid() ? getId().getValue() : std::string(); }
    std::string name() const { return getName().isValid() ? getName().getValue() : std::string(); }
};

class ItemService : public xal::Service {
public:
    explicit ItemService(const std::shared_ptr<xal::IServiceConnection>& connection) : Service(connection) {}
    static std::string getServiceName() { return "CarDataExchange"; }
};

/// Lines that several threads write and a test waits for.
class Journal {
public:
    void add(const std::string& line);
    /// Lets the oldest lines go from now on, and keeps at least the latest `count`.
    void keepLatest(std::size_t count);
    /// Whether so many lines have come, at the latest when the patience ends.
    bool awaitCount(std::size_t count, std::chrono::milliseconds within = patience);
    /// Waits until a line holds `part`; empty when none does.
    std::string await(const std::string& part, std::chrono::milliseconds within = patience);
    std::vector<std::string> lines() const;
    std::size_t count(const std::string& part) const;
    std::size_t size() const { return lines().size(); }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_lines;
    std::size_t m_latest = std::numeric_limits<std::size_t>::max() / 2;
};

/// Loggers whose lines, with their severity in front, go into a journal.
class JournalLoggerFactory : public xalutil::LoggerFactory {
public:
    explicit JournalLoggerFactory(std::shared_ptr<Journal> journal, bool hasSubFacilities = true)
        : m_journal(std::move(journal)), m_hasSubFacilities(hasSubFacilities) {}
    std::unique_ptr<xalutil::ILogger> createLogger(const std::string& facility) override;

private:
    std::shared_ptr<Journal> m_journal;
    bool m_hasSubFacilities;
};

class TestConfig : public xal::IConfigManager {
public:
    std::string baseUri;
    std::string basePath = "/";
    std::string separator = "/";
    bool known = true;
    int pingInterval = 0, pongTimeout = 0;

    std::string getServerBaseUri(const std::string&) const override { return baseUri; }
    std::string getServerBasePath(const std::string&) const override { return basePath; }
    std::string getSeparatorAfterResource(const std::string&) const override { return separator; }
    bool isServiceConfigurationKnown(const std::string&) const override { return known; }
    int getWatchdogPingInterval(const std::string&) const override { return pingInterval; }
    int getWatchdogPongTimeout(const std::string&) const override { return pongTimeout; }
};

/// A program that listens to the service: a registry with its two executors, and what its listener was told.
class TestClient {
public:
    explicit TestClient(const std::string& baseUri);
    ~TestClient();

    /// Registers the listener; what is set up before counts.
    void listen();
    /// Closes the registry.
    void close();

    /// The service object of the n-th connection, from 1; empty when there was none in time.
    std::shared_ptr<ItemService> connection(std::size_t number = 1);
    bool awaitDisconnected(std::size_t count);
    /// The delays before further attempts that the log announces, in their order.
    std::vector<std::chrono::milliseconds> announcedDelays() const;
    /// Runs the function on the task executor and returns when it has run. Fails the test where the executor drops it,
    /// or does not come to it in time.
    void onTaskExecutor(const std::function<void()>& function);

    std::shared_ptr<Journal> log = std::make_shared<Journal>();
    std::shared_ptr<Journal> executorLog = std::make_shared<Journal>();
    /// "connected", "disconnected", "error: ..." in the order in which they were told.
    Journal told;
    std::shared_ptr<TestConfig> config = std::make_shared<TestConfig>();
    xal::XalServiceRegistry::Settings settings;
    xal::XalServiceConfigurations::ServiceSetting setting;
    bool hasSubFacilityLoggers = true;
    std::function<void(std::shared_ptr<ItemService>)> onConnected;
    std::function<void()> onDisconnected;
    std::shared_ptr<xal::DefaultWebsocketManagerFactory> websockets =
        std::make_shared<xal::DefaultWebsocketManagerFactory>();
    std::shared_ptr<xalutil::SingleThreadAsyncTaskExecutor> task;
    std::shared_ptr<xalutil::SingleThreadAsyncTaskExecutor> http;
    std::shared_ptr<xal::XalServiceRegistry> registry;
    /// The registry without a listener.
    void makeRegistry();

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::shared_ptr<ItemService>> m_services;
};

/// One subscription's notifications as lines: "c b a" for a list of these ids, "-" for none, with " !status" behind
/// where that is not 200.
std::string describe(const std::vector<std::shared_ptr<const Item>>& items, int status = 200);

} // namespace xaltest

#endif
