// Memory runs out at one piece, or at fifty in a row, while an application exchanges through the library.
#include "MemorySweep.h"
#include "OwnConnections.h"
#include "ServiceProcess.h"

#include <CdxMoroClient.h>
#include <oru/Log.h>
#include <support/scarce/ScarceMemory.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <e2e/Application.h>
#include <e2e/Vehicle.h>
#include <iostream>
#include <mutex>
#include <stdexcept>

namespace cdxtest {
namespace {

using oru::Json::Value;
using scarce::Spared;
using zepclient::CdxMoroClient;

/// What the application was told and what the log says, in the order in which it came. Both have memory.
class Diary : private std::streambuf {
public:
    Diary() : m_console(std::cout.rdbuf(this)) {
        oru::Log::setSink([this](int level, const std::string& line) {
            if (level <= 3)
                add(line);
        });
    }
    ~Diary() override {
        oru::Log::setSink({});
        std::cout.rdbuf(m_console);
    }
    Diary(const Diary&) = delete;
    Diary& operator=(const Diary&) = delete;

    void add(const std::string& line) {
        const Spared spared;
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_text += line + '\n';
        m_changed.notify_all();
    }
    /// Waits until one of the texts has come since the last forget(); false when none does.
    bool await(const std::vector<std::string>& texts, std::chrono::milliseconds within = std::chrono::seconds(15)) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, within, [&] {
            return std::any_of(texts.begin(), texts.end(), [this](const std::string& text) { return has(text); });
        });
    }
    void forget() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_text.clear();
    }
    std::string text() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_text;
    }

private:
    bool has(const std::string& text) const { return m_text.find(text) != std::string::npos; }
    std::streamsize xsputn(const char* text, std::streamsize length) override {
        const Spared spared;
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_text.append(text, static_cast<std::size_t>(length));
        m_changed.notify_all();
        return length;
    }
    int_type overflow(int_type c) override {
        const char character = traits_type::to_char_type(c);
        xsputn(&character, 1);
        return c;
    }

    std::streambuf* const m_console;
    std::mutex m_mutex; ///< guards what follows
    std::condition_variable m_changed;
    std::string m_text;
};

class App {
public:
    explicit App(std::uint16_t port) : m_port(port), m_vehicle(port) {}

    void start() {
        m_client = CdxMoroClient::getInstance();
        m_state = m_vehicle.announce("navigation")["id"].asString();
        for (int i = 0; i < 10; ++i) {
            m_client->setMsgProcessorCallback([this](const Value& state) { announced(state["name"].asString()); });
            m_client->setMsgProcessorDeleteCallback([this](const std::string& name) {
                const Spared spared;
                m_client->cleanUpService(name);
            });
            Value registry = registryDocument();
            Value service = serviceDocument(m_port);
            insist([&] { m_client->StartCdxMoroClient(registry, service); });
            if (m_diary.await({"announced", "threw:", "Error while creating", "Failed to listen"}) &&
                !isRefused({"Error while creating", "Failed to listen"}))
                return;
            m_diary.forget();
            m_client->StopCdxMoroClient();
        }
        demand(false, "never connected: " + m_diary.text());
    }
    void data(const std::string& event) {
        m_vehicle.postData("navigation", event);
        require({"data " + event, "threw:", "out of memory"}, "no data");
    }
    /// A call that throws was not taken; every other ends in its result, or the log says why not.
    /// A client that was not announced yet has no handler for it.
    void record() {
        m_diary.forget();
        const bool threw = throws([this] {
            m_client->CreateCdxConfigElement(json(R"({"name":"navigation","recordId":"r","recordBody":"b"})"));
        });
        if (!threw)
            require({"record", "threw:", "out of memory", "is not found"}, "no result");
    }
    void lose() {
        cutOwnConnections(m_port);
        require({"announced", "threw:", "out of memory"}, "never connected again");
    }
    void stop() {
        insist([this] { m_client->StopCdxMoroClient(); });
        m_client.reset();
        insist([] { CdxMoroClient::ReleaseCdxMoroClientThread(); });
    }
    /// The next change finds everything as if memory had never been short.
    void verify() {
        m_diary.forget();
        m_vehicle.patch("cdxClientStates", m_state, json(R"({"isShutdownRequested":true})"));
        require({"announced"}, "no announcement after the shortage");
        m_vehicle.postData("navigation", "last");
        require({"data last"}, "no data after the shortage");
        record();
        require({"record 1"}, "no record after the shortage");
    }

private:
    void require(const std::vector<std::string>& texts, const std::string& otherwise) {
        if (!m_diary.await(texts))
            throw std::runtime_error(otherwise + ": " + m_diary.text());
    }
    bool isRefused(const std::vector<std::string>& texts) { return m_diary.await(texts, std::chrono::milliseconds(0)); }

    void announced(const std::string& name) {
        const Spared spared;
        m_client->setCdxDataStateSubsRecieveHandler(
            [this](const Value& told) { m_diary.add("data " + told["eventId"].asString()); }, name);
        m_client->setCdxConfigCreateRecieveHandler(
            [this](bool isCreated, const Value&) { m_diary.add(std::string("record ") + (isCreated ? "1" : "0")); },
            name);
        insist([this] { m_client->SubscribeToCdxDataObject(); });
        m_client->setCdxClientStateRecieveHandler([this](const Value&) { m_diary.add("announced"); }, name);
        m_diary.add("announced");
    }

    const std::uint16_t m_port;
    const Vehicle m_vehicle;
    std::string m_state; ///< the id of the client's
    Diary m_diary;
    std::shared_ptr<CdxMoroClient> m_client;
};

void exchange(const Shortage& shortage, std::uint16_t port) {
    const Vehicle vehicle(port);
    for (const char* const resource : {"cdxData", "cdxConfig", "cdxClientStates"})
        for (const Value& element : vehicle.list(resource))
            vehicle.remove(resource, element["id"].asString());
    App app(port);
    shortage.phase("start", [&] { app.start(); });
    shortage.phase("data", [&] { app.data("first"); });
    shortage.phase("record", [&] { app.record(); });
    shortage.phase("loss", [&] { app.lose(); });
    app.verify();
    shortage.phase("stop", [&] { app.stop(); });
}

class OutOfMemoryInTheLibrary : public ::testing::TestWithParam<const char*> {
protected:
    ServiceProcess m_service;
};

TEST_P(OutOfMemoryInTheLibrary, AtOnePieceIsSurvivedByAnApplication) {
    sweep(GetParam(), 37, 1, [this](const Shortage& shortage) { exchange(shortage, m_service.port()); });
}

TEST_P(OutOfMemoryInTheLibrary, AtFiftyPiecesIsSurvivedByAnApplication) {
    sweep(GetParam(), 211, 50, [this](const Shortage& shortage) { exchange(shortage, m_service.port()); });
}

INSTANTIATE_TEST_SUITE_P(During, OutOfMemoryInTheLibrary, ::testing::Values("start", "data", "record", "loss", "stop"),
                         [](const auto& instance) { return std::string(instance.param); });

} // namespace
} // namespace cdxtest
