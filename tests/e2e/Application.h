#ifndef CDXTESTS_E2E_APPLICATION_H
#define CDXTESTS_E2E_APPLICATION_H

#include "Recorder.h"

#include <CdxMoroClient.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace cdxtest {

/// The documents with which an application reaches a service on `port` of loopback.
oru::Json::Value registryDocument();
oru::Json::Value serviceDocument(std::uint16_t port);

/// An application as the tests need one: registers every handler of every client that is announced and records what it
/// is told. Stops and releases the client when it goes, so that the next test gets a fresh one.
class Application {
public:
    Application();
    ~Application();
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    zepclient::CdxMoroClient& client() { return *m_client; }
    Recorder& recorder() { return m_recorder; }

    /// Called from inside the library-wide handlers, before they record.
    std::function<void(const oru::Json::Value& state)> onAnnounced;
    std::function<void(const std::string& client)> onGone;
    /// Whether the next start sets the message-processor handler.
    bool hasMessageProcessor = true;

    void start(std::uint16_t port);
    void registerAll(const std::string& clientName);
    void stop();
    /// Lets the client go as an application does that forgets to stop it.
    void abandon();

private:
    std::shared_ptr<zepclient::CdxMoroClient> m_client;
    Recorder m_recorder;
    bool m_started = false;
};

} // namespace cdxtest

#endif
