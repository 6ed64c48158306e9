#include "Application.h"

#include <support/Tcp.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

namespace cdxtest {

std::ostream& operator<<(std::ostream& out, const Told& told) {
    return out << told.what << " of \"" << told.client << "\" (" << told.success << ") " << told.document;
}

void Recorder::add(Told told) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_told.push_back(std::move(told));
    m_added.notify_all();
}

Told Recorder::waitFor(const Match& match, std::size_t count) {
    std::unique_lock<std::mutex> lock(m_mutex);
    Told found;
    const bool came = m_added.wait_for(lock, patience, [&] {
        std::size_t seen = 0;
        for (const Told& told : m_told) {
            if (match(told) && ++seen == count) {
                found = told;
                return true;
            }
        }
        return false;
    });
    if (!came) {
        ADD_FAILURE() << "what was waited for did not come; the application was told " << m_told.size() << " things";
        for (const Told& told : m_told)
            ADD_FAILURE() << told;
    }
    return found;
}

Told Recorder::waitFor(const std::string& what, const std::string& client, std::size_t count) {
    SCOPED_TRACE("waiting for " + what + " of " + client);
    return waitFor([&](const Told& told) { return told.what == what && told.client == client; }, count);
}

std::size_t Recorder::count(const std::string& what, const std::string& client) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<std::size_t>(std::count_if(
        m_told.begin(), m_told.end(), [&](const Told& told) { return told.what == what && told.client == client; }));
}

std::vector<Told> Recorder::all() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_told;
}

oru::Json::Value registryDocument() {
    oru::Json::Value setting;
    setting["service"] = "CarDataExchange";
    setting["useSeparator"] = false;
    setting["timeOut"] = 5000;
    oru::Json::Value document;
    document["mode"] = "static";
    document["httpUri"] = "";
    document["serviceSettings"].append(setting);
    return document;
}

oru::Json::Value serviceDocument(std::uint16_t port) {
    oru::Json::Value document;
    document["serverBaseUri"] = "http://127.0.0.1:" + std::to_string(port);
    document["serverBasePathHTTP"] = "/";
    document["serverBasePathWS"] = "/";
    return document;
}

Application::Application() : m_client(zepclient::CdxMoroClient::getInstance()) {}

Application::~Application() {
    stop();
    abandon();
}

void Application::abandon() {
    m_started = false;
    m_client.reset();
    zepclient::CdxMoroClient::ReleaseCdxMoroClientThread();
}

void Application::start(std::uint16_t port) {
    if (hasMessageProcessor) {
        m_client->setMsgProcessorCallback([this](oru::Json::Value state) {
            registerAll(state["name"].asString());
            if (onAnnounced)
                onAnnounced(state);
            m_recorder.add({"announced", state["name"].asString(), state});
        });
    }
    m_client->setMsgProcessorDeleteCallback([this](std::string name) {
        if (onGone)
            onGone(name);
        m_recorder.add({"gone", name});
    });
    oru::Json::Value registry = registryDocument();
    oru::Json::Value service = serviceDocument(port);
    m_started = true;
    m_client->StartCdxMoroClient(registry, service);
}

void Application::stop() {
    if (std::exchange(m_started, false))
        m_client->StopCdxMoroClient();
}

void Application::registerAll(const std::string& name) {
    using oru::Json::Value;
    const auto document = [this, name](const char* what) {
        return [this, name, what](Value told) { m_recorder.add({what, name, std::move(told)}); };
    };
    const auto flag = [this, name](const char* what) {
        return [this, name, what](bool success) { m_recorder.add({what, name, {}, success}); };
    };
    const auto result = [this, name](const char* what) {
        return [this, name, what](bool success, Value told) { m_recorder.add({what, name, std::move(told), success}); };
    };
    m_client->setCdxClientStateRecieveHandler(document("state"), name);
    m_client->setCdxDataStateSubsRecieveHandler(document("data"), name);
    m_client->setCdxDataStateUpdateRecieveHandler(document("followed data"), name);
    m_client->setCdxMasterControlCreateRecieveHandler(
        [this, name](bool success, std::string id) {
            m_recorder.add({"control created", name, Value(id), success});
        },
        name);
    m_client->setCdxMasterControlUpdateHandler(flag("control updated"), name);
    m_client->setCdxConfigCreateRecieveHandler(result("config created"), name);
    m_client->setCdxConfigUpdateRecieveHandler(flag("config updated"), name);
    m_client->setCdxTriggerCreateRecieveHandler(result("trigger created"), name);
    m_client->setCdxTriggerUpdateRecieveHandler(flag("trigger updated"), name);
}

} // namespace cdxtest
