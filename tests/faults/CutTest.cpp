#include "FrameworkUser.h"

#include <cdxservice/Server.h>
#include <support/FaultProxy.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <e2e/Application.h>
#include <e2e/Vehicle.h>

namespace cdxtest {
namespace {

using Direction = FaultProxy::Direction;
using End = FaultProxy::End;
using oru::Json::Value;
using std::chrono::steady_clock;
using testing::AnyOf;
using testing::ElementsAre;

constexpr std::size_t lastOffset = 2000;

/// How far apart the offsets are that are tried: all of them where CDX_CUT_STEP is 1. The sample's step is odd and
/// shares no factor with the sizes of anything sent, so that it meets heads, lengths and bodies alike.
std::size_t step() {
    const char* chosen = std::getenv("CDX_CUT_STEP");
    return chosen ? std::max<std::size_t>(1, std::strtoul(chosen, nullptr, 10)) : 101;
}

End endOf(std::size_t offset) {
    return offset % 2 == 0 ? End::Close : End::Reset;
}

class Recoveries {
public:
    void add(steady_clock::duration time) { m_times.push_back(time); }
    /// As properties of the test's result: docs/reliability.md has its figures from there.
    void report() {
        std::sort(m_times.begin(), m_times.end());
        const auto milliseconds = [](steady_clock::duration time) {
            return static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(time).count());
        };
        ::testing::Test::RecordProperty("cuts", static_cast<int>(m_times.size()));
        ::testing::Test::RecordProperty("median_recovery_ms", milliseconds(m_times[m_times.size() / 2]));
        ::testing::Test::RecordProperty("longest_recovery_ms", milliseconds(m_times.back()));
        std::cout << m_times.size() << " cuts, recovery " << milliseconds(m_times[m_times.size() / 2])
                  << " ms in the median, " << milliseconds(m_times.back()) << " ms at most\n";
    }

private:
    std::vector<steady_clock::duration> m_times;
};

class Cut : public ::testing::TestWithParam<Direction> {
protected:
    Cut() {
        m_service.start();
        m_proxy.setServer(m_service.port());
    }

    cdxservice::Server m_service;
    FaultProxy m_proxy;
    Recoveries m_recoveries;
};

/// The framework's program: connects, subscribes, creates until the cut has happened.
TEST_P(Cut, GivesEachRequestOneResultAndTheServicesStateAfterwards) {
    std::size_t losses = 0;
    for (std::size_t offset = 0; offset <= lastOffset; offset += step()) {
        SCOPED_TRACE("cut after " + std::to_string(offset) + " bytes");
        m_proxy.cut(GetParam(), offset, endOf(offset));
        FrameworkUser user(m_proxy.port());
        ASSERT_TRUE(user.start());
        const std::string prefix = std::to_string(offset) + "-";
        int created = 0;
        do {
            const std::string name = prefix + std::to_string(created++);
            user.create(name);
            ASSERT_NE(user.statusOf(name), -1);
        } while (!m_proxy.hasCut());
        user.create(prefix + "after");
        ASSERT_EQ(user.statusOf(prefix + "after"), 201);
        ASSERT_TRUE(user.sees(prefix + "after"));
        m_recoveries.add(steady_clock::now() - m_proxy.cutAt());
        for (const auto& [name, count] : user.results())
            EXPECT_EQ(count, 1) << name;

        EXPECT_EQ(user.names(), storedAt(m_service.port())) << "what the subscriber holds is what the service holds";
        user.stop();
        // One that was cut before it was told of is no loss of a connection, nor is that of a request's own.
        EXPECT_THAT(user.client.told.lines(),
                    AnyOf(ElementsAre("connected"), ElementsAre("connected", "disconnected", "connected")));
        losses += user.client.told.count("disconnected");
        for (const Value& element : Vehicle(m_service.port()).list("cdxConfig"))
            Vehicle(m_service.port()).remove("cdxConfig", element["id"].asString());
    }
    m_recoveries.report();
    std::cout << losses << " losses told, each once and with one connection after it\n";
}

/// The whole way: an application with the library, its client's announcement, data in, a record out.
TEST_P(Cut, LeavesNoApplicationWithoutItsData) {
    const Vehicle vehicle(m_service.port());
    for (std::size_t offset = 0; offset <= lastOffset; offset += step()) {
        SCOPED_TRACE("cut after " + std::to_string(offset) + " bytes");
        const std::string id = vehicle.announce("navigation")["id"].asString();
        m_proxy.cut(GetParam(), offset, endOf(offset));
        Application application;
        application.onAnnounced = [&](const Value&) { application.client().SubscribeToCdxDataObject(); };
        application.onGone = [&](const std::string& client) { application.client().cleanUpService(client); };
        application.start(m_proxy.port());
        application.recorder().waitFor("announced", "navigation");
        std::size_t written = 0;
        do {
            const std::string event = "event-" + std::to_string(written++);
            vehicle.postData("navigation", event);
            application.client().CreateCdxConfigElement(
                json(R"({"name":"navigation","recordId":"r","recordBody":"b"})"));
            application.recorder().waitFor(
                [&](const Told& told) { return told.what == "data" && told.document["eventId"].asString() == event; });
        } while (!m_proxy.hasCut() && !HasFatalFailure() && !HasNonfatalFailure());
        vehicle.postData("navigation", "after");
        application.recorder().waitFor(
            [](const Told& told) { return told.what == "data" && told.document["eventId"].asString() == "after"; });
        m_recoveries.add(steady_clock::now() - m_proxy.cutAt());
        application.stop();
        for (const Told& told : application.recorder().all()) {
            if (told.what == "data") {
                EXPECT_EQ(told.document["cdxClientDataReport"].asString(), "ab") << told;
            }
        }
        EXPECT_LE(application.recorder().count("config created", "navigation"), written);
        for (const char* const resource : {"cdxData", "cdxConfig", "cdxClientStates"})
            for (const Value& element : vehicle.list(resource))
                vehicle.remove(resource, element["id"].asString());
        ASSERT_FALSE(HasNonfatalFailure());
    }
    m_recoveries.report();
}

INSTANTIATE_TEST_SUITE_P(Towards, Cut, ::testing::Values(Direction::ToServer, Direction::ToClient),
                         [](const auto& instance) {
                             return std::string(instance.param == Direction::ToServer ? "TheService" : "TheClient");
                         });

} // namespace
} // namespace cdxtest
