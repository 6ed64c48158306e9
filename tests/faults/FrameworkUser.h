#ifndef CDXTESTS_FAULTS_FRAMEWORKUSER_H
#define CDXTESTS_FAULTS_FRAMEWORKUSER_H

#include <support/HttpTestClient.h>

#include <boost/json/parse.hpp>

#include <map>
#include <memory>
#include <mutex>
#include <platform/xal/TestClient.h>
#include <string>

namespace cdxtest {

/// The names of the configuration records that a service has, and how often it has each.
inline std::map<std::string, int> storedAt(std::uint16_t port) {
    std::map<std::string, int> names;
    const auto elements = boost::json::parse(HttpTestClient(port).get("/CarDataExchange/cdxConfig").body);
    for (const auto& element : elements.as_array())
        ++names[std::string(element.at("name").as_string())];
    return names;
}

/// A program on the framework's own interface that subscribes to the configuration records and writes them, and counts
/// what comes of it.
class FrameworkUser {
public:
    explicit FrameworkUser(std::uint16_t port, int pingInterval = 0, int pongTimeout = 0)
        : client("http://127.0.0.1:" + std::to_string(port)) {
        client.config->pingInterval = pingInterval;
        client.config->pongTimeout = pongTimeout;
        client.onConnected = [this](const std::shared_ptr<xaltest::ItemService>& service) {
            if (!m_subscription)
                m_subscription = service->subscribeResource<xaltest::Item>(
                    xaltest::ItemDescriptor(), [this](const Items& items, const Response&) { notified(items); });
        };
    }
    ~FrameworkUser() { stop(); }

    /// Returns once connected; fails the test where that does not come.
    bool start() {
        client.listen();
        return client.connection() != nullptr;
    }
    void stop() {
        client.close();
        client.onTaskExecutor([] {});
    }

    /// Creates an element; its result is counted under the name.
    void create(const std::string& name) {
        const auto service = client.connection();
        const auto count = [this, name](const Response& response) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            ++m_results[name];
            m_statuses[name] = response->getStatusCode();
            m_changed.notify_all();
        };
        service->createElement<xaltest::Item>(
            xaltest::ItemDescriptor::named(name),
            [count](const std::shared_ptr<const xaltest::Item>&, const Response& response) { count(response); },
            [count](const Response& response) { count(response); });
    }
    /// Waits for the result of the creation of `name`; its status, -1 when none comes.
    int statusOf(const std::string& name) {
        std::unique_lock<std::mutex> lock(m_mutex);
        const bool came = m_changed.wait_for(lock, xaltest::patience, [&] { return m_results.count(name) != 0; });
        return came ? m_statuses[name] : -1;
    }
    /// Waits until the latest notification has an element of this name; false when none comes.
    bool sees(const std::string& name) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, xaltest::patience, [&] { return m_names.count(name) != 0; });
    }

    /// How many results each creation had.
    std::map<std::string, int> results() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_results;
    }
    /// results(), which are forgotten.
    std::map<std::string, int> takeResults() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_statuses.clear();
        return std::exchange(m_results, {});
    }
    /// The names in the latest notification, and how often each stands there.
    std::map<std::string, int> names() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_names;
    }
    /// Whether the latest notification comes to name what the service on that port stores. What another service alone
    /// had shows as gone with the next change, so that changes are made as long as it does not.
    bool comesToHoldWhatIsStoredAt(std::uint16_t port) {
        for (int i = 0; i < 10 && names() != storedAt(port); ++i) {
            const std::string change = "change-" + std::to_string(i);
            create(change);
            if (!sees(change))
                return false;
        }
        return names() == storedAt(port);
    }
    std::size_t notifications() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_notifications;
    }

    xaltest::TestClient client;
    /// Called on the task executor's thread with each notification.
    std::function<void()> onNotified;

private:
    using Items = std::vector<std::shared_ptr<const xaltest::Item>>;
    using Response = std::shared_ptr<const xal::XalResponse>;

    void notified(const Items& items) {
        if (onNotified)
            onNotified();
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_notifications;
        m_names.clear();
        for (const auto& item : items)
            ++m_names[item->name()];
        m_changed.notify_all();
    }

    std::mutex m_mutex; ///< guards what follows
    std::condition_variable m_changed;
    std::map<std::string, int> m_results;
    std::map<std::string, int> m_statuses;
    std::map<std::string, int> m_names;
    std::size_t m_notifications = 0;
    std::shared_ptr<xal::Subscription> m_subscription; ///< of the task executor's thread
};

} // namespace cdxtest

#endif
