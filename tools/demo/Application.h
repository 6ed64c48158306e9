#ifndef CDXTOOLS_DEMO_APPLICATION_H
#define CDXTOOLS_DEMO_APPLICATION_H

#include <CdxMoroClient.h>
#include <oru/Json.h>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace cdxtools {

class Exchanges;
class Timeline;

/// The demo's application: what an in-vehicle program does with the library, by its public headers only.
///
/// Its handlers run on the framework's thread, one at a time; the other operations are called by the demo's main
/// thread.
class Application {
public:
    Application(Timeline& timeline, Exchanges& exchanges);
    ~Application();
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    void start(oru::Json::Value registryDocument, oru::Json::Value serviceDocument);
    void stop();

    void createElements(const std::string& client);
    void updateElements(const std::string& client);
    /// Confirms the data message with the client's master control.
    void settle(const std::string& client, const std::string& eventId);
    /// Follows the one data message that was received last.
    void followLastMessage();

private:
    void clientAnnounced(const oru::Json::Value& state);
    void registerHandlers(const std::string& client);
    void received(const std::string& client, const std::string& what, const oru::Json::Value& document);
    void created(const std::string& client, const std::string& kind, bool success, const std::string& id);
    void updated(const std::string& client, const std::string& kind, bool success);
    std::string idOf(const std::string& client, const std::string& kind);

    Timeline& m_timeline;
    Exchanges& m_exchanges;
    std::shared_ptr<zepclient::CdxMoroClient> m_client;
    std::atomic<bool> m_subscribedToData{false};

    std::mutex m_mutex; ///< guards what handlers leave for the main thread: the two members below
    std::map<std::string, std::string> m_ids;
    std::string m_lastMessageId;
};

} // namespace cdxtools

#endif
