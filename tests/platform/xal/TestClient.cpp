#include "TestClient.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <utility>

namespace xaltest {
namespace {

class JournalLogger : public xalutil::ILogger {
public:
    JournalLogger(std::shared_ptr<Journal> journal, std::string facility, bool hasSubFacilities)
        : m_journal(std::move(journal)), m_facility(std::move(facility)), m_hasSubFacilities(hasSubFacilities) {}
    void trace(const std::string& text) override { write("trace", text); }
    void debug(const std::string& text) override { write("debug", text); }
    void info(const std::string& text) override { write("info", text); }
    void warning(const std::string& text) override { write("warning", text); }
    void error(const std::string& text) override { write("error", text); }
    void system(const std::string& text) override { write("system", text); }
    bool isTrace() const override { return true; }
    bool isDebug() const override { return true; }
    bool isInfo() const override { return true; }
    bool isWarning() const override { return true; }
    bool isError() const override { return true; }
    bool isSystem() const override { return true; }
    std::shared_ptr<ILogger> getSubFacilityLogger(const std::string& subFacility) const override {
        return m_hasSubFacilities ? std::make_shared<JournalLogger>(m_journal, m_facility + "." + subFacility, true)
                                  : nullptr;
    }

private:
    void write(const char* severity, const std::string& text) {
        m_journal->add(std::string(severity) + " " + m_facility + ": " + text);
    }

    std::shared_ptr<Journal> m_journal;
    std::string m_facility;
    bool m_hasSubFacilities;
};

} // namespace

void Journal::add(const std::string& line) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.push_back(line);
    if (m_lines.size() > 2 * m_latest)
        m_lines.erase(m_lines.begin(), m_lines.end() - static_cast<std::ptrdiff_t>(m_latest));
    m_changed.notify_all();
}

void Journal::keepLatest(std::size_t count) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_latest = count;
}

bool Journal::awaitCount(std::size_t count, std::chrono::milliseconds within) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, within, [&] { return m_lines.size() >= count; });
}

std::string Journal::await(const std::string& part, std::chrono::milliseconds within) {
    std::string found;
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait_for(lock, within, [&] {
        const auto line = std::find_if(m_lines.begin(), m_lines.end(),
                                       [&](const std::string& text) { return text.find(part) != std::string::npos; });
        if (line != m_lines.end())
            found = *line;
        return !found.empty();
    });
    return found;
}

std::vector<std::string> Journal::lines() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

std::size_t Journal::count(const std::string& part) const {
    const auto all = lines();
    return static_cast<std::size_t>(std::count_if(
        all.begin(), all.end(), [&](const std::string& line) { return line.find(part) != std::string::npos; }));
}

std::unique_ptr<xalutil::ILogger> JournalLoggerFactory::createLogger(const std::string& facility) {
    return std::make_unique<JournalLogger>(m_journal, facility, m_hasSubFacilities);
}

TestClient::TestClient(const std::string& baseUri) {
    config->baseUri = baseUri;
}

TestClient::~TestClient() {
    close();
    if (task)
        task->stop();
    if (http)
        http->stop();
}

void TestClient::makeRegistry() {
    const auto loggers = std::make_shared<JournalLoggerFactory>(log, hasSubFacilityLoggers);
    JournalLoggerFactory executorLoggers(executorLog);
    http = std::make_shared<xalutil::SingleThreadAsyncTaskExecutor>("http", executorLoggers.createLogger("http"));
    task = std::make_shared<xalutil::SingleThreadAsyncTaskExecutor>("task", executorLoggers.createLogger("task"));
    const auto settingsMap = std::make_shared<std::map<std::string, xal::XalServiceConfigurations::ServiceSetting>>();
    (*settingsMap)["CarDataExchange"] = setting;
    registry = std::make_shared<xal::XalServiceRegistry>(
        websockets, config, loggers,
        std::make_shared<xal::HttpAccessFactory>(std::make_shared<xalutil::PocoHttpSessionFactory>()), task, http,
        settings, settingsMap);
}

void TestClient::listen() {
    if (!registry)
        makeRegistry();
    xal::ServiceListener<ItemService> listener;
    listener.connected = [this](const std::shared_ptr<ItemService>& service) {
        told.add("connected");
        if (onConnected)
            onConnected(service);
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_services.push_back(service);
        m_changed.notify_all();
    };
    listener.disconnected = [this] {
        told.add("disconnected");
        if (onDisconnected)
            onDisconnected();
    };
    listener.error = [this](const std::exception& e) { told.add(std::string("error: ") + e.what()); };
    registry->registerServiceListener(listener);
}

void TestClient::close() {
    if (registry)
        registry->close();
}

std::shared_ptr<ItemService> TestClient::connection(std::size_t number) {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_changed.wait_for(lock, patience, [&] { return m_services.size() >= number; }))
        return nullptr;
    return m_services[number - 1];
}

bool TestClient::awaitDisconnected(std::size_t count) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    for (std::size_t lines = 1; std::chrono::steady_clock::now() < deadline; ++lines) {
        if (told.count("disconnected") >= count)
            return true;
        told.awaitCount(lines);
    }
    return false;
}

std::vector<std::chrono::milliseconds> TestClient::announcedDelays() const {
    const std::string key = "next attempt in ";
    std::vector<std::chrono::milliseconds> delays;
    for (const std::string& line : log->lines())
        if (const auto at = line.find(key); at != std::string::npos)
            delays.emplace_back(std::stol(line.substr(at + key.size())));
    return delays;
}

void TestClient::onTaskExecutor(const std::function<void()>& function) {
    auto call = std::make_shared<std::packaged_task<void()>>(function);
    auto over = call->get_future();
    task->execute([call = std::move(call)] { (*call)(); });
    if (over.wait_for(patience) != std::future_status::ready) {
        ADD_FAILURE() << "the task executor does not come to the test's task";
        return;
    }
    EXPECT_NO_THROW(over.get()) << "the task executor dropped the test's task, or that threw";
}

std::string describe(const std::vector<std::shared_ptr<const Item>>& items, int status) {
    std::string line;
    for (const auto& item : items)
        line += (line.empty() ? "" : " ") + item->id();
    if (line.empty())
        line = "-";
    return status == 200 ? line : line + " !" + std::to_string(status);
}

} // namespace xaltest
