// What an exchange costs over loopback against the embedded service: notifications to an application's handler, and
// writes. Not a Google Benchmark case: a notification is pushed, not called, and its cost is spread over threads.

#include "LoadClient.h"

#include <CdxMoroClient.h>
#include <cdxservice/Server.h>
#include <oru/Json.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <ctime>
#include <dirent.h>
#include <exception>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using oru::Json::Value;

constexpr std::size_t elements = 32; // data messages that change in turn
constexpr int rounds = 1000;         // changes of all of them, for the rate
constexpr int latencySamples = 2000;
constexpr int writeSamples = 2000;

double microseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::micro>(duration).count();
}

/// Processor time that the client's own threads have used, in microseconds: the framework's by their names, the
/// service's and this program's left out.
double clientProcessorTime() {
    double total = 0;
    DIR* tasks = ::opendir("/proc/self/task");
    while (const dirent* entry = ::readdir(tasks)) {
        const std::string task = std::string("/proc/self/task/") + entry->d_name;
        std::string name;
        std::getline(std::ifstream(task + "/comm"), name);
        if (name.find("Xal") == std::string::npos && name.find("xal") == std::string::npos)
            continue;
        double nanoseconds = 0;
        std::ifstream(task + "/schedstat") >> nanoseconds;
        total += nanoseconds / 1000;
    }
    ::closedir(tasks);
    return total;
}

void printPercentiles(const char* what, std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    std::fprintf(stderr, "%-44s p50 %8.1f us   p99 %8.1f us\n", what, samples[samples.size() / 2],
                 samples[samples.size() * 99 / 100]);
}

/// Counts what handlers were told and lets the measuring thread wait for it.
class Counter {
public:
    void add() {
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_count;
        m_added.notify_one();
    }
    int count() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_count;
    }
    void waitFor(int count) {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!m_added.wait_for(lock, std::chrono::seconds(30), [&] { return m_count >= count; }))
            throw std::runtime_error("a notification or an answer did not come");
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_added;
    int m_count = 0;
};

class ExchangeBench {
public:
    ExchangeBench() : m_client(zepclient::CdxMoroClient::getInstance()) {
        m_service.start();
        m_load = std::make_unique<LoadClient>(m_service.port());
        m_client->setMsgProcessorCallback([this](Value state) { announced(state["name"].asString()); });
        Value registry, service;
        registry["mode"] = "static";
        service["serverBaseUri"] = m_service.uri();
        m_client->StartCdxMoroClient(registry, service);
        m_load->request(
            "POST", "/CarDataExchange/cdxClientStates",
            R"({"name":"bench","canonicalName":"bench","isNewConfigRequested":false,"isShutdownRequested":false,)"
            R"("offeredDataType":["telemetry"]})");
        m_announced.waitFor(1);
        for (std::size_t i = 0; i < elements; ++i)
            m_targets.push_back(postData(i));
        m_client->SubscribeToCdxDataObject();
        m_notified.waitFor(static_cast<int>(elements));
    }

    ~ExchangeBench() {
        m_client->StopCdxMoroClient();
        m_client.reset();
        zepclient::CdxMoroClient::ReleaseCdxMoroClientThread();
    }

    void run() {
        rate();
        latency();
        writes();
    }

private:
    void announced(const std::string& name) {
        m_client->setCdxDataStateSubsRecieveHandler(
            [this](Value message) {
                if (message["version"].asString() == "last")
                    m_last.add();
                m_notified.add();
            },
            name);
        m_client->setCdxConfigCreateRecieveHandler(
            [this](bool, Value result) {
                m_id = result["id"].asString();
                m_written.add();
            },
            name);
        m_client->setCdxConfigUpdateRecieveHandler([this](bool) { m_written.add(); }, name);
        m_announced.add();
    }

    std::string postData(std::size_t number) {
        const std::string body =
            R"({"name":"bench","eventId":"event-)" + std::to_string(number) +
            R"(","messageId":"message","version":"1","authenticode":"0123456789abcdef0123456789abcdef","correlationTag":"tag",)"
            R"("deliveryMode":"atLeastOnce","isCallbackAbilityRequested":true,"isMixinOfUserIdRequested":false,)"
            R"("isMixinOfVinRequested":true,"timestamp":1700000000000,"timezone":60,)"
            R"("cdxClientDataReport":["odometer=48213;","speed=42;","heading=171"]})";
        const std::string created = m_load->request("POST", "/CarDataExchange/cdxData", body);
        Value element;
        std::istringstream(created) >> element;
        return element["uri"].asString();
    }

    void rate() {
        const int before = m_notified.count();
        const double processorBefore = clientProcessorTime();
        const Clock::time_point start = Clock::now();
        std::vector<LoadClient::Change> changes(elements);
        for (int round = 1; round <= rounds; ++round) {
            for (std::size_t i = 0; i < elements; ++i)
                changes[i] = {m_targets[i], round == rounds ? R"({"version":"last"})"
                                                            : R"({"version":")" + std::to_string(round) + "\"}"};
            m_load->patchAll(changes);
        }
        m_last.waitFor(static_cast<int>(elements));
        const double elapsed = microseconds(Clock::now() - start);
        const int notifications = m_notified.count() - before;
        std::fprintf(stderr, "%-44s %12.0f /s   (%d of %d changes told by themselves)\n", "notifications to a handler",
                     notifications / elapsed * 1e6, notifications, rounds * static_cast<int>(elements));
        std::fprintf(stderr, "%-44s %12.2f us\n", "client's processor time per notification",
                     (clientProcessorTime() - processorBefore) / notifications);
    }

    void latency() {
        std::vector<double> samples;
        for (int i = 0; i < latencySamples; ++i) {
            const int before = m_notified.count();
            const Clock::time_point start = Clock::now();
            m_load->patchAll({{m_targets[0], R"({"messageId":")" + std::to_string(i) + "\"}"}});
            m_notified.waitFor(before + 1);
            samples.push_back(microseconds(Clock::now() - start));
        }
        printPercentiles("one notification, from write to handler", samples);
    }

    void writes() {
        Value record;
        record["name"] = "bench";
        m_client->CreateCdxConfigElement(record);
        m_written.waitFor(1);
        record["id"] = m_id;
        std::vector<double> samples;
        for (int i = 0; i < writeSamples; ++i) {
            record["recordBody"] = "body " + std::to_string(i);
            const Clock::time_point start = Clock::now();
            m_client->UpdateCdxConfigElement(record);
            m_written.waitFor(2 + i);
            samples.push_back(microseconds(Clock::now() - start));
        }
        printPercentiles("one write, from call to result handler", samples);
    }

    cdxservice::Server m_service;
    std::shared_ptr<zepclient::CdxMoroClient> m_client;
    std::unique_ptr<LoadClient> m_load;
    std::vector<std::string> m_targets;
    std::string m_id;
    Counter m_announced, m_notified, m_last, m_written;
};

} // namespace

int main() {
    // The framework's diagnostics are not what is measured here, nor is a terminal.
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    ::dup2(nowhere, STDOUT_FILENO);
    try {
        ExchangeBench().run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "exchange bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
